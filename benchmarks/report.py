#!/usr/bin/env python3
"""Makes tables and plots from the raw results. Prints each aim and whether it is met.

Usage: report.py RESULTS-FOLDER OUT-FOLDER
Reads benchmarks.json, discovery.json, line.json, plug.json and streams.json. Writes tables.md and *.svg.
"""
import json
import pathlib
import re
import statistics
import subprocess
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "jwdevice"  # without a fixed salt, the same results would make different files
import matplotlib.pyplot as pyplot  # noqa: E402

LINE_RATE = 115200 / 10  # bytes in a second
PACED = "speed=115200"
BOARDS = 100
VERSION_QUERY, VERSION_REPLY = 12, 26  # bytes
INFORMATION_REQUEST, INFORMATION_REPLY = 16, 43
ROUNDS, REPLY_TIMEOUT = 4, 400  # ms
REST, REST_TIME = "48 boards at rest", 10000  # ms
WORKS = ("ports", "payloads", "sessions")


def number(value):
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"


class Sample:
    """The values of several repetitions, with their median and their spread."""

    def __init__(self, values):
        self.values = sorted(values)
        self.median = statistics.median(self.values)

    def __truediv__(self, unit):
        return Sample([value / unit for value in self.values])

    def spread(self):
        return f"{number(self.values[0])} to {number(self.values[-1])}"

    def __str__(self):
        return f"{number(self.median)} ({self.spread()})"


