#!/usr/bin/env python3
"""Builds one program in every way in which a project can use JwDevice, and runs this program on a simulated board."""

import os
import re
import shutil
import unittest

import packagetest
from packagetest import (CONSUMER, FILE_SUFFIX, JWSIM, MODULE_SUFFIX, PACKAGE, QT, TREES, WORK, add_subdirectory,
                         fetch_content, fresh, library_folder, run)

LIBRARIES = {f"lib{name}{FILE_SUFFIX}.so" for name in ("JwDevice", "JwDeviceWatch", "Logger")}


class Consumer(unittest.TestCase):
    def configure(self, name, *options, ok=True):
        self.folder = fresh(f"consumer-{name}")
        return run("cmake", "-G", "Ninja", "-S", CONSUMER, "-B", self.folder, f"-DQT={QT}", *options, ok=ok)

    def finds_a_board(self, program, **more):
        output = run(JWSIM, "--board", "BoardA", "--", program, **more)
        self.assertRegex(output, r"found 1 on ttyACM\d+")
        self.assertIn("$PJWVER*0c", output, "the log of the library does not reach the program's sink")

    def simulates_a_board(self, program, **more):
        self.assertEqual(run(program, **more), "simulated ttyPKGC0\n")


class FindPackage(Consumer):
    def find_package(self, name, tree, *components, ok=True):
        return self.configure(name, "-DBY=find_package", f"-DCMAKE_PREFIX_PATH={tree}",
                              f"-DCOMPONENTS={';'.join(components)}", ok=ok)

    def finds_and_simulates(self, kind):
        self.find_package(kind, TREES[kind], "JwDevice", "Logger", "Watch", "Simulator")
        run("cmake", "--build", self.folder, "-j2")
        self.finds_a_board(self.folder / "consumer")
        self.finds_a_board(self.folder / "namesakes")
        self.finds_a_board(self.folder / "watching")
        self.simulates_a_board(self.folder / "simulated")

    def test_shared(self):
        self.finds_and_simulates("shared")

    def test_static(self):
        self.finds_and_simulates("static")

    def test_without_components_the_two_libraries_come(self):
        self.find_package("no-components", TREES["shared"])
        run("cmake", "--build", self.folder, "-j2", "--target", "consumer")
        targets = run("cmake", "--build", self.folder, "--target", "help")
        self.assertNotIn("simulated", targets)

    def test_unknown_component_is_refused_by_name(self):
        output = " ".join(self.find_package("unknown", TREES["shared"], "Radio", ok=False).split())
        self.assertIn("JwDevice has no component Radio. It has JwDevice, Logger, Watch and Simulator.", output)

    def test_component_that_was_not_installed_names_the_option_that_builds_it(self):
        tree = fresh("no-simulator") / "tree"
        shutil.copytree(TREES["shared"], tree, symlinks=True)
        for file in tree.rglob(f"{PACKAGE}-Simulator*.cmake"):
            file.unlink()
        output = " ".join(self.find_package("not-installed", tree, "Simulator", ok=False).split())
        self.assertIn("Build and install it again with -DJWDEVICE_BUILD_SIMULATOR=ON", output)

    def test_without_qt_it_says_what_to_install_and_names_the_package_for_the_other_qt(self):
        output = self.configure("no-qt", "-DBY=find_package", f"-DCMAKE_PREFIX_PATH={TREES['shared']}",
                                "-DJWDEVICE_BEFORE_QT=ON", f"-DCMAKE_DISABLE_FIND_PACKAGE_Qt{QT}=ON", ok=False)
        needed, package, other, other_qt = {
            "5": ("Qt 5.15", "libqt5serialport5-dev", "JwDeviceQt6", "Qt 6"),
            "6": ("Qt 6.2", "qt6-serialport-dev", "JwDevice", "Qt 5")}[QT]
        output = " ".join(output.split())
        self.assertIn(f"{PACKAGE} needs {needed} or newer (Core;SerialPort), but CMake does not find it.", output)
        self.assertIn(package, output)
        self.assertIn(f"or use find_package({other}), which is for {other_qt}.", output)

    def test_files_of_the_two_versions_of_qt_have_different_names(self):
        files = [str(file.relative_to(TREES["shared"])) for file in TREES["shared"].rglob("*") if file.is_file()]
        self.assertGreater(len(files), 20)
        self.assertEqual([file for file in files if ("qt6" in file.lower()) != (QT == "6")], [])

    def test_simulator_without_umockdev_says_what_to_install(self):
        environment = {**os.environ, "PKG_CONFIG_LIBDIR": str(fresh("no-modules"))}
        folder = fresh("consumer-no-umockdev")
        output = run("cmake", "-G", "Ninja", "-S", CONSUMER, "-B", folder, f"-DQT={QT}", "-DBY=find_package",
                     f"-DCMAKE_PREFIX_PATH={TREES['shared']}", "-DCOMPONENTS=Simulator", ok=False, env=environment)
        self.assertIn("libumockdev-dev", output)

    def test_static_watch_without_udev_says_what_to_install(self):
        environment = {**os.environ, "PKG_CONFIG_LIBDIR": str(fresh("no-modules"))}
        folder = fresh("consumer-no-udev")
        output = run("cmake", "-G", "Ninja", "-S", CONSUMER, "-B", folder, f"-DQT={QT}", "-DBY=find_package",
                     f"-DCMAKE_PREFIX_PATH={TREES['static']}", "-DCOMPONENTS=Watch", ok=False, env=environment)
        self.assertIn("libudev-dev", output)

    def test_another_minor_version_does_not_fit(self):
        version = library_folder(TREES["shared"]) / f"cmake/{PACKAGE}/{PACKAGE}ConfigVersion.cmake"
        script = fresh("version") / "check.cmake"
        for wanted, fits in (("0.1", True), ("0.2", False), ("1.0", False)):
            script.write_text(f"set(PACKAGE_FIND_VERSION {wanted})\nset(PACKAGE_FIND_VERSION_MAJOR {wanted[0]})\n"
                              f"set(PACKAGE_FIND_VERSION_MINOR {wanted[2]})\ninclude({version})\n"
                              "if(PACKAGE_VERSION_COMPATIBLE)\nmessage(fits)\nendif()\n")
            self.assertEqual("fits" in run("cmake", "-P", script), fits, wanted)


