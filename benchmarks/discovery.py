#!/usr/bin/env python3
"""Runs the program discovery with several sets of simulated boards (lots), and writes all measurements as JSON.

Usage: discovery.py BUILD-FOLDER OUT.json [PROBES]
"""
import json
import os
import subprocess
import sys

NUMBERS = [1, 2, 4, 8, 16, 32, 48]
TOGETHER = [1, 2, 3, 4, 8, 16, 48]
PACED = "speed=115200"
LINES = ["speed=9600", PACED, "speed=921600", "speed=115200,usb=bridge"]


def uniquePrefix():
    """Returns the beginning of this run's port names. It contains the process id, with a letter for each digit, because
    two runs at the same time need different port names."""
    return "tty" + "".join(chr(ord("A") + int(digit)) for digit in f"{os.getpid():02}")


def boards(kinds, line="", delay=0):
    prefix = uniquePrefix()
    return [f"{kind},delay={delay},port={prefix}{i}{line and ','}{line}" for i, kind in enumerate(kinds)]


def lots():
    """Yields for each lot: title, settings of the serial lines, boards, wanted types, options for the program."""
    def mixed(ports):
        return [f"Board{'ABC'[i % 3]}" for i in range(ports)]
    for ports in NUMBERS:
        yield "boards on all", "", boards(mixed(ports)), "ABC"[:ports], []
    for line in LINES:
        for ports in TOGETHER:
            yield "boards on all", line, boards(mixed(ports), line), "ABC"[:ports], ["--bare"]
    for place, index in (("first", lambda n: 0), ("middle", lambda n: n // 2), ("last", lambda n: n - 1)):
        for ports in NUMBERS[1:]:
            for line in ("", PACED):
                kinds = ["silent"] * ports
                kinds[index(ports)] = "BoardA"
                yield f"one board, {place}", line, boards(kinds, line), "A", []
    for ports in NUMBERS:
        yield "all silent", "", boards(["silent"] * ports), "A", []
    yield "one board that waits 20 ms", PACED, boards(["BoardA"], PACED, 20), "A", []
    yield "boards on all, ports by name", "", boards(mixed(48)), "ABC", ["--named"]


def main():
    folder, out, *rest = sys.argv[1:]
    probes = int(rest[0]) if rest else 5
    results = []
    for title, line, lot, types, options in lots():
        command = [f"{folder}/simulator/jwsim/jwsim"]
        for board in lot:
            command += ["--board", board]
        command += ["--", f"{folder}/benchmarks/discovery", "--types", types,
                    "--probes", str(3 * probes if line and title == "boards on all" else probes), *options]
        output = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
        results.append({"title": title, "line": line, "boards": lot, "types": types, "probes": json.loads(output)})
        print(f"{title}, {len(lot)} ports{line and ', '}{line}", file=sys.stderr)
    with open(out, "w", encoding="utf-8") as file:
        json.dump(results, file, indent=1)


if __name__ == "__main__":
    main()
