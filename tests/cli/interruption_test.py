# SPDX-License-Identifier: Apache-2.0
"""Runs that are stopped, by Ctrl-C or without warning, and started again: the end result has to be
that of an undisturbed run, byte for byte, with nothing left over."""

import pathlib
import signal
import subprocess
import time
import unittest

from support import ProgramTest, digests, leftovers

FLAGS = ("--fragment-length", "10", "--no-sync", "--threads", "1")


class InterruptionTest(ProgramTest):
    """Each test compares with an undisturbed split of the same cloud in the folder "calm"."""

    def setUp(self) -> None:
        super().setUp()
        self.make_survey("in.las", "300k")
        begin = time.monotonic()
        self.calm = self.split("calm")
        self.calm_seconds = time.monotonic() - begin

    def split(self, name: str) -> dict[str, str]:
        """Splits to its end within a folder and returns what is there."""
        (self.folder / name).mkdir(exist_ok=True)
        self.run_program("split", "../in.las", "-o", "out.f5", *FLAGS, cwd=self.folder / name)
        return self.content(self.folder / name)

    def content(self, folder: pathlib.Path) -> dict[str, str]:
        """All files but the plan, which names the folder that it is in."""
        return {name: digest for name, digest in digests(folder).items() if name != "out/plan.json"}

    def start_split(self, name: str) -> subprocess.Popen:
        (self.folder / name).mkdir(exist_ok=True)
        return self.start_program("split", "../in.las", "-o", "out.f5", *FLAGS,
                                  cwd=self.folder / name)

    def wait_for_tiles(self, name: str, count: int, process: subprocess.Popen) -> None:
        while process.poll() is None:
            if len(list((self.folder / name / "out").glob("F*.f5"))) >= count:
                return
            time.sleep(0.001)

    def test_ctrl_c_ends_at_the_next_tile_and_a_second_run_goes_on(self):
        process = self.start_split("stopped")
        self.wait_for_tiles("stopped", 5, process)
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130, out + err)
        self.assertRegex(err, r"cancelled with \d+ tiles? to do; the same command again goes on")
        self.assertEqual(leftovers(self.folder), [])
        tiles = list((self.folder / "stopped/out").glob("F*.f5"))
        self.assertLess(len(tiles), len(self.calm) - 1)
        kept = {str(tile): tile.stat().st_mtime_ns for tile in tiles}
        self.assertEqual(self.split("stopped"), self.calm)
        for name, modified in kept.items():
            self.assertEqual(pathlib.Path(name).stat().st_mtime_ns, modified, "was written again")

    def test_termination_is_a_cancellation_too(self):
        process = self.start_split("stopped")
        self.wait_for_tiles("stopped", 3, process)
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)

    def test_death_at_any_moment_is_healed_by_the_next_run(self):
        moments = 12
        for i in range(moments):
            with self.subTest(moment=i):
                name = f"killed{i}"
                process = self.start_split(name)
                time.sleep(self.calm_seconds * (i + 0.5) / moments)
                process.kill()
                process.communicate(timeout=60)
                self.assertEqual(self.split(name), self.calm)
                self.assertEqual(leftovers(self.folder / name), [])

    def test_repeated_deaths_still_come_to_an_end(self):
        for i in range(6):
            process = self.start_split("again")
            self.wait_for_tiles("again", 3 * (i + 1), process)
            process.kill()
            process.communicate(timeout=60)
        self.assertEqual(self.split("again"), self.calm)
        self.assertEqual(leftovers(self.folder / "again"), [])

    def test_cancelled_synth_and_import_leave_nothing(self):
        for arguments in (("synth", "-o", "big.las", "--points", "20M"),
                          ("import", "in.las", "-o", "big.f5")):
            process = self.start_program(*arguments)
            time.sleep(0.05)
            process.send_signal(signal.SIGINT)
            process.communicate(timeout=60)
            if process.returncode == 0:
                continue  # it was quicker
            self.assertIn(process.returncode, (130, -signal.SIGINT))
            if process.returncode == 130:
                self.assertEqual(leftovers(self.folder), [])
            self.assertEqual(list(self.folder.glob("big.*")), [])


if __name__ == "__main__":
    unittest.main()
