# SPDX-License-Identifier: Apache-2.0
"""The memory budget holds on an input ten times larger."""

import json
import subprocess

import pytest

POINTS = 3_000_000
RECORD_BYTES = 30
THREADS = 2
BYTES_PER_POINT = 100  # of a tile while it is built: its values, their encoding, its indices
PROGRAM_ITSELF = 50_000_000  # libraries, and for each thread the records being decoded


def run(program, folder, *arguments):
    completed = subprocess.run(
        [program, *map(str, arguments), "--json"],
        cwd=folder, capture_output=True, text=True, timeout=300, check=False)
    assert completed.returncode == 0, completed.stderr
    return json.loads(completed.stdout)


def split(program, survey, folder, *flags):
    folder.mkdir()
    return run(program, folder, "split", survey, "-o", folder / "out.f5", "--no-sync",
               "--threads", THREADS, "--fragment-length", 100, *flags)


@pytest.mark.parametrize("ending", ["las", "laz"])
def test_peak_memory_is_budget_and_one_tile_per_thread(program, tmp_path, ending):
    survey = tmp_path / f"survey.{ending}"
    run(program, tmp_path, "synth", "-o", survey, "--points", POINTS, "--no-waveforms")
    budget = POINTS * RECORD_BYTES // 10
    unlimited = split(program, survey, tmp_path / "unlimited")
    limited = split(program, survey, tmp_path / "limited", "--memory", budget)
    assert limited["points"] == unlimited["points"]

    largest_tile = 2 * POINTS // unlimited["tiles"]["written"]
    allowed = budget + THREADS * largest_tile * BYTES_PER_POINT + PROGRAM_ITSELF
    assert limited["peakMemoryBytes"] < allowed
    if ending == "laz":  # what is read where it stands needs no memory in either case
        assert unlimited["peakMemoryBytes"] > 1.2 * allowed, "the input is too small to tell"


def test_tiles_do_not_depend_on_the_budget(program, tmp_path):
    survey = tmp_path / "survey.laz"
    run(program, tmp_path, "synth", "-o", survey, "--points", 300_000, "--no-waveforms")
    split(program, survey, tmp_path / "unlimited")
    split(program, survey, tmp_path / "limited", "--memory", "1M")
    tiles = sorted((tmp_path / "unlimited" / "out").glob("F*.f5"))
    assert len(tiles) > 1
    for tile in tiles:
        same = tmp_path / "limited" / "out" / tile.name
        assert same.read_bytes() == tile.read_bytes(), tile.name
