#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands of golden files and compares what they print, byte for byte.

    run_golden.py --program build/dev/host/refragment tests/cli/*.txt [--update]

A golden file holds commands for a shell ("$ ..."), each followed by the lines expected on standard
output ("1> ..."), on standard error ("2> ...") and by its exit status ("exit N"). All commands of a
file run in one fresh folder, where "refragment" is the program. What differs from run to run
(times, sizes of compressed files, the folder's path) is replaced by a word in angle brackets.
--update writes what is printed now into the files.
"""

import argparse
import difflib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

# Pattern -> replacement, in this order.
VARIABLE_PARTS = [
    (re.compile(r"^(Time +).*s, .*$", re.M), r"\1<TIME>"),
    (re.compile(r"\(\d[\d.]* [KMG]?i?B\)"), "(<SIZE>)"),
    (re.compile(r"modified \d+\.\d+"), "modified <TIME>"),
    (re.compile(r'"(seconds|elapsedSeconds)":[-+.e\d]+'), r'"\1":<TIME>'),
    (re.compile(r'"(peakMemoryBytes|bytes)":\d+'), r'"\1":<SIZE>'),
    (re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ"), "<DATE>"),
]


def normalised(text: str, folder: str) -> str:
    text = text.replace(folder, "<DIR>")
    for pattern, replacement in VARIABLE_PARTS:
        text = pattern.sub(replacement, text)
    return text


def marked(text: str, mark: str) -> list[str]:
    """The lines of a stream with its mark; a missing last line break is shown."""
    lines = text.split("\n")
    ending = lines.pop()
    result = [f"{mark} {line}".rstrip() for line in lines]
    return result + ([f"{mark} {ending}<no line break>"] if ending else [])


def run_command(command: str, folder: str, environment: dict[str, str]) -> list[str]:
    done = subprocess.run(["sh", "-c", command], cwd=folder, env=environment, capture_output=True,
                          stdin=subprocess.DEVNULL, timeout=120, check=False)
    out = normalised(done.stdout.decode(errors="replace"), folder)
    err = normalised(done.stderr.decode(errors="replace"), folder)
    return marked(out, "1>") + marked(err, "2>") + [f"exit {done.returncode}"]


def run_file(path: pathlib.Path, program: str) -> list[str]:
    """The lines of a golden file with what the commands print now."""
    lines: list[str] = []
    with tempfile.TemporaryDirectory() as root:
        folder = os.path.join(os.path.realpath(root), "work")
        programs = os.path.join(root, "bin")
        os.mkdir(folder)
        os.mkdir(programs)
        os.symlink(os.path.abspath(program), os.path.join(programs, "refragment"))
        environment = {"PATH": programs + ":" + os.environ.get("PATH", ""), "LC_ALL": "C.UTF-8"}
        environment |= {name: value for name, value in os.environ.items()
                        if name.endswith("SAN_OPTIONS")}
        for line in path.read_text(encoding="utf-8").splitlines():
            if line.startswith(("1>", "2>", "exit ")):
                continue
            lines.append(line)
            if line.startswith("$ "):
                lines += run_command(line[2:], folder, environment)
    return lines


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--update", action="store_true")
    parser.add_argument("files", nargs="+", type=pathlib.Path)
    options = parser.parse_args()
    status = 0
    for path in options.files:
        expected = path.read_text(encoding="utf-8").splitlines()
        found = run_file(path, options.program)
        if found == expected:
            continue
        if options.update:
            path.write_text("\n".join(found) + "\n", encoding="utf-8")
            print(f"{path}: updated")
            continue
        status = 1
        print("\n".join(difflib.unified_diff(expected, found, str(path), "found now", lineterm="")))
    return status


if __name__ == "__main__":
    sys.exit(main())
