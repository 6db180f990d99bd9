#!/usr/bin/env python3
"""Installs our Debian packages for Qt 5 and for Qt 6 in one bare root (a minimal Debian). Builds with each the program on
the page docs/getting-started.md, and lets the program find a simulated board.
Needs the packages for Qt 5 and the bare root, which ctest --preset release --label-regex package makes."""

import re
import subprocess
import unittest

import packagetest
from bareroot import BareRoot, leave_out_if_refused
from packagetest import BUILD, DEBS, SOURCE, fresh

BUILD5 = SOURCE / "build/release"
DEBS5 = BUILD5 / DEBS.relative_to(BUILD)
PAGE = SOURCE / "docs/getting-started.md"
FILE = re.compile(r"<!-- file (\S+) -->\n```\w+\n(.*?)^```$", re.S | re.M)

# jwsim is in a package for Qt 5.
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
"""


class SideBySide(unittest.TestCase):
    def test_a_program_for_each_qt_finds_a_board_with_its_own_library(self):
        self.assertTrue(list(DEBS5.glob("*.deb")),
                        "no packages for Qt 5: run ctest --preset release --tests-regex package_test_debs")
        page = fresh("page")
        for name, text in FILE.findall(PAGE.read_text()):
            (page / name).write_text(text)
        result = BareRoot(BUILD5 / "bareroot").run(
            SCRIPT, [(DEBS5, "/packages5"), (DEBS, "/packages6"), (page, "/page")],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(result.returncode, 0, result.stdout)
        for5, for6 = result.stdout.split("Program for Qt 5")[1].split("Program for Qt 6")
        for output in (for5, for6):
            self.assertIn("BoardA is on \"ttyACM0\"", output)
        self.assertIn("libJwDevice.so.0.1", for5)
        self.assertNotIn("Qt6", for5)
        self.assertIn("libJwDeviceQt6.so.0.1", for6)
        self.assertNotIn("Qt5", for6)


if __name__ == "__main__":
    leave_out_if_refused()
    packagetest.main()
