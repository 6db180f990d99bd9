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

QT = re.search(r"^JWDEVICE_QT:\w+=(\d)$", (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE)[1]
# Name for find_package, end of the names of library files, end of the names of pkg-config modules.
PACKAGE, FILE_SUFFIX, MODULE_SUFFIX = {"5": ("JwDevice", "", ""), "6": ("JwDeviceQt6", "Qt6", "-qt6")}[QT]
RUNTIME, WATCH, DEVELOPMENT = {"5": ("libjwdevice0.1", "libjwdevice-watch0.1", "libjwdevice-dev"),
                               "6": ("libjwdevice-qt6-0.1", "libjwdevice-watch-qt6-0.1", "libjwdevice-qt6-dev")}[QT]
# The build for Qt 6 installs no programs.
JWSIM = {"5": TREES["shared"] / "bin/jwsim", "6": BUILD / "simulator/jwsim/jwsim"}[QT]

# Options of two projects that add JwDevice to their own build. "shared" has only the libraries, and does not install
# them. "static" is the opposite: it has the simulator, installs everything, is built with many warnings and in few
# large pieces, uses the name Logger itself, and adds JwDevice before Qt.
SUBPROJECTS = {"shared": ["-DBUILD_SHARED_LIBS=ON"],
               "static": ["-DBUILD_SHARED_LIBS=OFF", "-DJWDEVICE_BUILD_SIMULATOR=ON", "-DJWDEVICE_INSTALL=ON",
                          "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wnon-virtual-dtor -Werror -DJWLOGGER_NO_ALIAS",
                          "-DCMAKE_UNITY_BUILD=ON", "-DJWDEVICE_BEFORE_QT=ON"]}


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


def add_subdirectory(kind):
    """Builds one of SUBPROJECTS with add_subdirectory in a new folder, and returns this folder."""
    return build_subproject(fresh(f"subproject-{kind}"), kind, "add_subdirectory")


def fetch_content(kind):
    """Builds one of SUBPROJECTS with FetchContent and returns its folder. The folder is that of add_subdirectory,
    because CMake then need not compile the same sources again."""
    return build_subproject(WORK / f"subproject-{kind}", kind, "FetchContent")


def build_subproject(folder, kind, by):
    run("cmake", "-G", "Ninja", "-S", CONSUMER, "-B", folder, "-UJWDEVICE_QT", f"-DQT={QT}", f"-DBY={by}",
        f"-DJWDEVICE_SOURCE={SOURCE}", *SUBPROJECTS[kind])
    run("cmake", "--build", folder, "-j2")
    return folder


def library_folder(tree):
    """Returns the folder of an install tree that contains the libraries."""
    return next(tree.glob("lib/**/pkgconfig")).parent


def missing(program, package):
    """Returns the message for a missing program."""
    return f"{program} is missing: install the package {package}, or run scripts/test"


def main():
    """Runs all tests of the file that calls this function, and prints a line for each test."""
    unittest.main(argv=sys.argv, verbosity=2)
