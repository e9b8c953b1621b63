#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the table that benchmarks/summarise.py makes of results."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).parents[2] / "benchmarks" / "summarise.py"


def measurement(goal, name, ratio, limit=None, bound="at most", met=True):
    line = {"goal": goal, "name": name, "ratio": ratio}
    if limit is not None:
        line.update(limit=limit, bound=bound, met=met)
    return line


def table(*lines):
    """The cells of each row, without the head."""
    with tempfile.NamedTemporaryFile("w", suffix=".jsonl") as file:
        file.writelines(json.dumps(line) + "\n" for line in lines)
        file.flush()
        done = subprocess.run([sys.executable, SCRIPT, file.name], capture_output=True, text=True, check=True)
    rows = [row for row in done.stdout.splitlines() if row.startswith("|")]
    return [[cell.strip() for cell in row.strip("|").split("|")] for row in rows[2:]]


class TableOfGoals(unittest.TestCase):
    def test_worst_of_a_goal_is_the_one_farthest_beyond_its_limit(self):
        rows = table(measurement("1a", "near", 1.2, 1.5), measurement("1a", "far", 1.9, 1.5, met=False),
                     measurement("1a", "nearer", 1.1, 1.5))
        self.assertEqual(len(rows), 1)
        self.assertEqual(rows[0][2:], ["at most 1.5", "1.9", "MISSED, 2 of 3", "far"])

    def test_worst_is_the_smallest_where_a_limit_is_to_be_reached(self):
        rows = table(measurement("5a", "slow", 0.5, 0.8, "at least", False),
                     measurement("5a", "fast", 0.9, 0.8, "at least"))
        self.assertEqual(rows[0][2:], ["at least 0.8", "0.5", "MISSED, 1 of 2", "slow"])

    def test_what_could_not_be_done_is_worse_than_any_number(self):
        rows = table(measurement("6d", "done", 9.0, 1.0, met=False),
                     measurement("6d", "undone", None, 1.0, met=False))
        self.assertEqual(rows[0][3:], ["not done", "MISSED, 0 of 2", "undone"])

    def test_goals_are_in_the_order_of_their_numbers(self):
        rows = table(measurement("10", "", 1.0, 2.0), measurement("9b", "", 1.0, 2.0),
                     measurement("9a", "", 1.0, 2.0), measurement("3", "", 1.0, 2.0))
        self.assertEqual([row[0] for row in rows], ["3", "9a", "9b", "10"])

    def test_without_a_limit_the_figure_is_told(self):
        rows = table(measurement("9b", "restart", 1.7))
        self.assertEqual(rows[0][2:5], ["none", "1.7", "told"])

    def test_lines_beside_the_goals_and_curves_are_left_out(self):
        rows = table(measurement("", "beside", 3.0), {"curve": "tiles", "n": 10, "seconds": 1.0},
                     measurement("1b", "goal", 2.0, 2.5))
        self.assertEqual([row[0] for row in rows], ["1b"])


if __name__ == "__main__":
    unittest.main()
