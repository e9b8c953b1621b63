# SPDX-License-Identifier: Apache-2.0
"""With --keep-order every point says where it stood, and what it says is true."""

import h5py
import numpy as np
import pytest

import cloud
import refragment

FILES = [f"lidarhd/test_data_{name}_LA93_IGN69.laz" for name in ("77050_627755", "77060_627760", "77055_627755")]
ORDER = ("SourceFile", "SourceIndex")


@pytest.fixture(scope="module")
def sources(data):
    """The points of each file, in its order."""
    return [cloud.read([data / name]) for name in FILES]


def joined(tiles) -> dict:
    """All points of some tiles, one after the other."""
    tiles = list(tiles)
    return {name: np.concatenate([tile.fields[name] for tile in tiles]) for name in tiles[0].fields}


def expect_in_place(points, sources, fields):
    """Every record of every file is there exactly once, with its values."""
    seen = 0
    for number, source in enumerate(sources):
        mine = points["SourceFile"] == number
        index = points["SourceIndex"][mine]
        count = len(source["Positions"])
        assert np.array_equal(np.sort(index), np.arange(count)), f"file {number}"
        for name in fields:
            np.testing.assert_array_equal(points[name][mine], source[name][index], err_msg=f"file {number} {name}")
        seen += count
    assert seen == len(points["SourceFile"])


@pytest.mark.parametrize("flags", [(), ("--field", "Intensity")], ids=["all-fields", "one-field"])
def test_every_record_is_in_the_tiles_once(split, sources, flags):
    result = split(FILES, "--fragment-length", "40", "--keep-order", *flags)
    points = joined(result.tiles())
    fields = {"Positions", "Intensity"} if flags else set(sources[0]) & set(points)
    assert set(points) == fields | set(ORDER) if flags else len(fields) > 10
    assert points["SourceFile"].dtype == np.uint32 and points["SourceIndex"].dtype == np.uint64
    expect_in_place(points, sources, fields)


def test_numbers_are_those_of_the_list_of_names(split):
    tile = next(split(FILES, "--fragment-length", "40", "--keep-order").tiles())
    with h5py.File(tile.path, "r") as file:
        grid = refragment.representation_of(file).parent.parent
        names = grid.attrs["LasFileNames"]
    text = names.decode() if isinstance(names, bytes) else str(names)
    assert text.split("\n") == [name.split("/")[1] for name in FILES]


def test_order_survives_import_link_and_another_split(program, data, sources, tmp_path):
    inputs = [data / name for name in FILES]
    refragment.run(program, "import", *inputs, "-o", tmp_path / "all.f5", "--keep-order", "--no-sync", "-q")
    refragment.split(program, [tmp_path / "all.f5"], tmp_path / "first.f5",
                     "--fragment-length", "60", "--keep-order")
    refragment.run(program, "link", tmp_path / "first", "-o", tmp_path / "linked.f5", "--no-sync", "-q")
    refragment.split(program, [tmp_path / "linked.f5"], tmp_path / "one.f5",
                     "--fragment-length", "35", "--single-file", "--field", "Intensity", "--keep-order")
    last = refragment.split(program, [tmp_path / "one.f5"], tmp_path / "last.f5", "--fragment-length", "50")
    expect_in_place(joined(last.tiles()), sources, {"Positions", "Intensity"})


def test_restart_notices_another_order(program, data, tmp_path):
    inputs = [data / FILES[0]]
    refragment.split(program, inputs, tmp_path / "out.f5", "--fragment-length", "40")
    done = refragment.run(program, "split", *inputs, "-o", tmp_path / "out.f5", "--fragment-length", "40",
                          "--keep-order", "-q", expect=1)
    assert "fields: all there, all in known order now" in done.stderr


def test_fields_take_few_bytes(program, data, tmp_path):
    """Numbers that count up cost little: less than two bytes a point for both fields together."""
    sizes = {}
    for flags in ((), ("--keep-order",)):
        out = tmp_path / f"{len(flags)}.f5"
        report = refragment.split(program, [data / name for name in FILES], out, "--fragment-length", "40", *flags)
        folder = out.with_suffix("")
        sizes[flags] = sum(path.stat().st_size for path in folder.glob("F*.f5"))
        points = report.report["points"]["output"]
    added = (sizes[("--keep-order",)] - sizes[()]) / points
    assert 0 < added < 2, f"{added:.2f} bytes a point"
