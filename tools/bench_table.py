#!/usr/bin/env python3
"""Turns the output of the benchmarks into Markdown tables.

usage: bench_table.py TIMES.json [MEMORY.json]

TIMES.json is what `nox_bench --benchmark_out=...` wrote, MEMORY.json what `nox_bench_memory`
printed. Times are medians of the processor time; the best peer of each line is set in bold.
"""

import json
import sys
from collections import defaultdict

OURS = ("nox", "nox-stream", "nox-data", "nox-build")
LIMITS = ("limit", "flat")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(report):
    """{"W1/encode": {"limit": 4.6, ...}, ...}, from repetitions or from single runs."""
    rows = defaultdict(dict)
    for run in report["benchmarks"]:
        if run["run_type"] == "aggregate" and run["aggregate_name"] != "median":
            continue
        if run["run_type"] == "iteration" and run.get("repetitions", 1) > 1:
            continue
        row, participant = run["run_name"].split("/repeats:")[0].rsplit("/", 1)
        rows[row][participant] = run["cpu_time"] * NANOSECONDS[run["time_unit"]]
    return rows


def columns(rows):
    """The participants in the order of limits, ourselves, peers."""
    seen = {participant for row in rows.values() for participant in row}
    first = [name for name in LIMITS + OURS if name in seen]
    return first + sorted(seen - set(first))


def best_peer(row):
    peers = {name: time for name, time in row.items() if name not in OURS + LIMITS}
    return min(peers, key=peers.get) if peers else None


def show_time(ns):
    return f"{ns:.1f}" if ns < 100 else f"{ns:,.0f}"


def show_ratio(row, other):
    return f"{row['nox'] / row[other]:.2f}" if "nox" in row and other in row else ""


def print_table(head, lines):
    print("| " + " | ".join(head) + " |")
    print("|---" + "|---:" * (len(head) - 1) + "|")
    for line in lines:
        print("| " + " | ".join(line) + " |")


def time_lines(rows, names):
    for key in sorted(rows):
        row = rows[key]
        best = best_peer(row)
        cells = [show_time(row[name]) if name in row else "" for name in names]
        if best:
            cells[names.index(best)] = f"**{show_time(row[best])}**"
        yield [key.replace("/", " ")] + cells + [show_ratio(row, "limit"), show_ratio(row, best)]


def memory_lines(rows, names, show):
    for key in sorted(rows):
        row = rows[key]
        yield [key.replace("/", " ")] + [show(row[name]) if name in row else "" for name in names]


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.strip())
    with open(sys.argv[1], encoding="utf-8") as file:
        rows = medians(json.load(file))
    names = columns(rows)
    print("Nanoseconds per message, medians\n")
    print_table(["", *names, "nox : limit", "nox : best peer"], time_lines(rows, names))
    if len(sys.argv) < 3:
        return
    with open(sys.argv[2], encoding="utf-8") as file:
        report = json.load(file)
    memory = defaultdict(dict)
    for name, found in report.items():
        row, participant = name.rsplit("/", 1)
        memory[row][participant] = found
    names = columns(memory)
    print("\nAllocations per message\n")
    print_table(["", *names],
                memory_lines(memory, names, lambda found: f"{found['allocations']:,}"))
    print("\nMost bytes held at a time while a message is worked on\n")
    print_table(["", *names],
                memory_lines(memory, names, lambda found: f"{found['peak_bytes']:,}"))
    print("\nBytes of an encoded message\n")
    encoded = {row.split("/")[0]: memory[row] for row in memory if row.endswith("/encode")}
    print_table(["", *names],
                memory_lines(encoded, names, lambda found: f"{found['message_bytes']:,}"))


main()
