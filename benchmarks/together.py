#!/usr/bin/env python3
"""Counts the searches in which jwprobe finds every wanted board, among boards that answer at the same time.

Usage: together.py BUILD-FOLDER [RUNS]      (default: 200 searches for each row of the table)
Prints a table with a row for each number of boards and kind of serial line. Also prints the output of jwprobe for each
search that missed a board.
The exit status is 1 if a search missed a board.
"""
import subprocess
import sys
import time

LINES = ["speed=115200", "speed=9600", "speed=115200,usb=bridge",
         "speed=115200,ignore=1"]  # with ignore=1, the retry round asks all boards at once
NUMBERS = [3, 8, 16, 48]


def lots():
    """Yields for each set of boards their kinds, and the settings of their serial lines."""
    yield ["BoardA", "BoardB"], LINES[0]
    for line in LINES:
        for number in NUMBERS:
            yield [f"Board{'ABC'[i % 3]}" for i in range(number)], line


def search(folder, kinds, line):
    command = [f"{folder}/simulator/jwsim/jwsim"]
    for kind in kinds:
        command += ["--board", f"{kind},{line}"]
    command += ["--", f"{folder}/tools/jwprobe/jwprobe"]
    for kind in sorted(set(kinds)):
        command += ["--type", kind]
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)


def main():
    folder, *rest = sys.argv[1:]
    runs = int(rest[0]) if rest else 200
    missed = 0
    print("| boards | line | all found | seconds |\n|---|---|---|---|")
    for kinds, line in lots():
        start = time.monotonic()
        failed = [result for result in (search(folder, kinds, line) for _ in range(runs)) if result.returncode != 0]
        missed += len(failed)
        print(f"| {len(kinds)}, {len(set(kinds))} types wanted | `{line}` | {runs - len(failed)} of {runs} "
              f"| {time.monotonic() - start:.0f} |", flush=True)
        for result in failed:
            print(f"exit status {result.returncode}:\n{result.stdout}", file=sys.stderr)
    sys.exit(1 if missed else 0)


main()