class Benchmarks:
    """The results of benchmarks.json: processor time for one item in nanoseconds, by the name of the benchmark."""

    def __init__(self, results):
        self.times = {}
        self.counters = {}
        for run in results["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            if run["run_type"] != "iteration":
                continue
            name = re.sub("/iterations:[0-9]+|/repeats:[0-9]+", "", run["name"])
            self.times.setdefault(name, []).append(run["cpu_time"] / run["items"])
            self.counters[name] = run
        self.kernel = Sample(self.times["yardstick/limit kernel: parse"])
        self.filling = Sample(self.times["yardstick/record filled by hand"])
        self.yardstick = self.kernel.median + self.filling.median

    def time(self, name):
        return Sample(self.times[name])

    def ratio(self, name):
        return self.time(name) / self.yardstick

    def allocations(self, name):
        return self.counters[name]["allocations"]

    def perByte(self, name):
        run = self.counters[name]
        return self.time(name) / (run["bytes"] / run["items"])

    def series(self, prefix):
        found = {int(name.rsplit("/", 1)[1]): self.time(name) for name in self.times if name.startswith(prefix + "/")}
        return dict(sorted(found.items()))


class Lot:
    """The probes of one lot (a set of boards). Times are milliseconds after the call of probe()."""

    def __init__(self, result):
        self.title = result["title"]
        if any(probe["settled"] < 0 for probe in result["probes"]):
            sys.exit(f"{self.title}, {len(result['boards'])} ports: a probe did not end")
        self.line = result["line"]
        speed = re.search("speed=([0-9]+)", self.line)
        self.lineRate = int(speed[1]) / 10 if speed else None  # bytes in a second
        self.ports = len(result["boards"])
        self.probes = result["probes"]
        self.delay = max(int(re.search("delay=([0-9]+)", board)[1]) for board in result["boards"])
        self.types = result["types"]
        self.silent = all(board.startswith("silent") for board in result["boards"])
        told = "notFound" if self.silent else "found"
        complete = [probe for probe in self.probes if len(probe[told]) == len(self.types)]
        self.complete = len(complete)
        self.enumeration = Sample([probe["enumeration"] for probe in self.probes])
        self.opens = Sample([sum(probe["opens"]) for probe in self.probes])
        self.probe = Sample([probe["probe"] for probe in self.probes])
        self.settled = Sample([probe["settled"] for probe in self.probes])
        self.stall = Sample([probe["stall"]["ms"] for probe in self.probes])
        longest = max(self.probes, key=lambda probe: probe["stall"]["ms"])["stall"]
        self.stallPlace = f"{longest['receiver']}, {longest['event']}"
        last = [(max(signal["ms"] for signal in probe[told]), probe) for probe in complete]
        self.told = Sample([ms for ms, _ in last]) if last else None
        self.afterLastOpen = Sample([ms - probe["probe"] for ms, probe in last]) if last else None
        # `floor` contains the time in which openAll() of discovery.cpp opened the ports, `told` the time in which the
        # probe opened them. Programs that run at the same time delay the two times differently, so `overFloor`
        # below compares the lowest values, which have the least delay.
        self.floor = Sample([self.floorOf(probe) for probe in self.probes])
        self.onLine = self.lineTime()
        self.exchange = Sample([probe["exchange"] for probe in self.probes])
        self.overFloor = self.told.values[0] - self.floor.values[0] if last else None

    def lineTime(self):
        """Returns the milliseconds that query and reply take on the serial line."""
        asked = VERSION_QUERY if set(self.types) & set("AB") else 0
        answered = INFORMATION_REQUEST + INFORMATION_REPLY if "C" in self.types else VERSION_REPLY
        return (asked + answered) / self.lineRate * 1000 if self.lineRate else 0

    def floorOf(self, probe):
        """Returns the least time that a probe can take: listing the ports, opening them, and waiting for the reply. If
        no board replies, the wait is the time of all rounds."""
        wait = ROUNDS * REPLY_TIMEOUT if self.silent else self.delay + self.lineTime()
        return probe["enumeration"] + sum(probe["opens"]) + wait


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def operations(benchmarks):
    rows = []
    for name in sorted(benchmarks.times, key=lambda name: [part.zfill(9) for part in name.split("/")]):
        time = benchmarks.time(name)
        rows.append([name, number(time.median), time.spread(), number(benchmarks.ratio(name).median),
                     number(benchmarks.allocations(name))])
    return table(["Operation", "ns", "least to most", "Y", "allocations"], rows)


def probes(lots):
    rows = []
    for lot in lots:
        def cell(value):
            return "-" if value is None else f"{value:.1f}" if isinstance(value, float) else str(value)
        rows.append([lot.title, str(lot.ports), "yes" if lot.line else "no", cell(lot.enumeration.median),
                     cell(lot.opens.median), cell(lot.probe), f"{lot.complete} of {len(lot.probes)}", cell(lot.told),
                     cell(lot.afterLastOpen), cell(lot.overFloor), cell(lot.settled.median),
                     f"{lot.stall.median:.2f} ({lot.stallPlace})"])
    return table(["Boards (times in ms)", "ports", "paced", "search", "opens", "probe() returns", "as expected",
                  "last signal", "after probe()", "over the floor", "over", "longest stall after probe()"], rows)


def together(lots):
    """Returns a table with a row for each number of boards, and a column for each kind of serial line."""
    lines = list(dict.fromkeys(lot.line for lot in lots))
    rows = []
    for ports in sorted({lot.ports for lot in lots}):
        cells = {lot.line: f"{lot.complete} of {len(lot.probes)}: {lot.afterLastOpen or '-'}; "
                          f"{number(lot.exchange.median)}; {number(lot.onLine)}"
                 for lot in lots if lot.ports == ports}
        rows.append([str(ports)] + [cells[line] for line in lines])
    return table(["boards"] + [f"`{line}`" for line in lines], rows)


def lost(runs):
    """Returns the number of payloads that were lost, changed, or arrived at another Communicator."""
    return sum(max(run["sent"], run["payloads"]) - run["whole"] for run in runs if run["work"] != "ports")


def streams(results):
    """Returns a table with a row for each load, computed from all runs with this load."""
    loads = {}
    for run in results:
        loads.setdefault((run["baud"], run["ports"]), {}).setdefault(run["work"], []).append(run)
    rows = []
    for (baud, ports), byWork in loads.items():
        runs = byWork["payloads"] + byWork["sessions"]
        sent = sum(run["sent"] for run in runs)
        due = sum(run["ms"] for run in runs) / 1000 * ports * baud / 10 / VERSION_REPLY
        rows.append([str(ports), str(baud), f"{sent / due:.0%}", str(sent), str(lost(runs))]
                    + [str(Sample([run["nsPerPayload"] / 1000 for run in byWork[work]])) for work in WORKS])
    return table(["boards", "baud", "speed reached", "payloads sent", "not whole at its Communicator",
                  "QSerialPort alone, us", "as text, us", "parsed, us"], rows)


def lineShares(results):
    """Returns for each kind of work its shares of a core, in the order of the repetitions."""
    for run in results:
        if run["sent"] * VERSION_REPLY < 0.99 * BOARDS * LINE_RATE * run["ms"] / 1000:
            sys.exit("100 boards at full line rate: some payloads were not sent. Run it again on an idle machine.")
    return {work: [run["share"] for run in sorted(results, key=lambda run: run["repetition"]) if run["work"] == work]
            for work in WORKS}


def beyondPorts(shares, work):
    """Returns how much more the work takes than QSerialPort alone in the same repetition, in percent of a core."""
    return Sample([100 * (share - bare) for share, bare in zip(shares[work], shares["ports"])])


def lines(shares):
    rows = [[title, f"{statistics.median(shares[work]):.2%}", f"{min(shares[work]):.2%} to {max(shares[work]):.2%}",
             str(beyondPorts(shares, work))]
            for work, title in (("ports", "QSerialPort alone, read and dropped"),
                                ("payloads", "with a Communicator, payloads taken as text"),
                                ("sessions", "with a Communicator, each payload parsed"))]
    return table(["100 boards at 115200 baud", "share of a core", "least to most", "beyond QSerialPort, %"], rows)


def targets(benchmarks, lots, shares, streaming):
    """Returns a row for each aim: the limit, the measured value, and whether the aim is met."""
    def atMost(title, value, limit, unit):
        median = value.median if isinstance(value, Sample) else value
        text = str(value) if isinstance(value, Sample) else number(value)
        return [title, f"{limit:g} {unit}", text, "met" if median <= limit else "NOT MET"]

    def lot(title, ports, line=""):
        return next(lot for lot in lots if (lot.title, lot.ports, lot.line) == (title, ports, line))

    parse, build = "parse/version reply", "build/version query"
    clean, dirty = "receive/sessions, clean/64", "receive/sessions, dirty/64"
    written = benchmarks.series("transmit/bytesWritten")
    rows = [
        atMost("parse a version reply: time", benchmarks.ratio(parse), 1.6, "Y"),
        atMost("parse a version reply: allocations", benchmarks.allocations(parse), 10, ""),
        atMost("build a query: time", benchmarks.ratio(build), 0.75, "Y"),
        atMost("build a query: allocations", benchmarks.allocations(build), 3, ""),
        atMost("64-byte reads to a filled session", benchmarks.ratio(clean), 3, "Y"),
        atMost("dirty stream against the clean one, for each good sentence",
               benchmarks.time(dirty) / benchmarks.time(clean).median, 2, "times"),
        atMost("100 boards at line rate, computed from the time for a byte",
               benchmarks.perByte("receive/payloads, clean/64") / (1e7 / LINE_RATE / BOARDS), 2, "%"),
        atMost("100 boards at line rate, measured beyond QSerialPort",
               beyondPorts(shares, "payloads"), 2, "%"),
        atMost("bytesWritten after 1,000,000 payloads against after one",
               written[1000000] / written[1].median, 1.1, "times"),
    ]
    for line in ("", PACED):
        how = ", paced line" if line else ""
        one, full = lot("boards on all", 1, line), lot("boards on all", 48, line)
        rows.append(atMost(f"one board on one port, over the floor{how}", one.overFloor, 2, "ms"))
        if full.afterLastOpen:
            rows.append(atMost(f"boards on all 48 ports, after the last open{how}", full.afterLastOpen, 10, "ms"))
        worst = max((lot(f"one board, {place}", 48, line) for place in ("first", "middle", "last")),
                    key=lambda one: one.afterLastOpen.median)
        # The value is the time since the last port was opened. If the board is on the last port, the value contains the
        # time that query and answer take on the serial line.
        rows.append(atMost(f"one board among 48 ports, after the last open, worst place{how}", worst.afterLastOpen,
                           round(2 + worst.onLine, 1), f"ms, {worst.onLine:.1f} of it on the line" if line else "ms"))
    everywhere = [one for one in lots if one.title == "boards on all"]
    worst = min(everywhere, key=lambda one: one.complete / len(one.probes))
    rows.append(["boards on all, worst number of ports and line", "all found",
                 f"{worst.ports} ports: in {worst.complete} of {len(worst.probes)} probes",
                 "met" if worst.complete == len(worst.probes) else "NOT MET"])
    for line in dict.fromkeys(one.line for one in everywhere if one.line):
        worst = max((one for one in everywhere if one.line == line and one.ports <= 16 and one.afterLastOpen),
                    key=lambda one: one.afterLastOpen.median - one.exchange.median)
        rows.append(atMost(f"boards on all of up to 16 ports, `{line}`, after the last open, worst: {worst.ports} ports",
                           worst.afterLastOpen, float(number(2 + worst.exchange.median)),
                           f"ms, {number(worst.exchange.median)} of it with QSerialPort alone, "
                           f"{number(worst.onLine)} on the line"))
    rows.append(atMost("payloads of 2 to 100 boards that talk side by side, lost, spoilt or at the wrong Communicator",
                       lost(streaming), 0, f"of {sum(run['sent'] for run in streaming if run['work'] != 'ports')}"))
    worst = max(lots, key=lambda one: one.stall.median)
    rows.append(["longest stall in a probe", "search and opening of ports",
                 f"48 ports: probe() {lot('boards on all', 48, PACED).probe.median:.0f} ms, with their names "
                 f"{lot('boards on all, ports by name', 48).probe.median:.0f} ms; after it "
                 f"{worst.stall.median:.2f} ms",
                 "met" if worst.stall.median < 2 else "NOT MET"])
    return rows


class Plugs:
    """The results of one lot of plug.json, in ms. `found`: from udev's first event to the last hand-over.
    `answer`: from a query to its answer."""

    def __init__(self, result):
        rounds = [[port for port in ports if port["event"]] for ports in result["rounds"]]
        if all(rounds):  # false if the boards were there at the start
            self.boards = max(len(ports) for ports in rounds)
            self.found = Sample([max(port["found"] for port in ports) - min(port["event"] for port in ports)
                                 for ports in rounds])
            self.answer = Sample([port["answered"] - port["asked"] for ports in rounds for port in ports])
        def used(what):
            return Sample([rest["after"][what] - rest["before"][what] for rest in result["rests"]])
        self.processor, self.switches = used("processorMs"), used("switches")


def plugged(plugs, lots):
    """Returns a table with a row for each lot of boards that are plugged in."""
    floors = {lot.ports: lot.floor for lot in lots if lot.title == "boards on all" and not lot.line}
    return table(["boards", "all found", "answer of a board", "floor"],
                 [[title, str(one.found), str(one.answer), str(floors[one.boards])]
                  for title, one in plugs.items() if title != REST])


def plugTargets(plugs):
    def row(title, limit, measured, met):
        return [title, limit, measured, "met" if met else "NOT MET"]
    one, hub, rest = plugs["one board, events"], plugs["48 boards behind one hub, events"], plugs[REST]
    share = rest.processor / (REST_TIME / 100)
    return [
        row("board plugged in: from udev's event to the hand-over", "15 ms", str(one.found), one.found.median <= 15),
        row("48 boards plugged in behind one hub: all handed over", "400 ms", str(hub.found), hub.found.median <= 400),
        # One switch is not counted: the end of the measurement causes it.
        row("48 boards at rest: wakes of the process, and share of a core", "0, 0 %",
            f"{rest.switches.values[-1] - 1:.0f}, {share} %",
            rest.switches.values[-1] <= 1 and share.values[-1] < 0.05)]


def save(figure, axes, path, xLabel, yLabel):
    axes.set_xlabel(xLabel)
    axes.set_ylabel(yLabel)
    axes.set_ylim(bottom=0)
    axes.grid(alpha=0.3)
    axes.legend(fontsize=8)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)


