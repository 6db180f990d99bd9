#!/usr/bin/env python3
"""Installs our Debian packages for Qt 5 and for Qt 6 in one bare root (a minimal Debian). Builds the program on the
page docs/getting-started.md with each, and lets the program find a simulated board.
Uses the packages for Qt 5, which the tests of the preset release make, and their bare root."""

import re
import subprocess
import sys
import unittest

import packagetest
from bareroot import BareRoot, leave_out_if_refused
from packagetest import BUILD, DEBS, SOURCE, fresh

BUILD5 = SOURCE / "build/release"
DEBS5 = BUILD5 / DEBS.relative_to(BUILD)
PAGE = SOURCE / "docs/getting-started.md"
FILE = re.compile(r"<!-- file (\S+) -->\n```\w+\n(.*?)^```$", re.S | re.M)

# jwsim is in a package for Qt 5. The sed command does what the page says about Qt 6.
SCRIPT = r"""
apt-get install -q -y --no-install-recommends g++ cmake make /packages5/*.deb /packages6/*.deb
for qt in 5 6; do
    mkdir finder$qt
    cd finder$qt
    cp /page/main.cpp /page/CMakeLists.txt .
    [ $qt = 5 ] || sed -i 's/find_package(JwDevice /find_package(JwDeviceQt6 /' CMakeLists.txt
    cmake -B build
    cmake --build build
    echo Program for Qt $qt
    jwsim --board BoardA -- build/finder
    ldd build/finder
    cd ..
done
echo Project for both
mkdir both
echo 'cmake_minimum_required(VERSION 3.22)
project(both LANGUAGES CXX)
find_package(JwDevice REQUIRED)
find_package(JwDeviceQt6 REQUIRED)' >both/CMakeLists.txt
! cmake -S both -B both/build
"""


class SideBySide(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        page = fresh("page")
        for name, text in FILE.findall(PAGE.read_text()):
            (page / name).write_text(text)
        result = BareRoot(BUILD5 / "bareroot").run(
            SCRIPT, [(DEBS5, "/packages5"), (DEBS, "/packages6"), (page, "/page")],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            raise AssertionError(result.stdout)
        _, cls.for5, cls.for6, cls.both = re.split("Program for Qt 5\n|Program for Qt 6\n|Project for both\n",
                                                   result.stdout)

    def test_program_for_qt5_finds_a_board_with_the_library_for_qt5(self):
        self.assertIn('BoardA is on "ttyACM0"', self.for5)
        self.assertIn("libJwDevice.so.0.1", self.for5)
        self.assertIn("libQt5Core", self.for5)

    def test_program_for_qt6_finds_a_board_with_the_library_for_qt6(self):
        self.assertIn('BoardA is on "ttyACM0"', self.for6)
        self.assertIn("libJwDeviceQt6.so.0.1", self.for6)
        self.assertNotIn("Qt5", self.for6)

    def test_one_project_cannot_use_both(self):
        self.assertIn("JwDeviceQt6 is for Qt 6, but this project already uses JwDevice for Qt 5.",
                      " ".join(self.both.split()))


if __name__ == "__main__":
    leave_out_if_refused()
    if not list(DEBS5.glob("*.deb")):
        print("Left out: test_sidebyside: the preset release has made no packages for Qt 5")
        sys.exit(77)
    packagetest.main()
