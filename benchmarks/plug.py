#!/usr/bin/env python3
"""Runs the program plug with several sets of simulated boards that are plugged in, and writes its results as JSON.

Usage: plug.py BUILD-FOLDER OUT.json
"""
import json
import subprocess
import sys

from discovery import uniquePrefix

RUNS = 10
MOST = 48
POLL = 500  # ms between two lists of the ports


def lots(run):
    """Yields for each set of boards: title, number of boards, settings of the first board, rounds, options."""
    # If the watch polls, the result depends on the time from its last list of the ports to the plug. So this time must
    # vary: a round does not last a multiple of POLL, and each run plugs the hub in later than the run before.
    one = "plug-after=500,pull-after=1000,replug-after=777,cycles=4"
    hub = f"plug-after={500 + run * 47}"
    yield "one board, events", 1, one, 4, []
    yield "one board, poll", 1, one, 4, ["--poll", str(POLL)]
    # Only one round: if the watch polls, a pull makes so many opens fail that umockdev ends the program.
    yield "48 boards behind one hub, events", MOST, hub, 1, []
    yield "48 boards behind one hub, poll", MOST, hub, 1, ["--poll", str(POLL)]
    yield "48 boards at rest", MOST, "", 1, ["--rest", "10000"]


def measure(folder, number, first, rounds, options):
    command = [f"{folder}/simulator/jwsim/jwsim"]
    for i in range(number):
        board = f"Board{'ABC'[i % 3]},hub=h,port={uniquePrefix()}{i}"
        command += ["--board", f"{board},{first}" if first and i == 0 else board]
    command += ["--", f"{folder}/benchmarks/plug", "--boards", str(number), "--rounds", str(rounds), *options]
    return json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)


def main():
    folder, out = sys.argv[1:]
    results = {}
    # Short runs of each lot alternate, so that other load on the machine affects all lots.
    for i in range(RUNS):
        for title, *lot in lots(i):
            run = measure(folder, *lot)
            result = results.setdefault(title, {"title": title, "rounds": [], "rests": []})
            result["rounds"] += run["rounds"]
            result["rests"].append(run["rest"])
        print(".", end="", file=sys.stderr, flush=True)
    with open(out, "w", encoding="utf-8") as file:
        json.dump(list(results.values()), file, indent=1)


main()
