#!/usr/bin/env python3
"""Makes the install trees (folders with the installed files) for the other tests: work/shared from the build folder,
work/static from a project that adds JwDevice to its own build and installs it. Installs each tree in another folder and
then moves the tree. So the tests fail if an installed file depends on the folder in which it was installed."""

import shutil

from packagetest import BUILD, TREES, add_subdirectory, fresh, run


def install(build, kind):
    elsewhere = fresh("elsewhere")
    run("cmake", "--install", build, "--prefix", elsewhere)
    shutil.rmtree(TREES[kind], ignore_errors=True)
    elsewhere.rename(TREES[kind])


install(BUILD, "shared")
install(add_subdirectory("static"), "static")
