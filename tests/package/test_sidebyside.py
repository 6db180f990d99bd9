#!/usr/bin/env python3
"""Installs our Debian packages for Qt 5 and for Qt 6 in one bare root (a minimal Debian), and builds a program with each.
Needs the packages for Qt 5 and the bare root, which ctest --preset release --label-regex package makes."""

import subprocess
import unittest

import packagetest
from bareroot import BareRoot, leave_out_if_refused
from packagetest import BUILD, CONSUMER, DEBS, SOURCE

BUILD5 = SOURCE / "build/release"
DEBS5 = BUILD5 / DEBS.relative_to(BUILD)

# jwsim is in a package for Qt 5.
SCRIPT = """
apt-get install -q -y --no-install-recommends g++ cmake make /packages5/*.deb /packages6/*.deb
for qt in 5 6; do
    cmake -S /consumer -B build$qt -DBY=find_package -DQT=$qt
    cmake --build build$qt
    echo Program for Qt $qt
    jwsim --board BoardA -- build$qt/consumer
    ldd build$qt/consumer
done
"""


class SideBySide(unittest.TestCase):
    def test_a_program_for_each_qt_finds_a_board_with_its_own_library(self):
        self.assertTrue(list(DEBS5.glob("*.deb")),
                        "no packages for Qt 5: run ctest --preset release --tests-regex package_test_debs")
        result = BareRoot(BUILD5 / "bareroot").run(
            SCRIPT, [(DEBS5, "/packages5"), (DEBS, "/packages6"), (CONSUMER, "/consumer")],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(result.returncode, 0, result.stdout)
        for5, for6 = result.stdout.split("Program for Qt 5")[1].split("Program for Qt 6")
        for output in (for5, for6):
            self.assertIn("found 1 on ttyACM0", output)
        self.assertIn("libJwDevice.so.0.1", for5)
        self.assertNotIn("Qt6", for5)
        self.assertIn("libJwDeviceQt6.so.0.1", for6)
        self.assertNotIn("Qt5", for6)


if __name__ == "__main__":
    leave_out_if_refused()
    packagetest.main()
