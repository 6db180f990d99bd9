#!/usr/bin/env python3
"""Runs the program discovery on simulated ports of each kind of lot, and writes all it measured as JSON.

Usage: discovery.py BUILD-FOLDER OUT.json [PROBES]
"""
import json
import os
import subprocess
import sys

NUMBERS = [1, 2, 4, 8, 16, 32, 48]
PACED = 115200


def boards(kinds, speed=0, delay=0):
    # No other program that runs now may have ports of the same names.
    letters = "".join(chr(ord("A") + int(digit)) for digit in f"{os.getpid():02}")
    return [f"{kind},speed={speed},delay={delay},port=tty{letters}{i}" for i, kind in enumerate(kinds)]


def lots():
    """Each lot: its title, its boards, the types to look for, and further options of the program."""
    for ports in NUMBERS:
        kinds = [f"Board{'ABC'[i % 3]}" for i in range(ports)]
        for speed in (0, PACED):
            yield "boards on all", boards(kinds, speed), "ABC"[:ports], []
    for place, index in (("first", lambda n: 0), ("middle", lambda n: n // 2), ("last", lambda n: n - 1)):
        for ports in NUMBERS[1:]:
            for speed in (0, PACED):
                kinds = ["silent"] * ports
                kinds[index(ports)] = "BoardA"
                yield f"one board, {place}", boards(kinds, speed), "A", []
    for ports in NUMBERS:
        yield "all silent", boards(["silent"] * ports), "A", []
    yield "one board that waits 20 ms", boards(["BoardA"], PACED, 20), "A", []
    yield "boards on all, ports by name", boards([f"Board{'ABC'[i % 3]}" for i in range(48)]), "ABC", ["--named"]


def main():
    folder, out, *rest = sys.argv[1:]
    probes = rest[0] if rest else "5"
    results = []
    for title, lot, types, options in lots():
        command = [f"{folder}/simulator/jwsim/jwsim"]
        for board in lot:
            command += ["--board", board]
        command += ["--", f"{folder}/benchmarks/discovery", "--types", types, "--probes", probes, *options]
        output = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
        results.append({"title": title, "boards": lot, "types": types, "paced": f"speed={PACED}" in lot[0],
                        "probes": json.loads(output)})
        print(f"{title}, {len(lot)} ports{', paced' if results[-1]['paced'] else ''}", file=sys.stderr)
    with open(out, "w", encoding="utf-8") as file:
        json.dump(results, file, indent=1)


main()
