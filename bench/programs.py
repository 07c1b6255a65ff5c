"""Builds the programs of this folder, with the server as a release."""

import subprocess
import sys
from pathlib import Path

import library

PROJECT = Path(__file__).resolve().parents[1]
OUTPUT = PROJECT / "build" / "bench"
BUILD = OUTPUT / "build"


def build(target="bench"):
    OUTPUT.mkdir(parents=True, exist_ok=True)
    log = OUTPUT / "build.log"
    commands = [
        [
            "cmake",
            "-G",
            "Ninja",
            "-S",
            PROJECT,
            "-B",
            BUILD,
            "--toolchain",
            PROJECT / "cmake" / "mingw64.cmake",
            "-DCMAKE_BUILD_TYPE=Release",
            "-DKESTA_BENCH=ON",
            f"-DKESTA_BENCHMARK_SOURCE={library.source()}",
        ],
        ["cmake", "--build", BUILD, "--target", target],
    ]
    with open(log, "w") as output:
        for command in commands:
            if subprocess.run(command, stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL).returncode:
                print(log.read_text()[-4000:], file=sys.stderr)
                sys.exit("the build has failed")
