# SPDX-License-Identifier: Apache-2.0
"""What scripts rely on: the report, restarts, selections, and that the output does not vary."""

import hashlib
import json

import h5py
import numpy as np
import pytest

import cloud
import refragment

VEGETATION = "small/vegetation_1_3.las"


def digests(folder):
    return {path.name: hashlib.sha256(path.read_bytes()).hexdigest() for path in folder.glob("F*.f5")}


def test_report_has_its_keys(split):
    report = split(VEGETATION, "--fragment-length", "1").report
    assert {"output", "plan", "tiles", "points", "messages", "seconds", "peakMemoryBytes"} <= set(report)
    tiles = report["tiles"]
    assert tiles["total"] >= tiles["withData"] >= tiles["written"] > 1
    assert tiles["withData"] == tiles["written"] + tiles["dropped"]
    assert tiles["kept"] == tiles["failed"] == 0
    assert report["messages"] == []
    assert report["peakMemoryBytes"] > 1_000_000


def test_second_run_keeps_every_tile(program, data, tmp_path):
    arguments = ([data / VEGETATION], tmp_path / "out.f5", "--fragment-length", "1")
    first = refragment.split(program, *arguments)
    before = digests(first.tile_folder)
    times = {path: path.stat().st_mtime_ns for path in first.tile_folder.iterdir()}
    second = refragment.split(program, *arguments)
    assert second.report["tiles"]["written"] == 0
    assert second.report["tiles"]["kept"] == first.report["tiles"]["written"]
    assert second.report["points"]["output"] == first.report["points"]["output"]
    assert digests(first.tile_folder) == before
    assert all(path.stat().st_mtime_ns == time for path, time in times.items() if path.suffix == ".f5")


def test_lost_tile_is_made_again(program, data, tmp_path):
    arguments = ([data / VEGETATION], tmp_path / "out.f5", "--fragment-length", "1")
    first = refragment.split(program, *arguments)
    before = digests(first.tile_folder)
    lost = sorted(first.tile_folder.glob("F*.f5"))[1]
    lost.unlink()
    second = refragment.split(program, *arguments)
    assert second.report["tiles"]["written"] == 1
    assert digests(first.tile_folder) == before


def test_other_plan_is_refused(program, data, tmp_path):
    first = refragment.split(program, [data / VEGETATION], tmp_path / "out.f5", "--fragment-length", "1")
    before = digests(first.tile_folder)
    refused = refragment.run(program, "split", data / VEGETATION, "-o", tmp_path / "out.f5",
                             "--fragment-length", "2", expect=1)
    assert "another plan" in refused.stderr
    assert digests(first.tile_folder) == before


@pytest.mark.parametrize("storage", ["grid", "deflate", "raw"])
def test_storages_give_identical_values(split, storage):
    plain = {tile.path.name: tile for tile in split(VEGETATION, "--fragment-length", "1").tiles()}
    for tile in split(VEGETATION, "--fragment-length", "1", "--storage", storage).tiles():
        for name, values in plain[tile.path.name].fields.items():
            np.testing.assert_array_equal(tile.fields[name], values)


def test_tiles_are_the_same_bytes_for_any_number_of_threads(split):
    flags = ("--fragment-length", "10", "--threads")
    one = digests(split("small/lone-star.copc.laz", *flags, "1").tile_folder)
    assert len(one) > 1
    assert digests(split("small/lone-star.copc.laz", *flags, "2").tile_folder) == one
    assert digests(split("small/lone-star.copc.laz", *flags, "5").tile_folder) == one


def test_field_filter_leaves_the_others_out(split):
    result = split(VEGETATION, "--fragment-length", "1", "--field", "Intensity")
    for tile in result.tiles():
        assert set(tile.fields) == {"Positions", "Intensity"}


def test_small_tiles_are_dropped_and_counted(split):
    everything = split(VEGETATION, "--fragment-length", "1")
    sizes = sorted(len(tile.points) for tile in everything.tiles())
    limit = sizes[len(sizes) // 2]
    result = split(VEGETATION, "--fragment-length", "1", "--min-points", str(limit))
    kept = [size for size in sizes if size > limit]
    assert sorted(len(tile.points) for tile in result.tiles()) == kept
    assert result.report["tiles"]["dropped"] == result.report["tiles"]["withData"] - len(kept)
    assert result.report["points"]["dropped"] == sum(sizes) - sum(kept)
    assert result.report["points"]["output"] == sum(kept)


def test_start_and_end_leave_points_out(split, data):
    points = cloud.read([data / VEGETATION])["Positions"]
    low, high = np.quantile(points, [0.25, 0.75], axis=0).round(3)
    corner = ",".join
    result = split(VEGETATION, "--fragment-length", "1", "--start", corner(map(str, low)),
                   "--end", corner(map(str, high)))
    outside = result.report["points"]["outside"]
    assert 0 < outside < len(points)
    assert result.report["points"]["output"] + outside == len(points)


def test_empty_file_is_told_not_crashed(program, data, tmp_path):
    done = refragment.run(program, "split", data / "small/no-points.las", "-o", tmp_path / "out.f5", expect=1)
    assert done.stderr.startswith("refragment: ") or "no-points.las" in done.stderr


def test_linking_bundle_lists_every_tile(split):
    result = split(VEGETATION, "--fragment-length", "1")
    with h5py.File(result.output, "r") as file:
        tables = []
        file.visititems(lambda name, node: tables.append(node[()]) if name.endswith("/fragments") else None)
    assert len(tables) == 1
    rows = [row for row in tables[0] if row["present"].any()]
    counts = {row["file"].decode(): row["point_count"] for row in rows}
    assert len(counts) == len(rows)
    assert counts == {f"{result.tile_folder.name}/{tile.path.name}": len(tile.points) for tile in result.tiles()}


def test_show_agrees_with_the_tiles(program, split):
    result = split(VEGETATION, "--fragment-length", "1")
    shown = json.loads(refragment.run(program, "show", result.output, "--json").stdout)
    grid = shown["slices"][0]["grids"][0]
    assert grid["points"] == sum(len(tile.points) for tile in result.tiles())
    assert len(grid["fragments"]) == result.report["tiles"]["written"]
