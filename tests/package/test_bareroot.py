#!/usr/bin/env python3
"""Installs our Debian packages with their dependencies in a bare root (a minimal Debian), and uses the packages."""

import subprocess
import unittest

import packagetest
from bareroot import BareRoot, leave_out_if_refused
from packagetest import BUILD, CONSUMER, DEBS

# Installs the programs first, because they must work with only their own package and its dependencies.
SCRIPT = """
install="apt-get install -q -y --no-install-recommends"
$install /packages/libjwdevice0.1_*.deb /packages/libjwdevice-watch0.1_*.deb /packages/jwdevice-tools_*.deb
jwsim --board BoardA --board BoardB -- jwprobe --type BoardA --type BoardB

$install g++ cmake make /packages/*.deb
cmake -S /consumer -B build -DBY=find_package
cmake --build build
jwsim --board BoardA -- build/consumer
"""


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        result = BareRoot(BUILD / "bareroot").run(SCRIPT, [(DEBS, "/packages"), (CONSUMER, "/consumer")],
                                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        cls.output = result.stdout
        if result.returncode != 0:
            raise AssertionError(cls.output)

    def test_jwprobe_finds_simulated_boards(self):
        self.assertRegex(self.output, r"BoardA +ttyACM0 ")
        self.assertRegex(self.output, r"BoardB +ttyACM1 ")

    def test_program_is_built_and_finds_a_board(self):
        self.assertIn("found 1 on ttyACM0", self.output)


if __name__ == "__main__":
    leave_out_if_refused()
    packagetest.main()
