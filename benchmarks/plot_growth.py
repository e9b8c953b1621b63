#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws the curves of growth from results files of the benchmarks, both axes logarithmic, with the
exponent that fits each curve best. Needs matplotlib.

    ./bench.sh --only growth
    benchmarks/plot_growth.py benchmarks/results/*-growth.jsonl docs/growth.png
"""

import json
import math
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402  the backend comes first


def read(paths):
    """Name of each curve -> its points (n, seconds), in ascending order."""
    curves = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for line in filter(str.strip, file):
                point = json.loads(line)
                if "curve" in point:
                    curves.setdefault(point["curve"], []).append((point["n"], point["seconds"]))
    return {name: sorted(points) for name, points in curves.items()}


def exponent(points):
    """The slope of the line that fits the logarithms best."""
    xs = [math.log(n) for n, _ in points]
    ys = [math.log(seconds) for _, seconds in points]
    mean_x, mean_y = sum(xs) / len(xs), sum(ys) / len(ys)
    return (sum((x - mean_x) * (y - mean_y) for x, y in zip(xs, ys))
            / sum((x - mean_x) ** 2 for x in xs))


def draw(curves, path):
    figure, axes = plt.subplots(figsize=(8.4, 5.2), dpi=100)
    for name, points in sorted(curves.items()):
        axes.loglog([n for n, _ in points], [seconds for _, seconds in points], "o-", markersize=4,
                    label=f"{name} ({exponent(points):.2f})")
    axes.set_xlabel("number of tiles, fragments, fields or files")
    axes.set_ylabel("seconds")
    axes.grid(True, which="major", linewidth=0.4)
    axes.legend(title="what, of what (exponent)", fontsize=8, title_fontsize=8)
    figure.tight_layout()
    figure.savefig(path)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    curves = read(sys.argv[1:-1])
    if not curves:
        sys.exit("no curves in " + " ".join(sys.argv[1:-1]))
    draw(curves, sys.argv[-1])


if __name__ == "__main__":
    main()
