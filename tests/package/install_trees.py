#!/usr/bin/env python3
"""Makes the install trees (folders with the installed files) for the other tests: work/shared from the build folder,
work/static from a build of the static libraries. Installs each tree in another folder and then moves the tree. So the
tests fail if an installed file depends on the folder in which it was installed."""

import shutil

from packagetest import BUILD, QT, SOURCE, TREES, fresh, run

NOT_NEEDED = ["TESTS", "TOOLS", "EXAMPLES"]


def install(build, kind):
    elsewhere = fresh("elsewhere")
    run("cmake", "--install", build, "--prefix", elsewhere)
    shutil.rmtree(TREES[kind], ignore_errors=True)
    elsewhere.rename(TREES[kind])


install(BUILD, "shared")
static_build = fresh("static-build")
run("cmake", "-G", "Ninja", "-S", SOURCE, "-B", static_build, f"-DJWDEVICE_QT={QT}", "-DJWDEVICE_BUILD_SHARED=OFF",
    *[f"-DJWDEVICE_BUILD_{part}=OFF" for part in NOT_NEEDED])
run("cmake", "--build", static_build, "-j2")
install(static_build, "static")
