"""Folders and functions that the tests of the installed files share."""

import os
import pathlib
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
