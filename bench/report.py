#!/usr/bin/env python3
"""Makes docs/performance.md and its plots from what ./dev bench has measured.

report.py RESULTS DOCS
"""

import collections
import json
import pathlib
import platform
import re
import statistics
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.hashsalt": "kiv", "svg.fonttype": "none", "font.size": 10, "axes.spines.top": False,
    "axes.spines.right": False, "figure.constrained_layout.use": True,
})
import matplotlib.pyplot as plt  # noqa: E402: after the choice above

BASE, OURS = "GIO", "library"
COLOURS = {"library": "#c8401f", "GIO": "#3a6ea5", "libdbus": "#b5a642", "sd-bus": "#7d5ba6"}


def wall(block):
    return block["wall"]


def cpu(block):
    return block["user"] + block["system"]


class Case:
    """The blocks of one peer, and those of bare GIO that were measured between them."""

    def __init__(self, entry, base):
        self.entry, self.blocks, self.base = entry, entry["blocks"], base["blocks"]

    def quartiles(self, figure):
        values = [figure(block) for block in self.blocks]
        return statistics.quantiles(values, n=4, method="inclusive") if len(values) > 1 else values * 3

    def median(self, figure):
        return self.quartiles(figure)[1]

    def us(self):
        return self.median(wall) / 1e3

    def ratio(self, figure=wall):
        return statistics.median(figure(a) / figure(b) for a, b in zip(self.blocks, self.base))


def cases(entries, key):
    """Returns the cases by a key of their entries, then by peer."""
    groups = collections.defaultdict(dict)
    for entry in entries:
        groups[entry[key]][entry["peer"]] = entry
    return {value: {peer: Case(entry, group[BASE]) for peer, entry in group.items()} for value, group in groups.items()}


def suite(results, name, key):
    return cases([entry for entry in results["calls"] if entry["suite"] == name], key)


def one_caller(results):
    return suite(results, "callers", "callers")[1]


def curves(axis, groups, value=Case.us):
    """Draws a curve for each peer, over the values by which the cases are grouped."""
    for peer in next(iter(groups.values())):
        axis.plot(list(groups), [value(group[peer]) for group in groups.values()], marker="o", markersize=3, label=peer,
                  color=COLOURS[peer])


def ratio(case, figure=wall):
    return f"{case.ratio(figure):.3f}"


class Report:
    def __init__(self, docs):
        self.docs, self.text = docs, []
        (docs / "performance").mkdir(parents=True, exist_ok=True)

    def write(self, text=""):
        self.text.append(text)

    def table(self, head, rows):
        self.write("| " + " | ".join(head) + " |")
        self.write("|---" * len(head) + "|")
        for row in rows:
            self.write("| " + " | ".join(map(str, row)) + " |")
        self.write()

    def plot(self, figure, name, caption):
        figure.savefig(self.docs / "performance" / f"{name}.svg", metadata={"Date": None})
        plt.close(figure)
        self.write(f"![{caption}](performance/{name}.svg)\n")

    def save(self):
        (self.docs / "performance.md").write_text("\n".join(self.text).rstrip() + "\n")


def processor():
    match = re.search(r"model name\s*:\s*(.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return match.group(1) if match else platform.machine()


def introduction(report, pinned):
    machine, distribution = pinned["machine"], platform.freedesktop_os_release()["PRETTY_NAME"]
    report.write(f"""# Performance

This page shows the cost of a call and of an event, in comparison with other D-Bus clients. `./dev bench` measures all of it and
writes this page. `./dev bench counts` compares instructions and allocations with the committed table.

Measured on {machine["processors"]} processors ({processor()}), Linux {platform.release()}, {distribution}, GLib
{machine["glib"]}. All clients use the same dbus-daemon on a private bus, and the same small GIO server, which belongs to the
benchmarks. *Pinned* means that daemon, server and client share one processor, which gives the steadiest figures. *Free*
means that the kernel places them. The clients, called peers, take turns block by block in one run. A figure is the median of
{len(pinned["calls"][0]["blocks"])} blocks. A ratio is the median of the ratios to the block of bare GIO of the same round.

Every peer sends the four messages of a call as the library does: it asks whether the server's name has an owner, asks for the
client id, asks for the owner again, and calls the method. Before the measurement, a check on the bus makes sure that all
peers send the same messages and understand the answers. The library logs as it does by default. The threads of GIO
and of the library share one connection. Each thread of libdbus and sd-bus has a connection of its own.

GIO, libdbus and sd-bus implement D-Bus themselves. Other clients, such as Qt D-Bus, gdbus-codegen and sdbus-c++, are built on one
of them, and cost at least as much as that one.
""")


def peers(report, pinned, free, system_calls):
    report.write("## One caller\n")
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.2), sharey=True)
    for axis, results, mode in zip(axes, (pinned, free), ("pinned", "free")):
        group = one_caller(results)
        for place, (peer, case) in enumerate(reversed(group.items())):
            low, middle, high = (value / 1e3 for value in case.quartiles(wall))
            axis.barh(place, middle, color=COLOURS[peer], xerr=[[middle - low], [high - middle]], ecolor="#333333")
            axis.text(high, place, f"  {case.ratio():.2f}", va="center")
        axis.set_yticks(range(len(group)), list(reversed(group)))
        axis.set(title=f"{mode}; number: time relative to bare GIO", xlabel="µs a call, with quartiles")
    report.plot(figure, "peers", "Time of a call by peer")
    group = one_caller(pinned)
    report.table(
        ["pinned", "µs a call", "quartiles", "time / GIO", "CPU / GIO", "client CPU µs", "switches", "system calls"],
        [[peer, f"{case.us():.1f}", "–".join(f"{case.quartiles(wall)[i] / 1e3:.1f}" for i in (0, 2)), ratio(case),
          ratio(case, cpu), f"{case.median(cpu) / 1e3:.1f}", f"{case.median(lambda block: block['switches']):.0f}",
          system_calls[peer]]
         for peer, case in group.items()])
    slower = [(peer, 1 / case.ratio()) for peer, case in group.items() if case.ratio() < 0.95 and peer != OURS]
    if slower:
        report.write(
            "GIO, which the library's contract fixes, is slower than other stacks: bare GIO takes "
            + ", ".join(f"{factor:.1f} times as long as {peer}" for peer, factor in slower)
            + ". GIO hands each message to a worker thread and back, makes a context for each call, and builds and checks"
            " a value for each field of a message. The library can save a part of the building, and nothing of the rest.\n")


