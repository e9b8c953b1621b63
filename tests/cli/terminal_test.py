# SPDX-License-Identifier: Apache-2.0
"""What goes where: results to standard output, all else to standard error, a bar and colours only
where somebody watches."""

import json
import os
import pty
import resource
import subprocess
import sys
import threading
import unittest

from support import PROGRAM, ProgramTest

SPLIT = ("split", "in.las", "-o", "out.f5", "--fragment-length", "20", "--force")


class TerminalTest(ProgramTest):
    def setUp(self) -> None:
        super().setUp()
        self.make_survey("in.las", "100k")

    def on_terminal(self, *arguments: str, **environment: str) -> str:
        """What a run shows on a terminal."""
        own, others = pty.openpty()
        pieces: list[bytes] = []

        def listen() -> None:
            while True:
                try:
                    piece = os.read(own, 65536)
                except OSError:
                    return
                if not piece:
                    return
                pieces.append(piece)

        listener = threading.Thread(target=listen)
        listener.start()
        subprocess.run([PROGRAM, *arguments], cwd=self.folder, stdout=subprocess.DEVNULL,
                       stderr=others, stdin=subprocess.DEVNULL, check=False, timeout=120,
                       env={**os.environ, "TERM": "xterm", **environment})
        os.close(others)
        listener.join()
        os.close(own)
        return b"".join(pieces).decode()

    def test_bar_on_a_terminal(self):
        shown = self.on_terminal(*SPLIT)
        self.assertRegex(shown, r"\[[#.]+\] \d+/\d+ tiles")
        self.assertTrue(shown.endswith("\r\x1b[K"), "the bar has to go away")

    def test_no_bar_elsewhere(self):
        done = self.run_program(*SPLIT)
        self.assertEqual(done.stderr, "")

    def test_no_bar_when_not_wanted(self):
        self.assertEqual(self.on_terminal(*SPLIT, "--progress", "none"), "")
        self.assertEqual(self.on_terminal(*SPLIT, "-q"), "")

    def test_colour_is_for_terminals_without_no_color(self):
        self.assertIn("\x1b[31m", self.on_terminal("info", "missing.las"))
        self.assertNotIn("\x1b[31m", self.on_terminal("info", "missing.las", NO_COLOR="1"))
        self.assertNotIn("\x1b[31m", self.on_terminal("info", "missing.las", TERM="dumb"))

    def test_progress_as_json_lines(self):
        done = self.run_program(*SPLIT, "--progress", "json")
        lines = [json.loads(line) for line in done.stderr.splitlines()]
        self.assertGreater(len(lines), 0)
        self.assertEqual(lines[0]["done"], 0)
        self.assertGreater(lines[0]["total"], 0)

    def test_json_is_all_that_standard_output_carries(self):
        done = self.run_program(*SPLIT, "--json", "-v")
        self.assertIn("output", json.loads(done.stdout))
        self.assertIn("refragment: ", done.stderr)

    def test_quiet_says_nothing(self):
        done = self.run_program(*SPLIT, "-q")
        self.assertEqual(done.stdout + done.stderr, "")

    def test_result_that_cannot_be_printed_is_a_failure(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run([PROGRAM, "info", "in.las"], cwd=self.folder, stdout=full,
                                  stderr=subprocess.PIPE, text=True, check=False, timeout=120)
        self.assertEqual(done.returncode, 1)
        self.assertIn("standard output: cannot be written", done.stderr)

    def test_start_is_instant(self):
        """Nothing is built up or read before the command line is understood."""
        program = min(self.seconds_of([PROGRAM, "--version"]) for _ in range(5))
        floor = min(self.seconds_of([sys.executable, "-S", "-c", ""]) for _ in range(5))
        self.assertLess(program, 20 * floor)

    def seconds_of(self, command):
        """Processor time of one run."""
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(command, cwd=self.folder, stdout=subprocess.DEVNULL, check=True, timeout=120)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


if __name__ == "__main__":
    unittest.main()
