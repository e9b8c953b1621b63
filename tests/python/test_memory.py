# SPDX-License-Identifier: Apache-2.0
"""The memory budget holds on an input ten times larger."""

import json
import subprocess

POINTS = 3_000_000
BYTES_PER_POINT = 100  # of a tile while it is built: its values, their encoding, its indices
PROGRAM_ITSELF = 50_000_000  # libraries, and for each thread the records being decoded


def run(program, folder, *arguments):
    completed = subprocess.run(
        [program, *map(str, arguments), "--json"],
        cwd=folder, capture_output=True, text=True, timeout=300, check=False)
    assert completed.returncode == 0, completed.stderr
    return json.loads(completed.stdout)


def test_peak_memory_is_budget_and_one_tile_per_thread(program, tmp_path):
    survey = tmp_path / "survey.las"
    run(program, tmp_path, "synth", "-o", survey, "--points", POINTS, "--no-waveforms")
    budget = survey.stat().st_size // 10
    threads = 2

    def split(name, *flags):
        folder = tmp_path / name
        folder.mkdir()
        return run(program, folder, "split", survey, "-o", folder / "out.f5", "--no-sync",
                   "--threads", threads, "--fragment-length", 100, *flags)

    unlimited = split("unlimited")
    limited = split("limited", "--memory", budget)
    assert limited["points"] == unlimited["points"]

    largest_tile = 2 * POINTS // unlimited["tiles"]["written"]
    allowed = budget + threads * largest_tile * BYTES_PER_POINT + PROGRAM_ITSELF
    assert limited["peakMemoryBytes"] < allowed
    assert unlimited["peakMemoryBytes"] > 1.2 * allowed, "the input is too small to tell"
