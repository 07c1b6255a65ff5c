"""Sources of libraries: Debian's source packages, fetched by apt and kept in .tools."""

import dataclasses
import hashlib
import re
import subprocess
import sys
import tarfile
import tempfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[1]
SUITE = "trixie"


@dataclasses.dataclass(frozen=True)
class Library:
    package: str
    version: str
    archive: str  # the file with the source
    sha256: str
    part: str = ""  # of the source, the only one that is kept


BENCHMARK = Library(
    "benchmark", "1.9.1", "benchmark_1.9.1.orig.tar.gz", "32131c08ee31eeff2c8968d7e874f3cb648034377dfc32a4c377fa8796d84981"
)


def debian():
    """The machine's own Debian archive, also when its package lists have been removed."""
    listed = subprocess.run(["apt-get", "update", "--print-uris"], check=True, capture_output=True, text=True).stdout
    found = re.search(r"^'([^']*/debian)/+dists/", listed, re.MULTILINE)
    if found is None:
        sys.exit("apt knows no Debian archive")
    return found.group(1)


def fetch(library, folder):
    """The library's source archive, in a folder with its own package lists: the machine's have no source packages."""
    (folder / "sources.list").write_text(f"deb-src {debian()} {SUITE} main\n")
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
    for command in (["update"], ["source", "--download-only", "--tar-only", library.package]):
        ended = subprocess.run(
            ["apt-get", *options, *command], cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True
        )
        if ended.returncode:
            sys.exit(f"{library.package} cannot be fetched: {ended.stdout}{ended.stderr}")
    return folder / library.archive


def source(library=BENCHMARK):
    """The folder of the library's source, or of its part; if it exists, it is complete."""
    place = PROJECT / ".tools" / f"{library.package}-{library.version}"
    if not place.exists():
        with tempfile.TemporaryDirectory(dir=PROJECT / ".tools") as name:
            archive = fetch(library, Path(name))
            if not archive.exists() or hashlib.sha256(archive.read_bytes()).hexdigest() != library.sha256:
                sys.exit(f"this is not the {library.package} {library.version} that is expected")
            content = Path(name) / "content"
            with tarfile.open(archive) as files:
                for file in files:
                    if f"/{library.part}" in file.name:
                        files.extract(file, content, filter="data")
            next(content.iterdir()).rename(place)
    return place / library.part
