#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Turns what the benchmark programs measured into tables (Markdown).

    report.py times FILE...         one file of aaa_bench per run (JSON)
    report.py instructions DIR      what list_count printed (names) and callgrind's dumps (dump*)
    report.py machine               what a result depends on
"""
import glob
import json
import os
import platform
import re
import statistics
import subprocess
import sys

# Ratio to the plain loops that is to be reached.
TIME_TARGETS = {
    "round_trip/10": 1.3, "round_trip/1000": 1.3, "round_trip/10000": 0.65,
    "build/10": 2.0, "build_pack/10": 1.4, "unpack/10": 1.3, "unpack/1000": 1.1,
    "lookup5/10": 1.2, "lookup5/1000": 0.65,
}
INSTRUCTION_TARGETS = {"round_trip/10": 2.1}
# Cost per attribute of the longest round trip over that of a short one.
FLAT_ROW, FLAT_LONG, FLAT_SHORT, FLAT_TARGET = "round_trip", 10000, 100, 1.15

ROWS = ["build", "build_pack", "unpack", "lookup5", "round_trip"]
SIZES = [10, 100, 1000, 10000]
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def verdict(ratio, target):
    if target is None:
        return "| "
    return f"{target:.2f} | {'met' if ratio <= target else '**missed**'}"


def list_table(measured, unit, targets):
    """measured: name -> one value per run. Library and plain of one run are compared with each other."""
    print(f"| row | attributes | library/{unit} | plain/{unit} | {unit} per attribute | ratio | from..to | target | |")
    print("|---|--:|--:|--:|--:|--:|--:|--:|---|")
    for row in ROWS:
        for size in SIZES:
            name = f"{row}/{size}"
            library, plain = measured.get(name), measured.get(f"{row}_plain/{size}")
            if not library or not plain:
                continue
            ratios = [a / b for a, b in zip(library, plain)]
            ratio, time = statistics.median(ratios), statistics.median(library)
            print(f"| {row} | {size} | {time:.1f} | {statistics.median(plain):.1f} | {time / size:.2f} | {ratio:.2f} |"
                  f" {min(ratios):.2f}..{max(ratios):.2f} | {verdict(ratio, targets.get(name))} |")


def flatness(measured):
    long, short = measured.get(f"{FLAT_ROW}/{FLAT_LONG}"), measured.get(f"{FLAT_ROW}/{FLAT_SHORT}")
    if long and short:
        ratio = statistics.median(a / FLAT_LONG / (b / FLAT_SHORT) for a, b in zip(long, short))
        print(f"\nCost per attribute of {FLAT_ROW}, {FLAT_LONG} attributes over {FLAT_SHORT}: {ratio:.2f}"
              f" (target {verdict(ratio, FLAT_TARGET).replace(' |', ',')})")


def other_rows(rows):
    if rows:
        print("\n| row | time/ns | further |\n|---|--:|---|")
    for name, row in rows.items():
        counters = ", ".join(f"{k} {row[k]:.1f}" for k in ("median_us", "p99_us", "entries") if k in row)
        print(f"| {name} | {row['real_time'] * NANOSECONDS[row['time_unit']]:.1f} | {counters} |")


def times(files):
    measured, others = {}, {}
    for file in files:
        run = {}
        for row in json.load(open(file))["benchmarks"]:
            if row.get("run_type") == "aggregate":
                continue
            name = row["run_name"]
            if name.split("/")[0].removesuffix("_plain") in ROWS:
                run.setdefault(name, []).append(row["cpu_time"] * NANOSECONDS[row["time_unit"]])
            else:
                others[name] = row
        for name, values in run.items():
            measured.setdefault(name, []).append(statistics.median(values))
    if measured:
        list_table(measured, "ns", TIME_TARGETS)
        flatness(measured)
    other_rows(others)


def instructions(directory):
    iterations = dict(line.split() for line in open(os.path.join(directory, "names")))
    measured = {}
    for file in glob.glob(os.path.join(directory, "dump*")):
        text = open(file).read()
        trigger = re.search(r"Client Request: (\S+)", text)
        if trigger:
            total = int(re.search(r"^(?:summary|totals): (\d+)", text, re.M)[1])
            measured[trigger[1]] = [total / int(iterations[trigger[1]])]
    list_table(measured, "instr", INSTRUCTION_TARGETS)


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def machine():
    model = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                 platform.machine())
    system = next(line.split("=")[1].strip().strip('"') for line in open("/etc/os-release")
                  if line.startswith("PRETTY_NAME="))
    print(f"- machine: {model}, {os.cpu_count()} cores; load at the end {os.getloadavg()[0]:.1f}")
    print(f"- system: {system}, Linux {platform.release()}, {platform.libc_ver()[0]} {platform.libc_ver()[1]}")
    print(f"- compiler: {first_line('c++', '--version')}, preset release")


if __name__ == "__main__":
    {"times": lambda: times(sys.argv[2:]), "instructions": lambda: instructions(sys.argv[2]),
     "machine": machine}[sys.argv[1]]()
