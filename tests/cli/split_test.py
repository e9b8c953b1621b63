# SPDX-License-Identifier: Apache-2.0
"""Splits from end to end: results as JSON, restarts with the same and with other plans, inputs of
every kind."""

import json
import shutil
import unittest

from support import ProgramTest, digests

LENGTH = ("--fragment-length", "30")


class SplitTest(ProgramTest):
    def setUp(self) -> None:
        super().setUp()
        self.make_survey("in.las", "100k")

    def points_of(self, name: str) -> int:
        shown = json.loads(self.run_program("show", name, "--json").stdout)
        return shown["slices"][0]["grids"][0]["points"]

    def test_every_point_is_in_one_tile(self):
        report = self.split_json("in.las", "-o", "out.f5", *LENGTH)
        tiles = report["tiles"]
        self.assertEqual(tiles["written"] + tiles["dropped"], tiles["withData"])
        self.assertEqual(report["points"]["input"], report["points"]["output"])
        self.assertTrue(report["points"]["agree"])
        shown = json.loads(self.run_program("show", "out.f5", "--json").stdout)
        grid = shown["slices"][0]["grids"][0]
        self.assertEqual(grid["points"], report["points"]["input"])
        self.assertEqual(len(grid["fragments"]), tiles["written"])
        self.assertEqual(grid["attributes"]["FragDims"], report["plan"]["grids"][0]["tiles"])
        for fragment in grid["fragments"]:
            i, j, k = fragment["index"]
            self.assertEqual(fragment["file"], f"out/F{i}x{j}x{k}T0.000000Gpoints.f5")
            self.assertEqual(self.points_of(fragment["file"]), fragment["points"])

    def test_second_run_keeps_every_tile(self):
        first = self.split_json("in.las", "-o", "out.f5", *LENGTH)
        before = digests(self.folder)
        second = self.split_json("in.las", "-o", "out.f5", *LENGTH)
        self.assertEqual(second["tiles"]["kept"], first["tiles"]["written"])
        self.assertEqual(second["tiles"]["written"], 0)
        self.assertTrue(second["resumed"])
        self.assertEqual(digests(self.folder), before)

    def test_any_number_of_threads_gives_the_same_bytes(self):
        for threads in ("1", "2", "4"):
            self.split_json("in.las", "-o", f"t{threads}/out.f5", *LENGTH, "--threads", threads)
        results = [{name: digest for name, digest in digests(self.folder / f"t{n}").items()
                    if not name.endswith("plan.json")} for n in (1, 2, 4)]
        self.assertEqual(results[0], results[1])
        self.assertEqual(results[0], results[2])

    def test_another_plan_is_refused_and_forced(self):
        self.split_json("in.las", "-o", "out.f5", *LENGTH)
        before = digests(self.folder)
        for change in (("--fragment-length", "31"), (*LENGTH, "--overlap", "0.1"),
                       (*LENGTH, "--min-points", "3"), (*LENGTH, "--field", "Intensity"), (*LENGTH, "--keep-order"),
                       (*LENGTH, "--storage", "raw"), (*LENGTH, "--output-grid", "other")):
            done = self.run_program("split", "in.las", "-o", "out.f5", *change, status=1)
            self.assertIn("another plan", done.stderr)
            self.assertEqual(digests(self.folder), before)
        report = self.split_json("in.las", "-o", "out.f5", "--fragment-length", "31", "--force")
        self.assertEqual(report["tiles"]["kept"], 0)
        self.assertTrue(report["points"]["agree"])

    def test_input_that_was_written_anew_is_another_plan(self):
        self.split_json("in.las", "-o", "out.f5", *LENGTH)
        self.make_survey("in.las", "100k", "--seed", "2", "--force")
        done = self.run_program("split", "in.las", "-o", "out.f5", *LENGTH, status=1)
        self.assertIn("input 1", done.stderr)

    def test_dropped_points_are_accounted_for(self):
        report = self.split_json("in.las", "-o", "out.f5", "--fragment-length", "7",
                                 "--min-points", "300")
        points = report["points"]
        self.assertGreater(report["tiles"]["dropped"], 0)
        self.assertGreater(points["dropped"], 0)
        self.assertEqual(points["output"] + points["dropped"], points["input"])
        self.assertTrue(points["agree"])

    def test_points_outside_a_box_are_accounted_for(self):
        box = self.info("in.las")["box"]
        middle = [(low + high) / 2 for low, high in zip(box["min"], box["max"])]
        report = self.split_json("in.las", "-o", "out.f5", "--fragment-length", "10", "--start",
                                 f"{middle[0]},{middle[1]},{box['min'][2]}", "--end",
                                 ",".join(str(x) for x in box["max"]))
        points = report["points"]
        self.assertGreater(points["outside"], 0)
        self.assertEqual(points["output"] + points["outside"], points["input"])
        self.assertTrue(points["agree"])

    def info(self, *arguments: str) -> dict:
        return json.loads(self.run_program("info", *arguments, "--json").stdout)["grids"][0]

    def test_overlap_is_not_compared(self):
        report = self.split_json("in.las", "-o", "out.f5", *LENGTH, "--overlap", "0.25")
        self.assertGreater(report["points"]["output"], report["points"]["input"])
        self.assertFalse(report["points"]["compared"])
        self.assertIsNone(report["points"]["agree"])

    def test_bundles_split_like_the_clouds_they_came_from(self):
        self.run_program("import", "in.las", "-o", "in.f5")
        cloud = self.split_json("in.las", "-o", "a.f5", *LENGTH)
        bundle = self.split_json("in.f5", "-o", "b.f5", *LENGTH)
        self.assertEqual(cloud["points"]["output"], bundle["points"]["output"])
        self.assertEqual(cloud["tiles"], bundle["tiles"])

    def test_tiles_can_be_split_again(self):
        first = self.split_json("in.las", "-o", "a.f5", *LENGTH)
        again = self.split_json("a.f5", "-o", "b.f5", "--fragment-length", "17")
        self.assertEqual(again["points"]["output"], first["points"]["input"])

    def test_several_files_are_one_cloud(self):
        self.make_survey("two.las", "50k", "--seed", "2")
        points = self.info("in.las")["points"] + self.info("two.las")["points"]
        (self.folder / "both").mkdir()
        shutil.move(self.folder / "in.las", self.folder / "both")
        shutil.move(self.folder / "two.las", self.folder / "both")
        self.assertEqual(self.info("both")["points"], points)
        self.assertEqual(self.info("both/*.las")["points"], points)
        report = self.split_json("both", "-o", "out.f5", *LENGTH)
        self.assertEqual(report["points"]["output"], points)

    def test_tiles_can_go_elsewhere(self):
        report = self.split_json("in.las", "-o", "out.f5", "--output-dir", "tiles/deep", *LENGTH)
        self.assertEqual(report["tileFolder"], str(self.folder / "tiles/deep/out"))
        self.assertFalse((self.folder / "out").exists())
        self.assertTrue(report["points"]["agree"])

    def test_moved_output_still_opens(self):
        self.split_json("in.las", "-o", "first/out.f5", *LENGTH)
        shutil.move(self.folder / "first", self.folder / "second")
        self.assertEqual(self.points_of("second/out.f5"), self.info("in.las")["points"])

    def test_every_kind_of_storage_holds_the_same(self):
        totals = set()
        for kind in ("grid", "deflate", "raw"):
            report = self.split_json("in.las", "-o", f"{kind}.f5", *LENGTH, "--storage", kind)
            totals.add(report["points"]["output"])
        self.assertEqual(len(totals), 1)

    def test_input_is_never_overwritten(self):
        self.run_program("import", "in.las", "-o", "in.f5")
        before = digests(self.folder)
        self.run_program("split", "in.f5", "-o", "in.f5", *LENGTH, "--force", status=2)
        self.assertEqual(digests(self.folder), before)
        self.split_json("in.las", "-o", "out.f5", *LENGTH)
        before = digests(self.folder)
        self.run_program("split", "out.f5", "-o", "sub/out.f5", "--output-dir", ".",
                         "--fragment-length", "9", "--force", status=2)
        self.assertEqual(digests(self.folder), before)


if __name__ == "__main__":
    unittest.main()
