#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Turns the results of the benchmark programs into tables (Markdown).

    report.py times FILE...         one file of aaa_bench per run (JSON)
    report.py peers FILE...         one file of aaa_peers per run (JSON)
    report.py instructions DIR      the output of list_count (names) and callgrind's dumps (dump*)
    report.py machine               processor, load, system and compiler
"""
import glob
import json
import os
import platform
import re
import statistics
import subprocess
import sys

# Highest ratio to the plain loops that meets the target.
TIME_TARGETS = {
    "round_trip/10": 1.3, "round_trip/1000": 1.3, "round_trip/10000": 0.65,
    "build/10": 2.0, "build_pack/10": 1.4, "unpack/10": 1.3, "unpack/1000": 1.1,
    "lookup5/10": 1.2, "lookup5/1000": 0.65,
    **{f"lookup_{place}/{size}": 0.35 for place in ("early", "middle", "late", "absent") for size in (100, 1000)},
}
INSTRUCTION_TARGETS = {"round_trip/10": 2.1}
# Most instructions that this row of the library may take.
COUNT_ROW, COUNT_SIZE, COUNT_TARGET = "round_trip", 10, 2800
# Cost per attribute of the longest round trip over that of a short one.
FLAT_ROW, FLAT_LONG, FLAT_SHORT, FLAT_TARGET = "round_trip", 10000, 100, 1.15

FORMS = ("_plain_preallocated", "_plain")
STEPS = ["build", "build_pack", "unpack", "lookup5", "round_trip"]
SETS = ["login", "varied", "varied_100"]
BASELINE, PLAIN = "aaautil", "plain"
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def list_row(name):
    """(row, attributes, form) of ROW[FORM]/SIZE or ROW_SIZE[FORM]; None for the rows of other benchmarks."""
    if not name[0].islower():
        return None
    row, _, size = name.partition("/")
    form = next((form for form in FORMS if row.endswith(form)), "")
    row = row.removesuffix(form)
    if not size:
        row, _, size = row.rpartition("_")
    return row, int(size), form


class Runs:
    """The measured values: for every name the repetitions of each run."""

    def __init__(self):
        self.values = {}

    def add(self, name, run, value):
        self.values.setdefault(name, {}).setdefault(run, []).append(value)

    def __contains__(self, name):
        return name in self.values

    def all(self, name):
        return [value for run in self.values[name].values() for value in run]

    def median(self, name):
        return statistics.median(self.all(name))

    def spread(self, name):
        return range_cell(self.all(name), 1)

    def ratios(self, name, baseline):
        """Ratios of the medians of each run, because a slow moment affects both."""
        return [statistics.median(values) / statistics.median(self.values[baseline][run])
                for run, values in self.values[name].items()]


def verdict(value, target, digits=2):
    if target is None:
        return "| "
    return f"{target:.{digits}f} | {'met' if value <= target else '**missed**'}"


def range_cell(values, digits):
    """Lowest and highest value; empty for a single one, as instruction counts are."""
    return f"{min(values):.{digits}f}..{max(values):.{digits}f}" if len(values) > 1 else ""


def ratio_cells(ratios):
    return f"{statistics.median(ratios):.2f} | {range_cell(ratios, 2)}" if ratios else "– | –"


def list_table(measured, unit, targets):
    """measured: names are (row, attributes, form)."""
    print(f"| row | attributes | library/{unit} | min..max | plain/{unit} | min..max | preallocated/{unit}"
          f" | {unit} per attribute | library to plain | from..to | library to preallocated | from..to | target | |")
    print("|---|" + "--:|" * 12 + "---|")
    for row, size, form in sorted(measured.values, key=lambda key: (STEPS.index(key[0]) if key[0] in STEPS else -1, key)):
        library, plain, preallocated = (row, size, ""), (row, size, "_plain"), (row, size, "_plain_preallocated")
        if form or plain not in measured:
            continue
        time, ratios = measured.median(library), measured.ratios(library, plain)
        allocates = preallocated in measured
        print(f"| {row} | {size} | {time:.1f} | {measured.spread(library)} | {measured.median(plain):.1f} |"
              f" {measured.spread(plain)} | {format(measured.median(preallocated), '.1f') if allocates else '–'} |"
              f" {time / size:.2f} | {ratio_cells(ratios)} |"
              f" {ratio_cells(measured.ratios(library, preallocated) if allocates else [])} |"
              f" {verdict(statistics.median(ratios), targets.get(f'{row}/{size}'))} |")


def flatness(measured):
    long, short = (FLAT_ROW, FLAT_LONG, ""), (FLAT_ROW, FLAT_SHORT, "")
    if long in measured and short in measured:
        ratio = statistics.median(measured.ratios(long, short)) * FLAT_SHORT / FLAT_LONG
        print(f"\nCost per attribute of {FLAT_ROW}, {FLAT_LONG} attributes over {FLAT_SHORT}: {ratio:.2f}"
              f" (target {verdict(ratio, FLAT_TARGET).replace(' |', ',')})")


def other_rows(rows):
    if rows:
        print("\n| row | time/ns | further |\n|---|--:|---|")
    for name, row in rows.items():
        counters = ", ".join(f"{k} {row[k]:.1f}" for k in ("median_us", "p99_us", "entries") if k in row)
        print(f"| {name} | {row['real_time'] * NANOSECONDS[row['time_unit']]:.1f} | {counters} |")


def rows_of(run):
    """Name, row and time/ns of every repetition."""
    for row in run["benchmarks"]:
        if row.get("run_type") != "aggregate":
            yield row["run_name"], row, row["cpu_time"] * NANOSECONDS[row["time_unit"]]


def times(files):
    measured, others, distribution = Runs(), {}, ""
    for file in files:
        run = json.load(open(file))
        for name, row, time in rows_of(run):
            if list_row(name):
                measured.add(list_row(name), file, time)
                distribution = run["context"].get("lists", "")
            else:
                others[name] = row
    if measured.values:
        print(f"{distribution}\n")
        list_table(measured, "ns", TIME_TARGETS)
        flatness(measured)
    other_rows(others)


def instructions(directory):
    iterations = dict(line.split() for line in open(os.path.join(directory, "names")))
    dumps, measured = {}, Runs()
    for file in glob.glob(os.path.join(directory, "dump*")):
        text = open(file).read()
        trigger = re.search(r"Client Request: (\S+)", text)
        if trigger:
            dumps[trigger[1]] = int(re.search(r"^(?:summary|totals): (\d+)", text, re.M)[1])
    for name, count in iterations.items():
        measured.add(list_row(name), 0, dumps[name] / int(count))
    list_table(measured, "instr", INSTRUCTION_TARGETS)
    count = measured.median((COUNT_ROW, COUNT_SIZE, ""))
    print(f"\nInstructions of {COUNT_ROW}, {COUNT_SIZE} attributes: {count:.0f}"
          f" (target {verdict(count, COUNT_TARGET, 0).replace(' |', ',')})")


def peers_summary(measured, set_name, peers):
    """One line for each peer with its ratio in every step."""
    print(f"Time over that of {BASELINE} in the same run; below 1 the peer is faster, – is explained below.\n")
    print(f"| peer | {' | '.join(STEPS)} |\n|---|" + "--:|" * len(STEPS))
    for peer in peers:
        cells = []
        for step in STEPS:
            name, baseline = (step, set_name, peer), (step, set_name, BASELINE)
            ratio = statistics.median(measured.ratios(name, baseline)) if name in measured else None
            cells.append("–" if ratio is None else f"**{ratio:.2f}**" if ratio < 1 else f"{ratio:.2f}")
        print(f"| {peer} | {' | '.join(cells)} |")


def peers_detail(measured, set_name, peers, sizes):
    print("\n| step | peer | message/bytes | min/ns | median/ns | max/ns | ratio | from..to |\n|---|---|"
          + "--:|" * 6)
    for step in STEPS:
        for peer in peers:
            name = (step, set_name, peer)
            if name in measured:
                values = measured.all(name)
                print(f"| {step} | {peer} | {sizes[name]:.0f} | {min(values):.1f} | {statistics.median(values):.1f} |"
                      f" {max(values):.1f} | {ratio_cells(measured.ratios(name, (step, set_name, BASELINE)))} |")


def peers(files):
    measured, sizes, context = Runs(), {}, {}
    for file in files:
        run = json.load(open(file))
        context = run["context"]
        for name, row, time in rows_of(run):
            key = tuple(name.split("/"))
            measured.add(key, file, time)
            sizes[key] = row["bytes"]
    names = sorted({peer for _, _, peer in measured.values}, key=lambda peer: (peer != BASELINE, peer != PLAIN, peer))
    for set_name in SETS:
        print(f"### Messages: {set_name}\n\n{context['messages ' + set_name]}.\n")
        present = [peer for peer in names if ("unpack", set_name, peer) in measured]
        peers_summary(measured, set_name, present)
        peers_detail(measured, set_name, present, sizes)
        print()
    print("### What a peer cannot do\n")
    for peer in names:
        if context[f"peer {peer}"]:
            print(f"- {peer}: {context[f'peer {peer}']}")


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def first_processor():
    """The fields of the first processor in /proc/cpuinfo; other architectures have other names, or none."""
    fields = {}
    for line in open("/proc/cpuinfo"):
        name, colon, value = line.partition(":")
        if not colon:
            break
        fields[name.strip()] = value.strip()
    return fields


def governor():
    try:
        return open("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor").read().strip()
    except OSError:
        return "not readable"


def machine():
    processor = first_processor()
    system = next(line.split("=")[1].strip().strip('"') for line in open("/etc/os-release")
                  if line.startswith("PRETTY_NAME="))
    numbers = ", ".join(f"{name.removeprefix('cpu ')} {processor[name]}"
                        for name in ("cpu family", "model", "stepping") if name in processor)
    load, cores = os.getloadavg()[0], os.cpu_count()
    print(f"- processor: {processor.get('model name', platform.machine())}, {numbers}; {cores} cores;"
          f" governor {governor()}")
    # The benchmark itself makes a load of 1.
    print(f"- load at the end: {load:.1f}" + (", on a machine shared with other work: times are too high, and only"
                                              " ratios with a narrow from..to are valid" if load > 1.5 else ""))
    print(f"- system: {system}, Linux {platform.release()}, {platform.libc_ver()[0]} {platform.libc_ver()[1]}")
    print(f"- compiler: {first_line('c++', '--version')}, preset release")


if __name__ == "__main__":
    {"times": lambda: times(sys.argv[2:]), "peers": lambda: peers(sys.argv[2:]),
     "instructions": lambda: instructions(sys.argv[2]), "machine": machine}[sys.argv[1]]()
