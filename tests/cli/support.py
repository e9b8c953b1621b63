# SPDX-License-Identifier: Apache-2.0
"""What the end-to-end tests of the program share."""

import hashlib
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

PROGRAM = os.environ.get("REFRAGMENT", "refragment")


class ProgramTest(unittest.TestCase):
    """A test with a folder of its own in which the program runs."""

    def setUp(self) -> None:
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name).resolve()

    def run_program(self, *arguments: str, **options) -> subprocess.CompletedProcess:
        """Runs the program to its end; `status` is the exit status that it must have."""
        status = options.pop("status", 0)
        options.setdefault("cwd", self.folder)
        done = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=240,
                              check=False, stdin=subprocess.DEVNULL, **options)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done

    def start_program(self, *arguments: str, **options) -> subprocess.Popen:
        options.setdefault("cwd", self.folder)
        return subprocess.Popen([PROGRAM, *arguments], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, stdin=subprocess.DEVNULL,
                                **options)

    def make_survey(self, name: str = "in.las", points: str = "200k", *flags: str) -> pathlib.Path:
        self.run_program("synth", "-o", name, "--points", points, "-q", *flags)
        return self.folder / name

    def split_json(self, *arguments: str, **options) -> dict:
        return json.loads(self.run_program("split", *arguments, "--json", **options).stdout)


def digests(folder: pathlib.Path) -> dict[str, str]:
    """Every file below a folder with the hash of its bytes."""
    return {str(path.relative_to(folder)): hashlib.sha256(path.read_bytes()).hexdigest()
            for path in sorted(folder.rglob("*")) if path.is_file()}


def leftovers(folder: pathlib.Path) -> list[str]:
    """Temporary files of the program below a folder."""
    return [str(path) for path in folder.rglob("*.tmp.*")]
