#!/usr/bin/env python3
"""Measures many bridges on one broker of this machine.

Usage: fleet.py TEST-FOLDER [MACHINES [SECONDS]]      (default: 200 machines, 20 seconds for each rate)
TEST-FOLDER is the folder of the test programs, for example build/release/tests. Each machine has 16 boards. The machines
are parts of jwbridge in one process, without serial ports. Prints a line for each rate of payloads, and the memory of one
real jwbridge with 16 simulated boards.
"""
import os
import re
import subprocess
import sys

RATES = [6, 60, 180]  # payloads a minute for each board


def run(folder, function, environment):
    done = subprocess.run([f"{folder}/tst_fleet_scale", "-maxwarnings", "0", function], text=True, check=False,
                          env={**os.environ, **environment, "QTEST_FUNCTION_TIMEOUT": "86400000"},
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        sys.exit(done.stdout)
    print(re.search(r"QINFO  : \S+ (.*)", done.stdout).group(1), flush=True)


def main():
    folder, *rest = sys.argv[1:]
    machines, seconds = (rest + ["200", "20"][len(rest):])[:2]
    for rate in RATES:
        run(folder, "everyPayloadArrivesInOrder",
            {"JWDEVICE_FLEET_MACHINES": machines, "JWDEVICE_FLEET_BOARDS": "16", "JWDEVICE_FLEET_RATE": str(rate),
             "JWDEVICE_FLEET_SECONDS": seconds})
    run(folder, "memoryOfOneBridge", {})


main()
