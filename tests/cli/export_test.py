# SPDX-License-Identifier: Apache-2.0
"""Exports that are stopped or run out of room: whole files or none, one clear line, nothing left over."""

import json
import resource
import signal
import subprocess
import time
import unittest

from support import ProgramTest, digests, leftovers


class ExportTest(ProgramTest):
    def setUp(self) -> None:
        super().setUp()
        self.make_survey("in.laz", "300k")
        self.run_program("split", "in.laz", "-o", "many.f5", "--fragment-length", "20", "--keep-order",
                         "--no-sync", "-q")

    def export(self, output: str, *flags: str, **options):
        return self.run_program("export", "many.f5", "-o", output, "--no-sync", *flags, **options)

    def files_below(self, name: str) -> set[str]:
        return {path.name for path in (self.folder / name).rglob("*")}

    def stop_when(self, is_time, *arguments: str):
        """Starts an export and sends Ctrl-C as soon as it is time."""
        process = self.start_program("export", "many.f5", "--no-sync", "--threads", "1", *arguments)
        while process.poll() is None and not is_time():
            time.sleep(0.001)
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=60)
        return process.returncode, out + err

    def test_ctrl_c_leaves_no_part_of_a_single_file(self):
        status, text = self.stop_when(lambda: leftovers(self.folder), "-o", "out.laz")
        self.assertEqual(status, 130, text)
        self.assertIn("cancelled, nothing was written", text)
        self.assertFalse((self.folder / "out.laz").exists() or (self.folder / "out.wdp").exists())
        self.assertEqual(leftovers(self.folder), [])

    def test_ctrl_c_leaves_whole_files_in_a_folder(self):
        self.export("calm")
        status, text = self.stop_when(lambda: len(list(self.folder.glob("stopped/*.laz"))) >= 3,
                                      "-o", "stopped")
        self.assertEqual(status, 130, text)
        self.assertRegex(text, r"cancelled, \d+ files? (was|were) written; --force writes all again")
        self.assertEqual(leftovers(self.folder), [])
        calm, stopped = digests(self.folder / "calm"), digests(self.folder / "stopped")
        whole = {name for name in stopped if name.endswith(".laz")}
        self.assertLess(len(whole), len([name for name in calm if name.endswith(".laz")]))
        for name in whole:
            self.assertEqual(stopped[name], calm[name])
        self.export("stopped", "--force")
        self.assertEqual({name: digest for name, digest in digests(self.folder / "stopped").items()
                          if name.endswith((".laz", ".wdp"))},
                         {name: digest for name, digest in calm.items() if name.endswith((".laz", ".wdp"))})

    def test_death_at_any_moment_leaves_no_file_under_its_name(self):
        begin = time.monotonic()
        self.export("calm.laz")
        calm_seconds = time.monotonic() - begin
        for i in range(6):
            with self.subTest(moment=i):
                process = self.start_program("export", "many.f5", "-o", "killed.laz", "--force")
                time.sleep(calm_seconds * (i + 0.5) / 6)
                process.kill()
                process.communicate(timeout=60)
                self.export("killed.laz", "--force")
                self.assertEqual((self.folder / "killed.laz").read_bytes(),
                                 (self.folder / "calm.laz").read_bytes())
                self.assertEqual(leftovers(self.folder), [])

    def test_output_does_not_depend_on_the_number_of_threads(self):
        for threads in ("1", "2", "3"):
            self.export(f"t{threads}.laz", "--threads", threads, "--waveforms", "internal")
            self.export(f"t{threads}", "--threads", threads)
        expected = (self.folder / "t1.laz").read_bytes()
        tiles = {name: digest for name, digest in digests(self.folder / "t1").items() if name[-4:] == ".laz"}
        for threads in ("2", "3"):
            self.assertEqual((self.folder / f"t{threads}.laz").read_bytes(), expected)
            found = digests(self.folder / f"t{threads}")
            self.assertEqual({name: digest for name, digest in found.items() if name[-4:] == ".laz"}, tiles)

    def test_files_that_grow_too_large_fail_alone(self):
        restrict = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (60_000, 60_000))
        before = self.files_below(".")
        failed = self.export("out.las", "--waveforms", "none", status=1, preexec_fn=restrict)
        self.assertEqual(len(failed.stderr.strip().splitlines()), 1, failed.stderr)
        self.assertIn("out.las", failed.stderr)
        self.assertEqual(self.files_below("."), before)

    def test_full_disk_ends_in_one_line(self):
        disk = self.folder / "disk"
        disk.mkdir()
        mount = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", str(disk)],
                               capture_output=True, check=False)
        if mount.returncode != 0:
            self.skipTest("no file system can be mounted here")
        self.addCleanup(subprocess.run, ["umount", str(disk)], check=False)
        failed = self.export("disk/out.las", status=1)
        self.assertEqual(len(failed.stderr.strip().splitlines()), 1, failed.stderr)
        self.assertEqual(list(disk.iterdir()), [])

    def test_damaged_tile_fails_its_file_alone(self):
        tile = sorted((self.folder / "many").glob("F*.f5"))[2]
        tile.write_bytes(tile.read_bytes()[:-2000])
        done = self.export("out", "--json", status=4)
        report = json.loads(done.stdout)
        failed = [file for file in report["files"] if "failure" in file]
        self.assertEqual(len(failed), 1)
        self.assertIn(tile.name, failed[0]["failure"])
        self.assertEqual(leftovers(self.folder), [])
        self.assertIn("1 file failed", done.stderr)


if __name__ == "__main__":
    unittest.main()
