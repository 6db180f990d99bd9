#!/usr/bin/env python3
"""Tests that programs find their libraries if the folders of libraries or programs are absolute paths."""

import unittest

import packagetest
from packagetest import FILE_SUFFIX, QT, SOURCE, fresh, run

NOT_NEEDED = ["TESTS", "SIMULATOR", "MONITOR", "BRIDGE", "EXAMPLES"]


class Absolute(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.build = fresh("absolute-build")

    def jwprobe(self, libraries, programs):
        """Starts jwprobe from an installation with these folders, in which "{}" stands for an empty folder."""
        place = fresh("absolute")
        run("cmake", "-G", "Ninja", "-S", SOURCE, "-B", self.build, f"-DJWDEVICE_QT={QT}",
            "-DJWDEVICE_INSTALL_PROGRAMS=ON", "-DCMAKE_UNITY_BUILD=ON",
            f"-DCMAKE_INSTALL_PREFIX={place / 'prefix'}", f"-DCMAKE_INSTALL_LIBDIR={libraries.format(place)}",
            f"-DCMAKE_INSTALL_BINDIR={programs.format(place)}",
            *[f"-DJWDEVICE_BUILD_{part}=OFF" for part in NOT_NEEDED])
        run("cmake", "--build", self.build, "-j2")
        run("cmake", "--install", self.build)
        program = place / "prefix" / programs.format(place) / "jwprobe"
        self.assertRegex(run(program, "--version", env={}), r"^jwprobe [0-9.]+\n$")
        return run("ldd", program, env={})

    def test_libraries(self):
        libraries = self.jwprobe("{}/elsewhere/lib", "bin")
        self.assertRegex(libraries, rf"libJwDevice{FILE_SUFFIX}\.so.* => \S+/absolute/elsewhere/lib/")
        self.assertRegex(libraries, rf"libLogger{FILE_SUFFIX}\.so.* => \S+/absolute/elsewhere/lib/")

    def test_programs(self):
        libraries = self.jwprobe("lib/deeper", "{}/elsewhere/bin")
        self.assertRegex(libraries, rf"libJwDevice{FILE_SUFFIX}\.so.* => \S+/absolute/prefix/lib/deeper/")

    def test_both(self):
        libraries = self.jwprobe("{}/one/lib", "{}/another/bin")
        self.assertRegex(libraries, rf"libJwDevice{FILE_SUFFIX}\.so.* => \S+/absolute/one/lib/")


if __name__ == "__main__":
    packagetest.main()