class Names(unittest.TestCase):
    OURS = re.compile(r"(.+ (for|to) )?(JwDevice|Nmea|JwLogger|JwSimulator|CuteMessageLogger)::|loggerInstance\(\)$")

    def test_libraries_have_no_other_names_at_global_scope(self):
        for tree in TREES.values():
            libraries = list(library_folder(tree).glob("*.a")) + list(library_folder(tree).glob("*.so"))
            self.assertGreaterEqual(len(libraries), 3)
            for library in libraries:
                dynamic = ["--dynamic"] if library.suffix == ".so" else []
                names = re.findall(r"^[0-9a-f]+ [TDBR] (.*)$",
                                   run("nm", *dynamic, "--defined-only", "--demangle", library), re.MULTILINE)
                self.assertTrue(names)
                self.assertEqual([name for name in names if not self.OURS.match(name)], [], library)


class PkgConfig(Consumer):
    def flags(self, tree, *what):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(library_folder(tree) / "pkgconfig")}
        return run("pkg-config", *what, env=environment).split()

    def compile(self, kind, source, *modules, others=()):
        program = fresh(f"pkg-config-{kind}-{source}") / source
        tree = TREES[kind]
        run("g++", "-std=c++17", "-fPIC", CONSUMER / f"{source}.cpp", "-o", program,
            *self.flags(tree, "--cflags", "--libs", *[module + MODULE_SUFFIX for module in modules], *others),
            f"-Wl,-rpath,{library_folder(tree)}")
        return program

    def test_shared(self):
        self.finds_a_board(self.compile("shared", "main", "jwdevice", "jwdevice-logger"))

    def test_static(self):
        self.finds_a_board(self.compile("static", "main", "jwdevice", "jwdevice-logger"))

    def test_watch(self):
        for kind in ("shared", "static"):
            self.finds_a_board(self.compile(kind, "watching", "jwdevice-watch", "jwdevice-logger"))

    def test_simulator(self):
        self.simulates_a_board(
            self.compile("static", "simulated", "jwdevice-simulator", others=[f"Qt{QT}SerialPort"]))

    def test_only_what_a_program_links_is_asked_for(self):
        self.assertEqual(set(self.flags(TREES["shared"], "--print-requires", f"jwdevice{MODULE_SUFFIX}")),
                         {f"Qt{QT}Core", f"Qt{QT}SerialPort"})
        flags = self.flags(TREES["shared"], "--libs", f"jwdevice{MODULE_SUFFIX}")
        self.assertEqual({flag for flag in flags if flag.startswith("-l")},
                         {f"-lJwDevice{FILE_SUFFIX}", f"-lQt{QT}SerialPort", f"-lQt{QT}Core"})


class SubProject(Consumer):
    def works(self, folder, shared):
        libraries = {path.name for path in folder.rglob("lib*.*") if re.search(r"\.(a|so)$", path.name)}
        archives = {name[:-2] + "a" for name in LIBRARIES} | {f"libJwDeviceSimulator{FILE_SUFFIX}.a"}
        self.assertEqual(libraries, LIBRARIES if shared else archives)
        self.finds_a_board(folder / "consumer")
        self.finds_a_board(folder / "namesakes")
        self.finds_a_board(folder / "watching")
        if not shared:
            self.simulates_a_board(folder / "simulated")

    def test_shared(self):
        folder = add_subdirectory("shared")
        self.works(folder, shared=True)
        tree = fresh("host-tree")
        run("cmake", "--install", folder, "--prefix", tree)
        self.assertEqual([str(path.relative_to(tree)) for path in tree.rglob("*") if path.is_file()],
                         ["bin/consumer"])
        self.works(fetch_content("shared"), shared=True)

    def test_static(self):
        self.works(WORK / "subproject-static", shared=False)  # install_trees built it with add_subdirectory
        self.works(fetch_content("static"), shared=False)


if __name__ == "__main__":
    packagetest.main()