def plot(path, series, xLabel, yLabel, logarithmic):
    """Draws a curve for each entry of `series`, which maps a title to {x: Sample}."""
    figure, axes = pyplot.subplots(figsize=(7, 4))
    for title, points in series.items():
        xs = list(points)
        medians = [points[x].median for x in xs]
        spread = [[points[x].median - points[x].values[0] for x in xs],
                  [points[x].values[-1] - points[x].median for x in xs]]
        axes.errorbar(xs, medians, yerr=spread, marker="o", markersize=4, capsize=3, label=title)
    if logarithmic:
        axes.set_xscale("log")
    save(figure, axes, path, xLabel, yLabel)


def plots(benchmarks, lots, out):
    plot(out / "chunks.svg", {
        "readyRead, clean": benchmarks.series("receive/payloads, clean"),
        "parsed session, clean": benchmarks.series("receive/sessions, clean"),
        "parsed session, dirty": benchmarks.series("receive/sessions, dirty"),
    }, "bytes in a read of the device", "ns for each good sentence", True)
    plot(out / "history.svg", {
        "bytesWritten": benchmarks.series("transmit/bytesWritten"),
        "writePayload, text": benchmarks.series("transmit/writePayload, text"),
        "writePayload, session": benchmarks.series("transmit/writePayload, session"),
    }, "payloads written before", "ns", True)

    def byPorts(title, line, value):
        return {lot.ports: value(lot) for lot in lots
                if lot.title == title and lot.line == line and value(lot) is not None}
    plot(out / "ports.svg", {
        "floor, one board": byPorts("one board, first", PACED,
                                    lambda lot: lot.floor),
        "probe() returns": byPorts("one board, first", PACED, lambda lot: lot.probe),
        "one board found, first port": byPorts("one board, first", PACED, lambda lot: lot.told),
        "one board found, last port": byPorts("one board, last", PACED, lambda lot: lot.told),
        "boards on all, all found": byPorts("boards on all", "", lambda lot: lot.told),
    }, "ports", "ms", False)


