#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes a table of the goals from a results file of the benchmarks: for each goal the measurement
that is worst off, and how many of its measurements are met.

    benchmarks/summarise.py RESULTS.jsonl
"""

import json
import re
import sys

# What stands behind the number of a goal.
GOALS = {
    "1a": "LAS to tiles, raw storage, to a plain scatter",
    "1b": "LAS to tiles, default storage, to a plain scatter",
    "2a": "LAZ to tiles, to decoding alone",
    "2b": "decodes per LAZ chunk with a tenth of the budget",
    "2c": "tiles with a tenth of the budget, to the floor",
    "3": "peak memory, to budget + a tile per thread + 100 MB",
    "4a": "size in default storage, to LAZ",
    "4b": "speed of reading tiles, to decoding LAZ",
    "5a": "point selection, share of read bandwidth",
    "5b": "field copy, share of a plain gather",
    "6a": "mapping a million tiles, to 1 s",
    "6b": "mapping a million tiles, to 300 bytes a tile",
    "6c": "mapping a million fragments, to 1 s",
    "6d": "refusing (to 1 s) or planning (to 8 GB) fifty million tiles",
    "6e": "info with ten times the points",
    "7a": "linking a tile, to opening and closing its file",
    "7b": "opening a million links, to 0.5 s",
    "7c": "saving a million links, to 2 s",
    "8a": "speed-up by a second thread",
    "8b": "exponent of growth",
    "9a": "start-up, to 50 ms",
    "9b": "restart with all tiles there, to linking them",
    "10a": "LAZ to a bundle, to decoding alone",
    "10b": "a bundle to LAZ, to encoding alone",
}


def read(path):
    """The measurements of a file; points of curves are left out."""
    with open(path, encoding="utf-8") as file:
        lines = [json.loads(line) for line in file if line.strip()]
    return [line for line in lines if line.get("goal")]


def badness(measurement):
    """How far a measurement is from its limit: above 1 is missed."""
    ratio, limit = measurement["ratio"], measurement.get("limit")
    if ratio is None:
        return float("inf")
    if limit is None:
        return ratio
    return limit / max(ratio, 1e-12) if measurement["bound"] == "at least" else ratio / limit


def order(goal):
    number, letters = re.fullmatch(r"(\d+)(\w*)", goal).groups()
    return int(number), letters


def row(goal, measurements):
    """One row of the table."""
    worst = max(measurements, key=badness)
    measured = "not done" if worst["ratio"] is None else f"{worst['ratio']:.3g}"
    if "limit" in worst:
        limit = f"{worst['bound']} {worst['limit']:g}"
        met = sum(measurement["met"] for measurement in measurements)
        verdict = "met" if met == len(measurements) else "MISSED"
        verdict += f", {met} of {len(measurements)}"
    else:
        limit, verdict = "none", "told"
    return [goal, GOALS.get(goal, ""), limit, measured, verdict, worst["name"]]


def table(rows):
    """Lines of a table that reads as text and as Markdown."""
    widths = [max(len(cells[column]) for cells in rows) for column in range(len(rows[0]))]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |"
             for cells in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return lines


def summarise(measurements):
    goals = sorted({measurement["goal"] for measurement in measurements}, key=order)
    rows = [["goal", "what", "limit", "worst", "verdict", "where"]]
    for goal in goals:
        rows.append(row(goal, [m for m in measurements if m["goal"] == goal]))
    return table(rows)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    measurements = read(sys.argv[1])
    if not measurements:
        print(f"{sys.argv[1]}: no measurements of goals")
        return
    print("\n".join(summarise(measurements)))


if __name__ == "__main__":
    main()
