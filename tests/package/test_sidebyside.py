#!/usr/bin/env python3
"""Installs our Debian packages for Qt 5 and for Qt 6 in one bare root (a minimal Debian). Runs the steps of the page
docs/getting-started.md for each Qt, so that each program finds a simulated board.
Uses the packages for Qt 5, which the tests of the preset release make, and their bare root."""

import pathlib
import re
import shutil
import subprocess
import sys
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "docs"))

import packagetest  # noqa: E402
import test_gettingstarted as page  # noqa: E402
from bareroot import BareRoot, leave_out_if_refused  # noqa: E402
from packagetest import BUILD, DEBS, SOURCE, fresh  # noqa: E402

BUILD5 = SOURCE / "build/release"
DEBS5 = BUILD5 / DEBS.relative_to(BUILD)


def project(*packages):
    """Returns commands that configure a project that uses these packages, which must fail."""
    lines = "".join(f"find_package({package} REQUIRED)\n" for package in packages)
    return f"""
        echo Project with {" ".join(packages)}
        mkdir project
        printf 'cmake_minimum_required(VERSION 3.22)\\nproject(both LANGUAGES CXX)\\n%s' '{lines}' >project/CMakeLists.txt
        ! cmake -S project -B project/build
        rm -r project
        """


def script():
    """Returns a script with the steps of the page, for Qt 5 and then for Qt 6, and with projects that use both."""
    for5 = page.script() + "ldd build/finder\ncd ..\nrm -r finder\n"
    for6 = for5.replace("find_package(JwDevice ", "find_package(JwDeviceQt6 ") # as the page says
    return for5 + "echo Program for Qt 6\n" + for6 + "".join(project(*pair) for pair in (
        ("JwDevice", "JwDeviceQt6"), ("Qt6 COMPONENTS Core", "JwDevice"), ("Qt5 COMPONENTS Core", "JwDeviceQt6")))


class SideBySide(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        packages = fresh("packages-for-both")
        for package in [*DEBS5.glob("*.deb"), *DEBS.glob("*.deb")]:
            shutil.copy(package, packages)
        result = BareRoot(BUILD5 / "bareroot").run(script(), [(packages, "/packages")],
                                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            raise AssertionError(result.stdout)
        parts = re.split("Program for Qt 6\n|Project with .*\n", result.stdout)
        cls.for5, cls.for6, cls.both, cls.with6, cls.with5 = (" ".join(part.split()) for part in parts)

    def test_program_for_qt5_finds_a_board_with_the_library_for_qt5(self):
        self.assertIn('BoardA is on "ttyACM0"', self.for5)
        self.assertIn("libJwDevice.so.0.1", self.for5)
        self.assertIn("libQt5Core", self.for5)

    def test_program_for_qt6_finds_a_board_with_the_library_for_qt6(self):
        self.assertIn('BoardA is on "ttyACM0"', self.for6)
        self.assertIn("libJwDeviceQt6.so.0.1", self.for6)
        self.assertNotIn("libQt5", self.for6)

    def test_one_project_cannot_use_both(self):
        self.assertIn("JwDeviceQt6 is for Qt 6, but this project already uses JwDevice for Qt 5.", self.both)

    def test_project_for_the_other_qt_is_told_which_package_it_needs(self):
        self.assertIn("JwDevice is for Qt 5, but this project uses Qt 6. Use find_package(JwDeviceQt6).", self.with6)
        self.assertIn("JwDeviceQt6 is for Qt 6, but this project uses Qt 5. Use find_package(JwDevice).", self.with5)


if __name__ == "__main__":
    leave_out_if_refused()
    if not list(DEBS5.glob("*.deb")):
        print("Left out: test_sidebyside: the preset release has made no packages for Qt 5")
        sys.exit(77)
    packagetest.main()
