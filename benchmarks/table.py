#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Joins what tavdb_benchmark wrote for its groups and prints it as tables.

    table.py OUTPUT.json GROUP.json...

A figure is the median of its rounds; behind it stands half the distance between the quartiles, in percent.
It is the processor's time, but the time that passes where a workload waits for a device or another process.

A ratio is the median of the ratios of rounds: the first round of one with the first of the other, and so on. Rounds
run in a shuffled order, so that those of a pair lie near each other, and what slows the machine down for a while slows
both of them down.
"""

import json
import re
import statistics
import sys

# What is held against what: name, ours, the other, which way round, the goal (None: no goal).
TIMES_SLOWER, TIMES_FASTER = "times as long as", "times as fast as"
RATIOS = [
    ("typed read, memory medium", "read u32/memory/5000", "read u32/memory floor/5000", TIMES_SLOWER, 2.0),
    ("checked write, memory medium", "write u32/memory/5000", "write u32/memory floor/5000", TIMES_SLOWER, 2.0),
    ("typed read of one setting, memory medium", "read one u32/memory/5000", "read one u32/memory floor/5000",
     TIMES_SLOWER, 2.0),
    ("checked write of one setting, memory medium", "write one u32/memory/5000", "write one u32/memory floor/5000",
     TIMES_SLOWER, 2.0),
    ("typed read, file medium", "read u32/file/5000", "read u32/file floor/5000", TIMES_SLOWER, 1.05),
    ("checked write, file medium", "write u32/file/5000", "write u32/file floor/5000", TIMES_SLOWER, 1.05),
    ("typed read, message medium", "read u32/message/5000", "read u32/message floor/5000", TIMES_SLOWER, 1.5),
    ("checked write, message medium", "write u32/message/5000", "write u32/message floor/5000", TIMES_SLOWER, 1.5),
    ("typed read", "read u32/memory/5000", "read u32/LMDB/5000", TIMES_FASTER, 3.0),
    ("typed read", "read u32/memory/5000", "read u32/LMDB in one snapshot/5000", TIMES_FASTER, 3.0),
    ("typed read", "read u32/memory/5000", "read u32/tdb with mutexes/5000", TIMES_FASTER, 1.5),
    ("typed read", "read u32/memory/5000", "read u32/tdb/5000", TIMES_FASTER, None),
    ("typed read", "read u32/memory/5000", "read u32/SQLite/5000", TIMES_FASTER, None),
    ("checked write", "write u32/memory/5000", "write u32/LMDB/5000", TIMES_FASTER, None),
    ("checked write", "write u32/memory/5000", "write u32/tdb with mutexes/5000", TIMES_FASTER, None),
    ("checked write", "write u32/memory/5000", "write u32/SQLite/5000", TIMES_FASTER, None),
    ("find by name", "find by name/memory/5000", "find by name/LMDB/5000", TIMES_FASTER, None),
    ("find by name", "find by name/memory/5000", "find by name/tdb with mutexes/5000", TIMES_FASTER, None),
    ("find by name", "find by name/memory/5000", "find by name/SQLite/5000", TIMES_FASTER, None),
]

# Limits for a figure itself: name, which, seconds, and KiB of memory where that is limited too.
LIMITS = [
    ("tavdb get, large model", "command get/tr-181", 2e-3, 4096),
    ("tavdb tree, large model", "command tree/tr-181", 100e-3, None),
    ("tavdb build, large model, memory media", "build/tr-181/memory", 0.5, None),
]

ADDED_TO_NAMES = re.compile(r"(real_time|manual_time|iterations:\d+|repeats:\d+)$")
UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
MEDIA = ["memory", "memory floor", "file", "file floor", "message", "message floor"]
STORES = ["memory", "LMDB", "LMDB in one snapshot", "tdb", "tdb with mutexes", "SQLite"]
COUNTS = ["accesses", "system_calls", "bytes"]
SIZES = ["500", "5000", "50000"]


def median_and_spread(numbers):
    """The spread is in percent of the median."""
    median = statistics.median(numbers)
    low, _, high = statistics.quantiles(numbers, n=4) if len(numbers) > 1 else (median,) * 3
    return median, (high - low) / 2 / median * 100


class Figure:
    def __init__(self, runs):
        waits = runs[0]["name"].endswith(("/real_time", "/manual_time"))
        self.rounds = [run["real_time" if waits else "cpu_time"] * UNITS[run["time_unit"]] for run in runs]
        self.seconds, self.spread = median_and_spread(self.rounds)
        self.memory_kib = statistics.median(run.get("memory_kib", 0) for run in runs)
        self.shortest_seconds = min(run.get("shortest_seconds", 0) for run in runs)
        self.counts = [runs[0].get(name) for name in COUNTS]
        self.processor_seconds = statistics.median(run.get("processor_seconds", 0) for run in runs)

    def __str__(self):
        return f"{in_words(self.seconds)} ±{self.spread:.0f} %"

    def of_program(self):
        """Time, that of the shortest run, processor's time and memory of a program."""
        return [str(self), in_words(self.shortest_seconds), in_words(self.processor_seconds),
                f"{self.memory_kib / 1024:.1f} MiB"]


