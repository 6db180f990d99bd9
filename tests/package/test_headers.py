#!/usr/bin/env python3
"""Compiles the headers of the install tree, with the warnings that a program may use."""

import concurrent.futures
import shutil
import unittest

import packagetest
from packagetest import MODULE_SUFFIX, QT, SOURCE, TREES, run

INCLUDE = TREES["shared"] / f"include/jwdevice{MODULE_SUFFIX}"
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Wnon-virtual-dtor", "-Werror"]

# Headers that only the libraries themselves use.
PRIVATE = {"nmea/number.h"} | {f"watch/{name}.h" for name in (
    "boardids", "freednotifier", "pollsource", "portguard", "portsource", "resumenotifier", "udevsource",
    "watchedport")}


def headers():
    return sorted(str(path.relative_to(INCLUDE)) for path in INCLUDE.rglob("*.h"))


def compile_headers(compiler, *names, definitions=()):
    """Compiles one file that includes each of these headers twice."""
    system = run("pkg-config", "--cflags", f"Qt{QT}Core", f"Qt{QT}SerialPort").replace("-I", "-isystem").split()
    text = "".join(f"#include <{name}>\n" * 2 for name in names)
    run("sh", "-c", 'printf %s "$0" | exec "$@"', text, compiler, "-std=c++17", "-fPIC", "-fsyntax-only", *WARNINGS,
        *definitions, *system, f"-I{INCLUDE}", "-x", "c++", "-")


class Headers(unittest.TestCase):
    def test_each_compiles_alone(self):
        self.assertGreater(len(headers()), 15)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            list(pool.map(lambda header: compile_headers("g++", header), headers()))

    def test_clang_gives_no_warning(self):
        self.assertTrue(shutil.which("clang++"), packagetest.missing("clang++", "clang"))
        compile_headers("clang++", *headers())

    def test_no_keywords_of_qt_are_needed(self):
        compile_headers("g++", *headers(), definitions=["-DQT_NO_KEYWORDS"])

    def test_all_headers_of_the_libraries_are_installed(self):
        of_sources = {str(path.relative_to(SOURCE)) for folder in ("device", "nmea", "logger", "watch")
                      for path in (SOURCE / folder).glob("*.h")}
        self.assertEqual(sorted(of_sources - PRIVATE - set(headers())), [])
        self.assertEqual(sorted(PRIVATE & set(headers())), [])


if __name__ == "__main__":
    packagetest.main()
