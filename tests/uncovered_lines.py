#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares the lines that gcovr saw uncovered with those that a file names.

    uncovered_lines.py COVERAGE.json NAMED.txt LEAST_PERCENT

NAMED.txt holds, for each uncovered line, "path: the line's text" and below it
the reason, indented. Texts instead of numbers: a line may move. A text that is
uncovered in several places of a file is named as often. Fails when a line is
uncovered and not named, when a named line is covered or gone, when a reason is
missing and when the whole is below LEAST_PERCENT.
"""
import collections
import json
import sys


def uncovered(report):
    """Counter of (path, text) without a hit, and the numbers of lines covered and in all."""
    found, hit, total = collections.Counter(), 0, 0
    where = collections.defaultdict(list)
    for file in report["files"]:
        with open(file["file"], encoding="utf-8") as source:
            texts = source.read().splitlines()
        counts = collections.Counter()
        for line in file["lines"]:  # a template or an inline function may have several records for a line
            if not line.get("gcovr/noncode"):
                counts[line["line_number"]] += line["count"]
        total += len(counts)
        hit += sum(1 for count in counts.values() if count)
        for number, count in sorted(counts.items()):
            if count == 0:
                key = (file["file"], texts[number - 1].strip())
                found[key] += 1
                where[key].append(number)
    return found, where, hit, total


def named(path):
    """Counter of (path, text), and what is wrong with the file."""
    found, wrong, last = collections.Counter(), [], None
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            line = line.rstrip("\n")
            if not line.strip() or line.startswith("#"):
                continue
            if line.startswith(" "):
                last = None
                continue
            if last:
                wrong.append(f"{path}:{last}: no reason is given")
            source, _, text = line.partition(": ")
            found[(source, text.strip())] += 1
            last = number
    if last:
        wrong.append(f"{path}:{last}: no reason is given")
    return found, wrong


def main(report_path, named_path, least):
    with open(report_path, encoding="utf-8") as report:
        missing, where, hit, total = uncovered(json.load(report))
    known, wrong = named(named_path)
    for (source, text), count in sorted((missing - known).items()):
        wrong.append(f"{source}:{where[source, text]}: uncovered and not named: {text}" + (f" ({count} times)" if count > 1 else ""))
    for source, text in sorted(known - missing):
        wrong.append(f"{named_path}: covered or gone: {source}: {text}")
    percent = 100 * hit / total if total else 0
    print("\n".join(wrong + [f"{hit} of {total} lines covered: {percent:.2f} %"]))
    if percent < least:
        print(f"that is below {least:g} %")
    return 1 if wrong or percent < least else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], float(sys.argv[3])))