def machine(context):
    model = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo", encoding="utf-8")
                  if line.startswith("model name")), "unknown processor")
    return (f"{model}, {context['num_cpus']} cores at {context['mhz_per_cpu']} MHz; "
            f"load {context['load_avg'][0]:.1f} at the start; commit {context['commit']}\n")


def main():
    results, out = (pathlib.Path(argument) for argument in sys.argv[1:3])
    raw = {name: json.loads((results / f"{name}.json").read_text("utf-8"))
           for name in ("benchmarks", "discovery", "line", "plug", "streams")}
    benchmarks = Benchmarks(raw["benchmarks"])
    lots = [Lot(result) for result in raw["discovery"]]
    shares = lineShares(raw["line"])
    plugs = {result["title"]: Plugs(result) for result in raw["plug"]}
    out.mkdir(parents=True, exist_ok=True)
    yardstick = (f"Y = {benchmarks.yardstick:.0f} ns: limit kernel {benchmarks.kernel.median:.0f} ns, "
                 f"record filled by hand {benchmarks.filling.median:.0f} ns\n")
    aims = table(["Aim", "at most", "measured", ""],
                 targets(benchmarks, lots, shares, raw["line"] + raw["streams"]) + plugTargets(plugs))
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], stdout=subprocess.PIPE, text=True, check=False)
    context = machine({**raw["benchmarks"]["context"], "commit": commit.stdout.strip() or "unknown"})
    (out / "tables.md").write_text("\n".join([
        "# Benchmark tables\n",
        "Written by `scripts/bench`; docs/performance.md explains them. Each value is a median. The least and\n"
        "the most of all repetitions stand in brackets or beside it.\n",
        context, yardstick, "## Aims\n", aims,
        "## Operations, one by one\n", operations(benchmarks),
        "## 100 boards at full line rate\n", lines(shares),
        "## Boards that stream side by side\n",
        "Each sends what its line carries, in pieces of 1 ms. Processor time for each payload.\n",
        streams(raw["streams"]),
        "## Boards that answer together\n",
        "Boards on all ports. Each cell has four figures:\n\n"
        "- the probes that found all wanted types\n"
        "- ms from the last open to the last hand-over\n"
        "- ms until one board of each type has answered a plain QSerialPort, if all are asked at once\n"
        "- ms that query and reply take on the line; the simulator sends the bytes of each millisecond at once\n",
        together([lot for lot in lots if lot.title == "boards on all" and lot.line]),
        "## Boards that are plugged in\n",
        "ms from the first event of udev to the last hand-over by a BoardWatch. `floor` is the time in which a plain\n"
        "QSerialPort lists and opens as many ports, and gets the answers.\n",
        plugged(plugs, lots),
        "## Probes\n", probes([lot for lot in lots if lot.title != "boards on all" or not lot.line])]), "utf-8")
    plots(benchmarks, lots, out)
    print(context)
    print(yardstick)
    print(aims)


main()
