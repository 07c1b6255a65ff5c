"""What the tests of the packages need: fresh Wine prefixes, Windows Installer in them, and the registry's differences.

A test is a script whose functions are its scenarios. Each runs in a process and a prefix of its own and gets the folder of the
packages and that of the packages with a higher version.

usage of such a script: ./toolbox tests/package/SCRIPT FOLDER [NEWER] [WORD...]

FOLDER has the packages, NEWER those of a higher version (tools/package --version 1.6.1 --output NEWER). Words choose scenarios
whose names contain them. --list prints all of them. ./test package makes both folders and runs the scenarios as tests.
"""

import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path, PureWindowsPath

PROJECT = Path(__file__).resolve().parents[2]
PROGRAMS = "C:\\Program Files\\KESTA"
PREFERENCES = "SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt"
INSTALLERS_OWN = re.compile(r"[+-] SOFTWARE\\(CLASSES|MICROSOFT\\WINDOWS\\CURRENTVERSION)\\INSTALLER\b")
LIMIT = 600


def say(text):
    print(f"  {text}", flush=True)


def fail(text):
    sys.exit(f"FAILED: {text}")


def check(condition, text):
    if not condition:
        fail(text)
    say(text)


def output_of_wine():
    return Path(os.environ["WINEPREFIX"]) / "output.txt"


def wine(*command, limit=LIMIT):
    """The exit code. Output goes to a file, since Wine's services keep a pipe open."""
    with open(output_of_wine(), "wb") as output:
        return subprocess.run(
            ["wine", *command], stdout=output, stderr=output, stdin=subprocess.DEVNULL, timeout=limit
        ).returncode


def unix(path):
    return Path(os.environ["WINEPREFIX"]) / "drive_c" / path.removeprefix("C:\\").replace("\\", "/")


def windows(path):
    return "Z:" + str(path).replace("/", "\\")


def package(folder, kind=""):
    return windows(next(folder.glob(f"KESTA-*-x64{kind}.msi")))


def msiexec(*options):
    log = Path(os.environ["WINEPREFIX"]) / "msi.log"
    begin = time.monotonic()
    code = wine("msiexec", *options, "/qn", "/l*v", windows(log))
    seconds = time.monotonic() - begin
    say(f"msiexec {options[0]} {PureWindowsPath(options[1]).name}: {code}, {seconds:.1f} s")
    return code


def registry():
    """Each key of HKEY_LOCAL_MACHINE\\SOFTWARE, both views, in upper case, with its values as regedit prints them."""
    file = unix("C:\\registry.reg")
    if wine("regedit", "/E", "C:\\registry.reg", "HKEY_LOCAL_MACHINE\\Software"):
        fail("the registry cannot be exported")
    keys = {}
    entry = ""
    for line in file.read_text(encoding="utf-16").splitlines():
        if line.startswith("["):
            values = keys.setdefault(line[1:-1].removeprefix("HKEY_LOCAL_MACHINE\\").upper(), {})
        elif line.endswith("\\"):
            entry += line[:-1].strip()
        elif line and keys:
            name, _, value = (entry + line.strip()).partition("=")
            values[name] = value
            entry = ""
    file.unlink()
    return keys


def text_of(keys, key, name):
    value = keys.get(key.upper(), {}).get(f'"{name}"', "")
    return value[1:-1].replace("\\\\", "\\") if value.startswith('"') else value


def difference(before, after):
    """One line for each key or value that is new or another, and for each that is gone."""
    lines = []
    for key in sorted(before.keys() | after.keys()):
        old, new = before.get(key), after.get(key)
        if old is None or new is None:
            lines.append(f"{'+' if old is None else '-'} {key}")
        for name in sorted((old or {}).keys() | (new or {}).keys()):
            if (old or {}).get(name) != (new or {}).get(name):
                lines.append(f"{'+' if name in (new or {}) else '-'} {key} {name} = {(new or old)[name]}")
    return lines


def same(before, after, text):
    """Except Windows Installer's own records."""
    lines = [line for line in difference(before, after) if not INSTALLERS_OWN.match(line)]
    if lines:
        fail(f"{text}:\n" + "\n".join(lines))
    say(text)


def leaves_nothing(before):
    check(not unix(PROGRAMS).exists(), "the folder is gone")
    after = registry()
    # Windows Installer also removes the empty keys above its own that were there before.
    same({key: values for key, values in before.items() if values or key in after}, after, "the registry is as before")


def run_in_fresh_prefix(scenario, *folders):
    """Whether it failed. The prefix of a scenario that failed stays, to be looked at."""
    slot = f"package-{scenario}"
    with_suffix = "-".join(filter(None, (slot, os.environ.get("KESTA_WITH"))))
    prefix = PROJECT / ".tools" / "slots" / with_suffix
    shutil.rmtree(prefix, ignore_errors=True)
    command = [PROJECT / "tools" / "slot", os.path.abspath(sys.argv[0]), "--one", scenario, *folders]
    done = subprocess.run(command, env=os.environ | {"KESTA_SLOT": slot}, check=False)
    subprocess.run(["wineserver", "-k"], env=os.environ | {"WINEPREFIX": str(prefix)}, check=False)
    if done.returncode == 0:
        shutil.rmtree(prefix, ignore_errors=True)
    return done.returncode != 0


def run_scenarios(scenarios):
    named = {scenario.__name__: scenario for scenario in scenarios}
    words = sys.argv[1:]
    if words == ["--list"]:
        print(";".join(named), end="")
        return
    if not words:
        sys.exit(__doc__)
    if "KESTA_INSIDE" not in os.environ:
        sys.exit("run it inside the tool environment (./toolbox)")
    if words[0] == "--one":
        _, scenario, *folders = words
        named[scenario](*(Path(name) if name else None for name in folders))
        return
    folder = Path(words.pop(0)).resolve()
    newer = Path(words.pop(0)).resolve() if words and Path(words[0]).is_dir() else None
    chosen = [name for name in named if not words or any(word in name for word in words)]
    failed = []
    for name in chosen:
        print(name.replace("_", " "), flush=True)
        if run_in_fresh_prefix(name, str(folder), str(newer or "")):
            failed.append(name)
    print(f"{len(chosen) - len(failed)} of {len(chosen)} scenarios passed{', failed: ' if failed else ''}{', '.join(failed)}")
    sys.exit(1 if failed or not chosen else 0)
