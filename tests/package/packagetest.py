"""What the tests of the install tree share: where things are, and how to run a program with a telling failure."""

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
    """Runs a program, without a shell, and returns its output, errors included; raises with it when it fails (or, with
    ok=False, when it does not)."""
    command = [str(part) for part in command]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                            stdin=subprocess.DEVNULL, **more)
    if (result.returncode == 0) != ok:
        raise AssertionError(f"{' '.join(command)}\nended with status {result.returncode}:\n{result.stdout}")
    return result.stdout


def fresh(folder):
    """An empty folder of this name below the work folder."""
    path = WORK / folder
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    return path


def library_folder(tree):
    """The folder with the libraries in an install tree."""
    return next(tree.glob("lib/**/pkgconfig")).parent


def missing(program, package):
    """The message of a test that can't do its work."""
    return f"{program} is missing: install the package {package} (scripts/test does)"


def main():
    """Runs the tests of the calling file; 'ok' lines only for what the file's tests really ran."""
    unittest.main(argv=sys.argv, verbosity=2)