def in_words(seconds):
    unit = next(unit for unit in ("s", "ms", "us", "ns") if seconds >= UNITS[unit] or unit == "ns")
    number = seconds / UNITS[unit]
    return (f"{number:.3g}" if number < 100 else f"{number:.0f}") + " " + unit


def figures_of(files):
    runs, failures = {}, []
    for file in files:
        with open(file, encoding="utf-8") as stream:
            for run in json.load(stream)["benchmarks"]:
                name = "/".join(part for part in run["run_name"].split("/") if not ADDED_TO_NAMES.match(part))
                if run.get("error_occurred"):
                    failures.append(f"{name}: {run['error_message']}")
                elif run["run_type"] == "iteration":
                    runs.setdefault(name, []).append(run)
    return {name: Figure(found) for name, found in runs.items()}, failures


def print_table(title, head, rows):
    if not rows:
        return
    print(f"\n### {title}\n")
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for row in rows:
        print("| " + " | ".join(row) + " |")


def print_ratios(figures):
    rows = []
    for name, ours, other, relation, goal in RATIOS:
        if ours not in figures or other not in figures:
            continue
        pair = (figures[ours], figures[other]) if relation == TIMES_SLOWER else (figures[other], figures[ours])
        ratio, spread = median_and_spread([long / short for long, short in zip(pair[0].rounds, pair[1].rounds)])
        met = goal is None or (ratio <= goal if relation == TIMES_SLOWER else ratio >= goal)
        wanted = "" if goal is None else f"{'at most' if relation == TIMES_SLOWER else 'at least'} {goal:g}"
        rows.append([name, relation, other.split("/")[1], f"{ratio:.2f} ±{spread:.0f} %", wanted, "" if met else "missed"])
    print_table("Ratios", ["", "is", "", "ratio", "goal", ""], rows)


def print_limits(figures):
    rows = []
    for name, which, seconds, memory_kib in LIMITS:
        figure = figures.get(which)
        if figure is None:
            continue
        met = figure.seconds <= seconds and (memory_kib is None or figure.memory_kib <= memory_kib)
        wanted = f"{seconds * 1e3:g} ms" + (f", {memory_kib // 1024} MiB" if memory_kib else "")
        rows.append([name, *figure.of_program(), wanted, "" if met else "missed"])
    print_table("The command on the large model",
                ["", "time", "shortest run", "of a processor", "memory", "at most", ""], rows)


def pivot(figures, columns, key):
    """Rows in the order of the figures; key(parts) gives row and column, or None."""
    rows = {}
    for name, figure in figures.items():
        place = key(name.split("/"))
        if place is not None and place[1] in columns:
            rows.setdefault(place[0], {})[place[1]] = figure
    return rows


def print_pivot(figures, title, columns, key, least=1):
    rows = {what: row for what, row in pivot(figures, columns, key).items() if len(row) >= least}
    used = [column for column in columns if any(column in row for row in rows.values())]
    print_table(title, [""] + used, [[what] + [str(row.get(column, "")) for column in used]
                                     for what, row in sorted(rows.items())])


def print_all(figures):
    print_ratios(figures)
    print_limits(figures)
    print_pivot(figures, "By medium, 5,000 settings", MEDIA,
                lambda p: (p[0], p[1]) if len(p) == 3 and p[2] == "5000" and not p[0].startswith("processes") else None)
    print_pivot(figures, "By number of settings, memory medium", SIZES,
                lambda p: (p[0], p[2]) if len(p) == 3 and p[1] == "memory" else None, least=2)
    print_pivot(figures, "Beside other stores, 5,000 settings", STORES,
                lambda p: (p[0], p[1]) if len(p) == 3 and p[2] == "5000" else None, least=2)
    print_pivot(figures, "Processes at once, for each access of one of them", ["memory", "file"],
                lambda p: (p[0].removeprefix("processes, "), p[1]) if p[0].startswith("processes") else None)
    print_table("What is asked of media for each, 5,000 settings",
                ["", "accesses", "system calls on file media", "bytes"],
                [[name.split("/")[0], *(f"{count:,.0f}" for count in figure.counts)]
                 for name, figure in sorted(figures.items()) if None not in figure.counts])
    print_table("Locks", ["", "time"], [[name, str(figure)] for name, figure in sorted(figures.items())
                                        if name.startswith("lock")])
    print_table("Programs", ["", "time", "shortest run", "of a processor", "memory"],
                [[name, *figure.of_program()] for name, figure in sorted(figures.items()) if figure.memory_kib])


def main():
    output, files = sys.argv[1], sys.argv[2:]
    figures, failures = figures_of(files)
    with open(output, "w", encoding="utf-8") as stream:
        json.dump({name: vars(figure) for name, figure in figures.items()}, stream, indent=1)
    print_all(figures)
    for failure in failures:
        print(f"failed: {failure}", file=sys.stderr)
    return 1 if failures or not figures else 0


if __name__ == "__main__":
    sys.exit(main())
