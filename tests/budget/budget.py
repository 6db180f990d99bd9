"""Counts what the work in budget_work.cpp costs, and compares it with budget.json or writes that anew.

Usage: budget.py check|renew PROGRAM

Counted are instructions (by valgrind's callgrind, all that the work makes other libraries do included) and blocks taken
from the heap, each for one operation: the figures are the same at every run, also on a busy machine. They depend on Qt,
the compiler and the C library. Where these are not those that the budget was counted with, the budget is scaled by what
filling a record costs there, and only what is far beyond it is refused.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

BUDGET = pathlib.Path(__file__).with_name("budget.json")
SLACK = 0.10
SLACK_OF_OTHER_VERSIONS = 0.50
YARDSTICK = "record"


def instructions_by_name(folder):
    """What callgrind wrote: the name that the program gave to each profile, and its number of instructions."""
    found = {}
    for profile in folder.glob("profile.*"):
        text = profile.read_text(encoding="utf-8", errors="replace")
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
        if name:
            found[name[1]] = int(re.search(r"^(?:totals|summary): (\d+)", text, re.MULTILINE)[1])
    return found


def measure(program):
    """The versions of what the program runs on, and by name what one operation costs."""
    if not os.path.isfile(program) or not shutil.which("valgrind"):
        sys.exit("What the library costs was not counted: install the package valgrind (scripts/test does), then "
                 "configure and build again.")
    with tempfile.TemporaryDirectory() as folder:
        # A random seed would order hashes anew at every run; a function is looked up at its first call.
        environment = dict(os.environ, QT_HASH_SEED="0", LD_BIND_NOW="1", LC_ALL="C")
        output = subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={folder}/profile", program],
            stdout=subprocess.PIPE, check=True, text=True, env=environment).stdout
        instructions = instructions_by_name(pathlib.Path(folder))
    lines = dict(line.split(": ", 1) for line in output.splitlines())
    versions = lines.pop("versions")
    costs = {}
    for name, figures in lines.items():
        operations, allocations = (int(figure) for figure in figures.split())
        costs[name] = {"instructions": round(instructions[name] / operations),
                       "allocations": round(allocations / operations, 2)}
    return versions, costs


def check(versions, costs):
    """Exits with what is beyond the budget, or below it by so much that the gain could be lost unseen."""
    stored = json.loads(BUDGET.read_text(encoding="utf-8"))
    budget = stored["costs"]
    same = versions == stored["versions"]
    slack = SLACK if same else SLACK_OF_OTHER_VERSIONS
    scale = 1 if same else costs[YARDSTICK]["instructions"] / budget[YARDSTICK]["instructions"]
    print(versions)
    if not same:
        print(f"The budget was counted with {stored['versions']}: it is scaled by {scale:.2f}, and up to "
              f"{slack:.0%} more is let through.")
    faults = []
    if costs.keys() != budget.keys():
        faults.append(f"the budget is for {', '.join(budget)}; counted were {', '.join(costs)}")
    for name in [name for name in costs if name in budget]:
        for what in ("instructions", "allocations"):
            cost = costs[name][what]
            limit = budget[name][what] * (scale if what == "instructions" else 1)
            change = cost / limit - 1 if limit else float(cost > 0)
            text = f"{name}: {cost:,} {what}, budget {limit:,.2f} ({change:+.1%})"
            print(text)
            if change > slack or (same and change < -slack):
                faults.append(text)
    if faults:
        sys.exit(f"\nNot within {slack:.0%} of the budget in {BUDGET.name}:\n  " + "\n  ".join(faults) + "\n"
                 "Dearer: undo what made it so; callgrind_annotate shows where. Cheaper: renew the budget, so that "
                 "the gain stays.\nWhen it is meant, run: scripts/budget renew")


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("check", "renew"):
        sys.exit(__doc__)
    versions, costs = measure(sys.argv[2])
    if sys.argv[1] == "check":
        check(versions, costs)
    else:
        BUDGET.write_text(json.dumps({"versions": versions, "costs": costs}, indent=4) + "\n", encoding="utf-8")


main()
