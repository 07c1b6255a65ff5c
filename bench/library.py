"""The benchmark library: Debian's source package, fetched by apt and kept in .tools."""

import hashlib
import subprocess
import sys
import tarfile
import tempfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[1]
SUITE = "trixie"
PACKAGE = "benchmark"
VERSION = "1.9.1"
SHA256 = "32131c08ee31eeff2c8968d7e874f3cb648034377dfc32a4c377fa8796d84981"


def archive():
    """The Debian archive that the tool environment was made from."""
    for word in Path("/etc/apt/sources.list").read_text().split():
        if word.rstrip("/").endswith("/debian"):
            return word
    sys.exit("bench: apt knows no Debian archive")


def fetch(folder):
    """The library's source archive, in a folder with its own package lists: the machine's have no source packages."""
    (folder / "sources.list").write_text(f"deb-src {archive()} {SUITE} main\n")
    for part in ("lists/partial", "cache/archives/partial"):
        (folder / part).mkdir(parents=True)
    settings = {
        "Dir::Etc::sourcelist": folder / "sources.list",
        "Dir::Etc::sourceparts": "/dev/null",
        "Dir::State::lists": folder / "lists",
        "Dir::Cache": folder / "cache",
        "APT::Sandbox::User": "",
    }
    options = [word for name, value in settings.items() for word in ("-o", f"{name}={value}")]
    for command in (["update"], ["source", "--download-only", PACKAGE]):
        ended = subprocess.run(
            ["apt-get", *options, *command], cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True
        )
        if ended.returncode:
            sys.exit(f"bench: the benchmark library cannot be fetched: {ended.stdout}{ended.stderr}")
    return folder / f"{PACKAGE}_{VERSION}.orig.tar.gz"


def source():
    """The folder of the library's source; if it exists, it is complete."""
    place = PROJECT / ".tools" / f"{PACKAGE}-{VERSION}"
    if place.exists():
        return place
    with tempfile.TemporaryDirectory(dir=PROJECT / ".tools") as name:
        tar = fetch(Path(name))
        if not tar.exists() or hashlib.sha256(tar.read_bytes()).hexdigest() != SHA256:
            sys.exit(f"bench: this is not the benchmark library {VERSION} that is expected")
        with tarfile.open(tar) as content:
            content.extractall(name, filter="data")
        (Path(name) / place.name).rename(place)
    return place
