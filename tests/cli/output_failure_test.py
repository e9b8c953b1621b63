# SPDX-License-Identifier: Apache-2.0
"""Places that cannot be written to: one clear line, the right exit status, nothing half-written."""

import os
import resource
import subprocess
import unittest

from support import ProgramTest, digests, leftovers


class OutputFailureTest(ProgramTest):
    def setUp(self) -> None:
        super().setUp()
        self.make_survey("in.las", "100k")

    def assert_one_line(self, text: str) -> None:
        lines = text.strip().split("\n")
        self.assertEqual(len(lines), 1, text)
        self.assertTrue(lines[0].startswith("refragment: "), text)

    def test_path_below_a_file(self):
        (self.folder / "file").write_text("x")
        for command in (("split", "in.las", "-o", "file/out.f5", "--fragment-length", "50"),
                        ("import", "in.las", "-o", "file/out.f5"),
                        ("synth", "-o", "file/out.las", "--points", "100")):
            done = self.run_program(*command, status=1)
            self.assert_one_line(done.stderr)
            self.assertEqual((self.folder / "file").read_text(), "x")

    def test_folder_without_write_permission(self):
        if os.geteuid() == 0:
            self.skipTest("permissions do not bind the superuser")
        closed = self.folder / "closed"
        closed.mkdir(mode=0o555)
        done = self.run_program("split", "in.las", "-o", "closed/out.f5", "--fragment-length", "50",
                                status=1)
        self.assert_one_line(done.stderr)
        self.assertEqual(list(closed.iterdir()), [])

    def limit_file_sizes(self, limit: int):
        """What starts the program with a limit that no file may outgrow."""
        if os.environ.get("LIDARLIB_SANITIZE") == "thread":
            self.skipTest("the OpenMP runtime of this build makes a larger file when it starts")
        return lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

    def test_files_that_grow_too_large_fail_their_tiles_only(self):
        restrict = self.limit_file_sizes(100_000)
        arguments = ("in.las", "-o", "out.f5", "--fragment-length", "40")
        done = self.run_program("split", *arguments, status=4, preexec_fn=restrict)
        self.assertIn("the same command again goes on with them", done.stderr)
        self.assertEqual(leftovers(self.folder), [])
        healed = self.split_json(*arguments)
        self.assertGreater(healed["tiles"]["written"], 0)
        self.assertEqual(healed["tiles"]["failed"], 0)
        self.assertTrue(healed["points"]["agree"])

    def test_single_file_that_grows_too_large_leaves_nothing(self):
        arguments = ("split", "in.las", "-o", "out.f5", "--fragment-length", "40", "--single-file")
        for limit in (10_000, 1_000_000):  # at the first tile; when the file is put together
            done = self.run_program(*arguments, status=1, preexec_fn=self.limit_file_sizes(limit))
            self.assertIn("nothing was written", done.stderr.splitlines()[-1])
            self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["in.las"])
        self.run_program(*arguments)

    def test_full_disk_fails_tiles_and_room_heals_them(self):
        disk = self.folder / "disk"
        disk.mkdir()
        mount = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", str(disk)],
                               capture_output=True, check=False)
        if mount.returncode != 0:
            self.skipTest("no file system can be mounted here")
        self.addCleanup(subprocess.run, ["umount", str(disk)], check=False)
        arguments = ("in.las", "-o", "disk/out.f5", "--fragment-length", "20")
        done = self.run_program("split", *arguments, status=4)
        self.assertIn("No space left on device", done.stderr)
        self.assertEqual(leftovers(disk), [])
        subprocess.run(["mount", "-o", "remount,size=100m", str(disk)], check=True)
        healed = self.split_json(*arguments)
        self.assertGreater(healed["tiles"]["kept"], 0)
        self.assertEqual(healed["tiles"]["failed"], 0)
        self.assertTrue(healed["points"]["agree"])

    def test_points_that_cannot_be_kept_beside_the_output_are_decoded_again(self):
        self.make_survey("in.laz", "200k")
        arguments = ("in.laz", "-o", "out.f5", "--fragment-length", "20", "--memory", "1M")
        restrict = self.limit_file_sizes(1_000_000)  # room for each tile, not for all points
        done = self.run_program("split", *arguments, preexec_fn=restrict)
        self.assertIn(f"{self.folder}: decoded points cannot be kept there: File too large",
                      done.stderr.replace("\n", " "))
        under_pressure = digests(self.folder / "out")
        self.assertEqual(leftovers(self.folder), [])
        (self.folder / "there").mkdir()
        self.run_program("split", "../in.laz", "-o", "out.f5", "--fragment-length", "20",
                         cwd=self.folder / "there")
        at_ease = digests(self.folder / "there" / "out")
        self.assertEqual({**under_pressure, "plan.json": ""}, {**at_ease, "plan.json": ""})

    def test_import_to_a_full_disk_leaves_nothing(self):
        restrict = self.limit_file_sizes(10_000)
        done = self.run_program("import", "in.las", "-o", "out.f5", status=1, preexec_fn=restrict)
        self.assert_one_line(done.stderr)
        self.assertEqual(list(self.folder.glob("out*")), [])

    def test_plan_beyond_the_address_space_is_refused_before_anything_is_written(self):
        if os.environ.get("LIDARLIB_SANITIZE"):
            self.skipTest("sanitizers need more address space than can be limited")
        limit = 2 << 30
        done = self.run_program(
            "split", "in.las", "-o", "out.f5", "--fragment-length", "0.02,0.02,0", status=1,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        self.assert_one_line(done.stderr)
        self.assertRegex(done.stderr, r"tiles need about .* GB of memory to plan, found .* GB")
        self.assertEqual([entry.name for entry in self.folder.iterdir()], ["in.las"])

    def test_no_stray_folder_in_the_working_folder(self):
        (self.folder / "here").mkdir()
        self.run_program("split", "../in.las", "-o", "../there/out.f5", "--fragment-length", "50",
                         cwd=self.folder / "here")
        self.assertEqual(list((self.folder / "here").iterdir()), [])
        self.assertEqual(sorted(path.name for path in (self.folder / "there").iterdir()),
                         ["out", "out.f5"])


if __name__ == "__main__":
    unittest.main()
