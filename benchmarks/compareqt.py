#!/usr/bin/env python3
"""Measures the library for Qt 5 and the library for Qt 6 in turns, and prints a table of both.

Usage: compareqt.py BUILD-FOLDER-QT5 BUILD-FOLDER-QT6 [ROUNDS]

Each round measures both, so that other programs on the machine slow down both. Each ratio is the median of the
rounds' ratios.
"""
import json
import statistics
import subprocess
import sys

from discovery import boards

OPERATIONS = {
    "yardstick/record filled by hand": "fill a record by hand, without the library",
    "parse/version reply": "parse a version reply",
    "parse/information reply": "parse an information reply",
    "build/information request": "build an information request",
    "receive/payloads, clean/64": "receive a version reply from a clean stream in reads of 64 bytes",
    "receive/sessions, clean/64": "the same, and fill its record",
    "receive/sessions, dirty/64": "the same, from a dirty stream",
}
PORTS = 48


def operations(folder):
    """Yields for each operation its name and its processor time in nanoseconds."""
    names = "|".join(OPERATIONS)
    output = subprocess.run([f"{folder}/benchmarks/benchmarks", f"--benchmark_filter=^({names})$",
                             "--benchmark_min_time=0.2", "--benchmark_format=json"],
                            check=True, stdout=subprocess.PIPE).stdout
    for run in json.loads(output)["benchmarks"]:
        yield f"{OPERATIONS[run['name']]}, ns", run["cpu_time"] / run["items"]


def discovery(folder):
    """Yields for each step of a probe of 48 boards its name and its time in milliseconds."""
    command = [f"{folder}/simulator/jwsim/jwsim"]
    for board in boards([f"Board{'ABC'[i % 3]}" for i in range(PORTS)]):
        command += ["--board", board]
    output = subprocess.run([*command, "--", f"{folder}/benchmarks/discovery", "--types", "ABC", "--probes", "5"],
                            check=True, stdout=subprocess.PIPE).stdout
    probes = json.loads(output)
    yield f"list {PORTS} ports, ms", statistics.median(probe["enumeration"] for probe in probes)
    yield f"probe() with {PORTS} boards, until it returns, ms", statistics.median(probe["probe"] for probe in probes)
    yield (f"probe() with {PORTS} boards, until all have answered, ms",
           statistics.median(probe["settled"] for probe in probes))


def spread(values):
    low, middle, high = (f"{value:.3g}" if value < 100 else f"{value:.0f}"
                         for value in (min(values), statistics.median(values), max(values)))
    return f"{middle} ({low} to {high})"


def main():
    folders, rounds = sys.argv[1:3], int(sys.argv[3]) if len(sys.argv) > 3 else 7
    times = {}  # by name: a list of times for each folder
    for turn in range(rounds):
        for place in (0, 1) if turn % 2 == 0 else (1, 0):
            for name, time in [*operations(folders[place]), *discovery(folders[place])]:
                times.setdefault(name, ([], []))[place].append(time)
        print(f"round {turn + 1} of {rounds}", file=sys.stderr)
    print("| What | Qt 5 | Qt 6 | Qt 6 / Qt 5 |\n|---|---|---|---|")
    for name, (qt5, qt6) in times.items():
        print(f"| {name} | {spread(qt5)} | {spread(qt6)} | {spread([new / old for old, new in zip(qt5, qt6)])} |")


if __name__ == "__main__":
    main()
