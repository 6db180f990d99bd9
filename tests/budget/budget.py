"""Counts the cost of the work in budget_work.cpp, and compares it with budget.json or renews that file.

Usage: budget.py check PROGRAM
       budget.py renew PROGRAM...

Counts the instructions (by valgrind's callgrind, including those in other libraries) and the heap blocks of one
operation. The figures hardly differ between runs, even on a busy machine. They depend on Qt, the compiler and the C
library. budget.json has a budget for each Qt. If one of the versions is another one, the budget is scaled by the cost
of filling a record, and the check allows more.
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
    """Returns the number of instructions for each kind of work. callgrind has written one profile for each kind."""
    found = {}
    for profile in folder.glob("profile.*"):
        text = profile.read_text(encoding="utf-8", errors="replace")
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
        if name:
            found[name[1]] = int(re.search(r"^(?:totals|summary): (\d+)", text, re.MULTILINE)[1])
    return found


def measure(program):
    """Returns the versions of Qt, compiler and C library, and for each kind of work the cost of one operation."""
    if not os.path.isfile(program) or not shutil.which("valgrind"):
        sys.exit("Cannot count the cost of the library: install the package valgrind (or run scripts/test), then "
                 "configure and build again.")
    with tempfile.TemporaryDirectory() as folder:
        # These variables make the counts the same in each run: QHash always has the same order, and the first call of a
        # function does not include the search for its symbol.
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
    """Fails with a list of costs that are too far above or below their budget. If far below, the budget is too high."""
    budgets = json.loads(BUDGET.read_text(encoding="utf-8"))  # by versions
    qt = re.match(r"Qt \d+", versions)[0]
    counted_with = next(stored for stored in budgets if stored.startswith(qt))
    budget = budgets[counted_with]
    same = versions == counted_with
    slack = SLACK if same else SLACK_OF_OTHER_VERSIONS
    scale = 1 if same else costs[YARDSTICK]["instructions"] / budget[YARDSTICK]["instructions"]
    print(versions)
    if not same:
        print(f"The budget was counted with {counted_with}: scaled by {scale:.2f}, and {slack:.0%} more is "
              "allowed.")
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
                 "If the cost grew: undo the cause; callgrind_annotate shows the place. If the cost fell, or you "
                 "intended the change, run: scripts/budget renew")


def main():
    command, programs = sys.argv[1:2], sys.argv[2:]
    if command == ["check"] and len(programs) == 1:
        check(*measure(programs[0]))
    elif command == ["renew"] and programs:
        budgets = dict(measure(program) for program in programs)
        BUDGET.write_text(json.dumps(budgets, indent=4) + "\n", encoding="utf-8")
    else:
        sys.exit(__doc__)


main()
