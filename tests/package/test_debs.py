#!/usr/bin/env python3
"""Makes the Debian packages from the build folder; checks their contents, and checks them with lintian."""

import shutil
import unittest

import packagetest
from packagetest import (BUILD, DEBS, DEVELOPMENT, FILE_SUFFIX, MODULE_SUFFIX, PACKAGE, QT, RUNTIME, WATCH, fresh,
                         run)

# Faults that lintian may find. The packages close no bug report of Debian. CPack always adds calls of ldconfig,
# although a trigger in the packages already calls ldconfig. lintian expects the name libjwdevicewatch0.1, made from the name of
# the library, but libjwdevice-watch0.1 is easier to read.
TOLERATED = "initial-upload-closes-no-bugs,maintscript-calls-ldconfig,package-name-doesnt-match-sonames"

PROGRAMS = {"5": ["jwdevice-tools", "jwdevice-monitor", "jwdevice-bridge"], "6": []}[QT]
PACKAGES = [RUNTIME, WATCH, DEVELOPMENT, *PROGRAMS]


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = fresh(DEBS.name)
        run("cpack", "-G", "DEB", "--config", BUILD / "CPackConfig.cmake", "-B", folder, cwd=BUILD)
        shutil.rmtree(folder / "_CPack_Packages")

    def package(self, name):
        return next(DEBS.glob(f"{name}_*.deb"))

    def files(self, name):
        tree = fresh("unpacked")
        run("dpkg-deb", "--extract", self.package(name), tree)
        return tree, {str(path.relative_to(tree)) for path in tree.rglob("*") if not path.is_dir()}

    def field(self, name, field):
        return run("dpkg-deb", "--field", self.package(name), field)

    def has(self, files, *endings):
        for ending in endings:
            self.assertTrue(any(file.endswith(ending) for file in files), ending)

    def test_lintian_finds_nothing(self):
        self.assertTrue(shutil.which("lintian"), packagetest.missing("lintian", "lintian"))
        run("lintian", "--fail-on", "error,warning", "--suppress-tags", TOLERATED, "--allow-root", *DEBS.glob("*.deb"))

    def test_runtime_has_the_libraries_alone(self):
        _, files = self.files(RUNTIME)
        folder = f"usr/lib/{run('g++', '-print-multiarch').strip()}"
        self.has(files, f"{folder}/libJwDevice{FILE_SUFFIX}.so.0.1", f"{folder}/libLogger{FILE_SUFFIX}.so.0.1",
                 "changelog.Debian.gz", "copyright")
        self.assertFalse([file for file in files if file.endswith((".h", ".so")) or "/bin/" in file])

    def test_watch_has_its_library_alone(self):
        _, files = self.files(WATCH)
        self.has(files, f"libJwDeviceWatch{FILE_SUFFIX}.so.0.1", "changelog.Debian.gz", "copyright")
        self.assertFalse([file for file in files if file.endswith((".h", ".so")) or "/bin/" in file])
        dependencies = self.field(WATCH, "Depends")
        self.assertIn(f"{RUNTIME} (= ", dependencies)
        self.assertIn("libudev1", dependencies)
        self.assertNotIn("widgets", dependencies)

    def test_development_has_headers_links_and_the_simulator(self):
        _, files = self.files(DEVELOPMENT)
        self.has(files, "device/initializer.h", f"{PACKAGE}Config.cmake", "watch/boardwatch.h", "watch/board.h",
                 *(f"lib{name}{FILE_SUFFIX}.so" for name in ("JwDevice", "Logger", "JwDeviceWatch")),
                 f"libJwDeviceSimulator{FILE_SUFFIX}.a",
                 *(f"jwdevice{name}{MODULE_SUFFIX}.pc" for name in ("", "-logger", "-watch", "-simulator")))
        self.assertFalse([file for file in files if file.endswith(("udevsource.h", "watchedport.h"))])
        self.assertIn(f"{RUNTIME} (= ", self.field(DEVELOPMENT, "Depends"))
        self.assertIn(f"{WATCH} (= ", self.field(DEVELOPMENT, "Depends"))

    def test_every_package_is_known(self):
        self.assertEqual({file.name.split("_")[0] for file in DEBS.glob("*.deb")}, set(PACKAGES))

    if QT == "5":  # the packages for Qt 6 contain no programs

        def test_tools_have_the_programs_and_what_belongs_to_them(self):
            _, files = self.files("jwdevice-tools")
            self.has(files, "bin/jwprobe", "bin/jwsim", "udev/rules.d/60-jwdevice.rules", "man1/jwprobe.1.gz",
                     "man1/jwsim.1.gz", "bash-completion/completions/jwprobe", "bash-completion/completions/jwsim")
            dependencies = self.field("jwdevice-tools", "Depends")
            self.assertIn("libjwdevice0.1 (= ", dependencies)
            self.assertRegex(dependencies, r"\bumockdev\b")
            self.assertNotIn("widgets", dependencies, "a server must not need Qt Widgets")

        def test_monitor_has_the_window_and_what_belongs_to_it(self):
            _, files = self.files("jwdevice-monitor")
            self.has(files, "bin/jwmonitor", "man1/jwmonitor.1.gz", "bash-completion/completions/jwmonitor",
                     "applications/jwmonitor.desktop", "icons/hicolor/scalable/apps/jwmonitor.svg")
            dependencies = self.field("jwdevice-monitor", "Depends")
            self.assertIn("libjwdevice0.1 (= ", dependencies)
            self.assertIn("libjwdevice-watch0.1 (= ", dependencies)
            self.assertIn("libmosquitto1", dependencies)

        def test_bridge_has_the_service_and_what_belongs_to_it(self):
            _, files = self.files("jwdevice-bridge")
            self.has(files, "bin/jwbridge", "man1/jwbridge.1.gz", "bash-completion/completions/jwbridge",
                     "systemd/system/jwbridge.service", "jwdevice-bridge/examples/jwbridge.conf")
            dependencies = self.field("jwdevice-bridge", "Depends")
            for package in ("libjwdevice0.1 (= ", "libjwdevice-watch0.1 (= ", "libmosquitto1", "libsqlite3-0"):
                self.assertIn(package, dependencies)
            self.assertNotIn("widgets", dependencies, "a server must not need Qt Widgets")

        def test_bridge_does_not_start_before_it_is_configured(self):
            tree, files = self.files("jwdevice-bridge")
            self.assertFalse([file for file in files if file.startswith("etc/") or ".wants/" in file])
            unit = (tree / "usr/lib/systemd/system/jwbridge.service").read_text()
            self.assertIn("\nConditionPathExists=/etc/jwdevice/jwbridge.conf\n", unit)
            self.assertIn("\nExecStart=/usr/bin/jwbridge --config /etc/jwdevice/jwbridge.conf ", unit)
            control = fresh("control")
            run("dpkg-deb", "--control", self.package("jwdevice-bridge"), control)
            for script in ("postinst", "prerm", "postrm"):
                text = (control / script).read_text()
                self.assertNotRegex(text, r"(systemctl|deb-systemd-\w+) (enable|start|restart|unmask)", script)

        def test_service_of_the_bridge_is_protected(self):
            tree, _ = self.files("jwdevice-bridge")
            self.assertTrue(shutil.which("systemd-analyze"), packagetest.missing("systemd-analyze", "systemd"))
            # The threshold is ten times the highest exposure that is allowed.
            run("systemd-analyze", "security", "--offline=true", "--threshold=20", "--no-pager",
                tree / "usr/lib/systemd/system/jwbridge.service")

        def test_example_configuration_is_accepted(self):
            tree, _ = self.files("jwdevice-bridge")
            example = tree / "usr/share/doc/jwdevice-bridge/examples/jwbridge.conf"
            output = run(BUILD / "tools/jwbridge/jwbridge", "--config", example, "--spool", tree / "nowhere", ok=False)
            self.assertIn("unable to open database file", output)  # the first step after the options are read

    def test_binaries_are_stripped_and_have_no_search_path(self):
        for name in [name for name in PACKAGES if name != DEVELOPMENT]:
            tree, files = self.files(name)
            binaries = [tree / file for file in files if "/bin/" in file or ".so." in file]
            self.assertTrue(binaries)
            for binary in binaries:
                if not binary.is_symlink():
                    self.assertNotIn("RUNPATH", run("readelf", "--dynamic", binary))
                    self.assertNotIn(".debug_info", run("readelf", "--sections", "--wide", binary))


if __name__ == "__main__":
    packagetest.main()