def latencies(report, pinned):
    report.write("## Latency\n")
    figure, axis = plt.subplots(figsize=(9, 3.4))
    for peer, case in one_caller(pinned).items():
        values = sorted(case.entry["latencies"])
        # Leaves out the last percent, which depends on the machine more than on the peer.
        shown = range(0, len(values) * 99 // 100, max(1, len(values) // 400))
        axis.plot([values[i] for i in shown], [i / len(values) * 100 for i in shown], label=peer, color=COLOURS[peer],
                  linewidth=2 if peer == OURS else 1.2)
    axis.set(xlabel="µs a call, pinned, one caller", ylabel="% of calls that take no longer")
    axis.legend(frameon=False)
    report.plot(figure, "latency", "Distribution of latencies by peer")


def threads(report, pinned, free):
    report.write("## Several callers\n")
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.4))
    both = [suite(results, "callers", "callers") for results in (pinned, free)]
    for axis, groups, mode in zip(axes, both, ("pinned", "free")):
        curves(axis, groups, lambda case: 1e3 / case.us())
        axis.set_xscale("log", base=2)
        axis.set_xticks(list(groups), list(groups))
        axis.set_ylim(bottom=0)
        axis.set(title=mode, xlabel="threads that call", ylabel="calls a ms, all threads")
    axes[0].legend(frameon=False, fontsize=8)
    report.plot(figure, "threads", "Calls a millisecond by threads")
    report.table(
        ["callers", *(f"library, {figure}, {mode}" for mode in ("pinned", "free") for figure in ("time", "CPU"))],
        [[callers, *(ratio(groups[callers][OURS], figure) for groups in both for figure in (wall, cpu))]
         for callers in both[0]])


def shapes(report, pinned):
    report.write("## Every shape of call\n")
    report.table(["shape", "µs", "time / GIO", "CPU / GIO"],
                 [[shape, f"{group[OURS].us():.1f}", ratio(group[OURS]), ratio(group[OURS], cpu)]
                  for shape, group in suite(pinned, "shapes", "shape").items()])


def micro_time(micro, name):
    return next(
        (run["real_time"] for run in micro["benchmarks"] if run["name"] in (name, f"{name}_median")), float("nan"))


def lists(report, pinned, micro):
    report.write("## Lists\n")
    groups = suite(pinned, "lists", "records")
    figure, axis = plt.subplots(figsize=(9, 3.4))
    curves(axis, groups)
    sizes = [records for records in groups if records]
    axis.plot(sizes, [micro_time(micro, f"CopyRecords/{records}") / 1e3 for records in sizes], "--", color="#333333",
              label="one memcpy")
    axis.set_xscale("symlog", linthresh=1)
    axis.set(yscale="log", xlabel="records of 134 bytes", ylabel="µs a call, pinned")
    axis.legend(frameon=False, fontsize=8)
    report.plot(figure, "lists", "Time of a list call by number of records")
    report.write("The table shows the time that the library takes to copy a received list, beside one memcpy of the same bytes: into"
                 " memory\n"
                 "that is new to the process, and into memory that was used before.\n")
    rows = []
    for records in sizes:
        row = [records]
        for kind in ("", "Again"):
            decode, copy = (micro_time(micro, f"{what}Records{kind}/{records}") for what in ("Decode", "Copy"))
            row += [f"{decode / 1e3:.2f}", f"{copy / 1e3:.2f}", f"{decode / copy:.2f}"]
        rows.append(row)
    report.table(["records", "new list µs", "memcpy µs", "ratio", "used list µs", "memcpy µs", "ratio"], rows)
    report.write(f"A log line below the minimum priority takes {micro_time(micro, 'LogBelowTheMinimum'):.1f} ns.\n")


