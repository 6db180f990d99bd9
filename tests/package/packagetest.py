"""Folders and functions that the tests of the installed files share."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("JWDEVICE_BUILD_DIR", SOURCE / "build/release"))
WORK = BUILD / "tests/package/work"
TREES = {"shared": WORK / "shared", "static": WORK / "static"}
DEBS = WORK / "debs"
CONSUMER = SOURCE / "tests/package/consumer"
JWSIM = TREES["shared"] / "bin/jwsim"

QT = re.search(r"^JWDEVICE_QT:\w+=(\d)$", (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE)[1]
# Name for find_package, end of the names of library files, end of the names of pkg-config modules.
PACKAGE, FILE_SUFFIX, MODULE_SUFFIX = {"5": ("JwDevice", "", ""), "6": ("JwDeviceQt6", "Qt6", "-qt6")}[QT]
RUNTIME, WATCH, DEVELOPMENT = {"5": ("libjwdevice0.1", "libjwdevice-watch0.1", "libjwdevice-dev"),
                               "6": ("libjwdevice-qt6-0.1", "libjwdevice-watch-qt6-0.1", "libjwdevice-qt6-dev")}[QT]


def run(*command, ok=True, **more):
    """Runs a program without a shell and returns its output, including errors. If the program fails (or, with ok=False,
    does not fail), raises an error with that output."""
    command = [str(part) for part in command]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                            stdin=subprocess.DEVNULL, **more)
    if (result.returncode == 0) != ok:
        raise AssertionError(f"{' '.join(command)}\nended with status {result.returncode}:\n{result.stdout}")
    return result.stdout


def fresh(folder):
    """Makes a new, empty folder of this name in the work folder, and returns its path."""
    path = WORK / folder
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    return path


def library_folder(tree):
    """Returns the folder of an install tree that contains the libraries."""
    return next(tree.glob("lib/**/pkgconfig")).parent


def missing(program, package):
    """Returns the message for a missing program."""
    return f"{program} is missing: install the package {package}, or run scripts/test"


def main():
    """Runs all tests of the file that calls this function, and prints a line for each test."""
    unittest.main(argv=sys.argv, verbosity=2)
