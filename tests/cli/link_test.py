# SPDX-License-Identifier: Apache-2.0
"""All tiles in one file, tiles linked afterwards, and the check that all is there."""

import json
import os
import shutil
import signal
import time
import unittest

from support import ProgramTest, digests, leftovers

LENGTH = ("--fragment-length", "30")


class LinkTest(ProgramTest):
    def setUp(self) -> None:
        super().setUp()
        self.make_survey("in.las", "60k")
        self.split_json("in.las", "-o", "tiles.f5", *LENGTH)
        self.tiles = sorted(path.name for path in (self.folder / "tiles").glob("F*.f5"))

    def json_of(self, *arguments: str, **options) -> dict:
        return json.loads(self.run_program(*arguments, "--json", **options).stdout)

    def grid_of(self, name: str) -> dict:
        return self.json_of("show", name, "--ranges")["slices"][0]["grids"][0]

    def complaint(self, *arguments: str, status: int = 1) -> str:
        """The one line that says what is wrong; nothing may be left behind."""
        before = digests(self.folder)
        done = self.run_program(*arguments, status=status)
        self.assertEqual(digests(self.folder), before)
        lines = done.stderr.splitlines()
        self.assertEqual(len(lines), 1, done.stderr)
        return lines[0]

    def test_single_file_holds_what_the_tiles_hold(self):
        report = self.split_json("in.las", "-o", "one.f5", *LENGTH, "--single-file")
        self.assertEqual(report["tiles"]["written"], len(self.tiles))
        self.assertTrue(report["points"]["agree"])
        self.assertFalse((self.folder / "one").exists(), "no folder of tiles")
        one, many = self.grid_of("one.f5"), self.grid_of("tiles.f5")
        for key in ("points", "box", "attributes", "fields"):
            self.assertEqual(one[key], many[key])
        for mine, theirs in zip(one["fragments"], many["fragments"], strict=True):
            self.assertIsNone(mine.pop("file"))
            del theirs["file"]
            self.assertEqual(mine, theirs)

    def test_linking_the_tiles_again_gives_the_same_bundle(self):
        report = self.json_of("link", "tiles", "-o", "again.f5")
        self.assertEqual(report["tiles"], len(self.tiles))
        again, linked = self.grid_of("again.f5"), self.grid_of("tiles.f5")
        self.assertEqual(again.pop("name"), "LinkedGrid")
        del linked["name"]
        self.assertEqual(again, linked)

    def test_every_bundle_is_an_input_of_every_command(self):
        self.run_program("split", "in.las", "-o", "one.f5", *LENGTH, "--single-file", "-q")
        self.run_program("link", "tiles", "-o", "linked.f5", "-q")
        points = self.grid_of("tiles.f5")["points"]
        for source in ("tiles.f5", "one.f5", "linked.f5"):
            self.assertEqual(self.json_of("info", source)["grids"][0]["points"], points)
            for flags in ((), ("--single-file",)):
                report = self.split_json(source, "-o", "x/again.f5", "--fragment-length", "17",
                                         *flags)
                self.assertEqual(report["points"]["output"], points, source)
                self.assertEqual(self.grid_of("x/again.f5")["fields"], self.grid_of(source)["fields"])
                self.assertEqual(self.json_of("verify", "x/again.f5")["problems"], [])
                shutil.rmtree(self.folder / "x")

    def test_minimum_and_box_are_accounted_for(self):
        report = self.split_json("in.las", "-o", "one.f5", *LENGTH, "--single-file",
                                 "--min-points", "5000")
        self.assertGreater(report["points"]["dropped"], 0)
        self.assertTrue(report["points"]["agree"])

    def test_single_file_is_not_replaced_unasked(self):
        self.run_program("split", "in.las", "-o", "one.f5", *LENGTH, "--single-file", "-q")
        line = self.complaint("split", "in.las", "-o", "one.f5", *LENGTH, "--single-file", "-q")
        self.assertEqual(line, "refragment: one.f5: exists already; --force replaces it")
        self.run_program("split", "in.las", "-o", "one.f5", *LENGTH, "--single-file", "--force")

    def test_stopped_single_file_leaves_nothing(self):
        self.make_survey("big.las", "1M")
        arguments = ("split", "big.las", "-o", "one.f5", "--fragment-length", "5", "--single-file")
        before = digests(self.folder)
        for kind, status in ((signal.SIGINT, 130), (signal.SIGKILL, -signal.SIGKILL)):
            for delay in (0.3, 0.6, 1.0):
                running = self.start_program(*arguments, "-q")
                time.sleep(delay)
                running.send_signal(kind)
                _, err = running.communicate(timeout=120)
                if running.returncode == 0:
                    os.remove(self.folder / "one.f5")  # it was quicker
                    continue
                self.assertEqual(running.returncode, status, err)
                if kind == signal.SIGINT:
                    self.assertIn("cancelled, nothing was written", err)
                self.assertEqual(digests(self.folder), before)
        self.run_program(*arguments, "-q")
        self.assertEqual(leftovers(self.folder), [])

    def test_files_that_are_no_tiles_are_refused(self):
        shutil.copy(self.folder / "tiles.f5", self.folder / "survey.f5")
        line = self.complaint("link", "survey.f5", "-o", "out.f5")
        self.assertEqual(line, "refragment: survey.f5: the name tells no tile, expected one such as "
                               "F2x0x1T0.000000Gscan.f5")
        for name in ("Fax0x0T.f5", "F99999999999x0x0T.f5", "F-1x0x0T.f5"):
            shutil.copy(self.folder / "tiles" / self.tiles[0], self.folder / name)
            self.assertIn("the name tells no tile", self.complaint("link", name, "-o", "out.f5"))
        shutil.copy(self.folder / "tiles.f5", self.folder / "F0x0x0T.f5")
        self.assertRegex(self.complaint("link", "F0x0x0T.f5", "-o", "out.f5"),
                         r"F0x0x0T.f5: is no tile, found 1 grid with \d+ fragments, expected one")
        self.assertIn("in.las: is no tile", self.complaint("link", "in.las", "-o", "o.f5", status=2))
        self.assertIn("no such file", self.complaint("link", "F7x0x0T.f5", "-o", "out.f5"))

    def test_tiles_that_do_not_go_together_are_refused(self):
        tile = self.tiles[0]
        shutil.copytree(self.folder / "tiles", self.folder / "copy")
        line = self.complaint("link", "tiles", "copy", "-o", "out.f5")
        self.assertRegex(line, r"copy/F\S+: is tile \[\d+x\d+x\d+\] as well as \S*tiles/F")
        cases = {
            "tile length": ("--fragment-length", "30,30,500"),
            "number of tiles": ("--fragment-length", "20"),
            "overlap": (*LENGTH, "--overlap", "0.1"),
            "fields": (*LENGTH, "--field", "Intensity"),
        }
        for trait, flags in cases.items():
            self.split_json("in.las", "-o", "other/out.f5", *flags, "--force")
            other = sorted((self.folder / "other" / "out").glob("F*.f5"))[-1]
            line = self.complaint("link", f"tiles/{tile}", str(other), "-o", "out.f5")
            self.assertRegex(line, rf"other/out/F\S+: has another {trait} than \S*tiles/F\S+, "
                                   r"found .+, expected .+")
        renamed = self.folder / "F900x0x0T0.000000Gpoints.f5"
        shutil.copy(self.folder / "tiles" / tile, renamed)
        self.assertIn("lies outside its tiling", self.complaint("link", renamed.name, "-o", "o.f5"))

    def test_output_is_protected(self):
        tile = f"tiles/{self.tiles[0]}"
        self.assertIn("exists already", self.complaint("link", "tiles", "-o", "tiles.f5"))
        self.assertIn("is the output itself",
                      self.complaint("link", tile, "-o", tile, "--force", status=2))

    def test_verify_names_each_kind_of_damage(self):
        self.run_program("link", "tiles", "-o", "linked.f5", "-q")
        good = self.json_of("verify", "linked.f5")
        self.assertEqual(good["problems"], [])
        self.assertEqual(good["tiles"], len(self.tiles))
        victim = self.folder / "tiles" / self.tiles[1]
        kept = victim.read_bytes()

        def problems(*flags):
            report = self.json_of("verify", "linked.f5", *flags, status=3)
            self.assertEqual(len(report["problems"]), 1, report["problems"])
            self.assertIn(self.tiles[1], report["problems"][0])
            self.assertTrue(report["problems"][0].startswith("tile ["))
            return report["problems"][0]

        for flags in ((), ("--quick",)):
            victim.unlink()
            self.assertIn("no such file", problems(*flags).lower())
            victim.mkdir()
            problems(*flags)
            victim.rmdir()
            os.mkfifo(victim)
            problems(*flags)
            victim.unlink()
            victim.write_bytes(kept[:len(kept) // 2])
            problems(*flags)
            shutil.copy(self.folder / "tiles" / self.tiles[0], victim)
            problems(*flags)
            victim.unlink()
            victim.symlink_to(victim)
            problems(*flags)
            victim.unlink()
            victim.write_bytes(kept)
        flipped = bytearray(kept)
        middle = len(flipped) // 2
        flipped[middle:middle + 64] = bytes(byte ^ 0x55 for byte in flipped[middle:middle + 64])
        victim.write_bytes(flipped)
        problems()
        victim.write_bytes(kept)
        self.assertEqual(self.json_of("verify", "linked.f5")["problems"], [])

    def test_verify_refuses_what_is_no_bundle(self):
        self.assertIn("is no bundle", self.complaint("verify", "in.las", status=2))
        (self.folder / "bad.f5").write_text("nothing", encoding="ascii")
        self.assertIn("bad.f5: ", self.complaint("verify", "bad.f5"))

    def test_folder_can_be_moved_as_a_whole(self):
        self.run_program("link", "tiles", "-o", "linked.f5", "-q")
        moved = self.folder / "elsewhere"
        moved.mkdir()
        for name in ("tiles", "linked.f5"):
            shutil.move(self.folder / name, moved / name)
        self.assertEqual(self.json_of("verify", "elsewhere/linked.f5")["problems"], [])


if __name__ == "__main__":
    unittest.main()