def parts(report, pinned, counted):
    report.write("## Where the time of a call goes\n")
    figure, (axis, other) = plt.subplots(1, 2, figsize=(9, 3.4))
    group = one_caller(pinned)
    names = list(reversed(group))
    left = [0.0] * len(names)
    for part, label, colour in (("user", "client", "#c8401f"), ("system", "client, kernel", "#e59a82"),
                                ("daemon", "dbus-daemon", "#888888"), ("server", "server", "#c4c4c4")):
        # The parts are means of all blocks, because a single block is too short for the kernel to tell them apart.
        widths = [statistics.mean(block[part] for block in group[peer].blocks) / 1e3 for peer in names]
        axis.barh(names, widths, left=left, label=label, color=colour)
        left = [a + b for a, b in zip(left, widths)]
    axis.set_xlabel("µs CPU a call, pinned")
    axis.legend(frameon=False, fontsize=8)
    shown = {OURS: counted["call: NodeRemoveFromWatcher"], BASE: counted["GIO: NodeRemoveFromWatcher"]}
    bottom = [0.0] * len(shown)
    for part in shown[OURS]["parts"]:
        heights = [dump["parts"][part] / 1e3 for dump in shown.values()]
        other.bar(list(shown), heights, bottom=bottom, label=part, width=0.5)
        bottom = [a + b for a, b in zip(bottom, heights)]
    other.set(ylabel="1000 instructions a call", xlim=(-0.5, 2.3))
    other.legend(frameon=False, fontsize=8, loc="center right")
    report.plot(figure, "parts", "Cost by part of a call")
    all_ours, all_base = (sum(dump["parts"].values()) for dump in shown.values())
    report.write(
        f"Of {all_ours:,.0f} instructions of a call, {shown[OURS]['parts'][OURS]:,.0f} are the library's own"
        f" (with the C++ runtime and the log); bare GIO needs {all_base:,.0f}. What costs most:\n")
    report.table(["instructions a call", "in", "function"],
                 [[f"{cost:,.0f}", where, f"`{function}`"] for cost, where, function in shown[OURS]["top"]])


def events(report, pinned, free):
    report.write("## Events\n")
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.4))
    rows = []
    for axis, outstanding in zip(axes, (1, 64)):
        groups, unpinned = (
            cases([entry for entry in results["events"] if entry["outstanding"] == outstanding], "subscribers")
            for results in (pinned, free)
        )
        curves(axis, groups)
        axis.set_xscale("symlog", linthresh=1)
        axis.set_ylim(bottom=0)
        axis.set(title="one at a time" if outstanding == 1 else f"{outstanding} outstanding", xlabel="subscribers",
                 ylabel="µs an event, pinned")
        rows += [[outstanding, subscribers, f"{group[OURS].us():.1f}", ratio(group[OURS]), ratio(group[OURS], cpu),
                  ratio(group["sd-bus"]), ratio(unpinned[subscribers][OURS])] for subscribers, group in groups.items()]
    axes[0].legend(frameon=False)
    report.plot(figure, "events", "Time of an event by subscribers")
    report.table(
        ["outstanding", "subscribers", "µs an event, pinned", "time / GIO", "CPU / GIO", "sd-bus: time / GIO",
         "time / GIO, free"], rows)


def cold_start(report, runs):
    report.write("## Cold start\n")
    report.table(
        ["ms from the start, median", "library loaded", "first call done", "first event received"],
        [[peer] + [f"{statistics.median(run[what] for run in runs if run['peer'] == peer):.2f}"
                   for what in ("loaded", "first call", "first event")] for peer in (OURS, BASE)])


def counts(report, table):
    report.write("## Counted\n\nThese counts are the same in every run. `./dev bench counts` compares them.\n")
    report.table(["", "instructions of ours", "all instructions", "allocations of ours"],
                 [[name, row["ours"], f"{row['all']:,}", row["allocations"]] for name, row in table.items()])
    few, many = table["event: 1 subscribers"], table["event: 101 subscribers"]
    report.write(f"Each further subscriber costs {(many['all'] - few['all']) / 100:.0f} instructions for an event, which is too"
                 " little to be seen in the times above.\n")


def main(results, docs):
    results, docs = pathlib.Path(results), pathlib.Path(docs)

    def read(name):
        return json.loads((results / name).read_text())

    pinned, free, micro, counted = read("pinned.json"), read("free.json"), read("micro.json"), read("counted.json")
    cold = [json.loads(line) for line in (results / "cold.jsonl").read_text().splitlines()]
    report = Report(docs)
    introduction(report, pinned)
    peers(report, pinned, free, read("system-calls.json"))
    latencies(report, pinned)
    threads(report, pinned, free)
    shapes(report, pinned)
    lists(report, pinned, micro)
    events(report, pinned, free)
    cold_start(report, cold)
    parts(report, pinned, counted)
    counts(report, json.loads(pathlib.Path(__file__).with_name("counts.json").read_text()))
    report.save()


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
