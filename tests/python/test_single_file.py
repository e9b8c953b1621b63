# SPDX-License-Identifier: Apache-2.0
"""All tiles in one file hold what the tile files hold, value by value; chains of splits lose nothing."""

import json
import zlib

import h5py
import numpy as np
import pytest

import refragment

CASES = [
    pytest.param("small/vegetation_1_3.las", "1", "0", id="negative-coordinates"),
    pytest.param("small/lone-star.copc.laz", "10", "0.1", id="copc"),
    pytest.param("small/autzen-dd.las", "0.004", "0", id="degrees"),
    pytest.param("fwf/100429_152240_2535pt_UTM.las", "10,10,50", "0.1", id="waveform-las"),
    pytest.param("fwf/Haus29_ID04_FWF_V13.laz", "40", "0", id="waveform-laz"),
]


def fragments_of(path):
    """{tile index: {field: values}} of a bundle that holds its points itself."""
    with h5py.File(path, "r") as file:
        group = refragment.representation_of(file)
        table = group["fragments"][()]
        fields = [name.decode() for name in np.ravel(group["fragments"].attrs["fields"])]
        tiles = {}
        for row in table:
            tiles[tuple(int(i) for i in row["index"])] = values_of_row(group, table.dtype, fields, row)
        return tiles


def values_of_row(group, columns, fields, row):
    values = {}
    ranked = [name for name in fields if group[name].ndim == 2 and name != "Positions"]
    for place, name in enumerate(fields):
        if not row["present"][place]:
            continue
        rows = slice(int(row["start"]), int(row["start"] + row["point_count"]))
        part = group[name][rows]
        if name in ranked:
            part = part[:, :int(np.atleast_2d(row["row_shape"])[ranked.index(name)][0])]
        if name == "Positions" and part.dtype.kind == "i":
            own = "grid_scale" in columns.names and not np.isnan(row["grid_scale"]).any()
            scale, offset = ((row["grid_scale"], row["grid_offset"]) if own else
                             (group[name].attrs["scale_factor"], group[name].attrs["add_offset"]))
            part = part * scale + offset
        values[name] = part
    return values


@pytest.mark.parametrize("names, length, overlap", CASES)
def test_tiles_inside_equal_the_tile_files(split, names, length, overlap):
    flags = ("--fragment-length", length, "--overlap", overlap, "--threads", "1")
    many = split(names, *flags)
    one = split(names, *flags, "--single-file")
    inside = fragments_of(one.output)
    tiles = list(many.tiles())
    assert len(tiles) == len(inside) > 1
    for tile in tiles:
        found = inside[tile.index]
        assert set(found) == set(tile.fields)
        for name, expected in tile.fields.items():
            assert np.array_equal(found[name], expected), (tile.index, name)


def checksums(program, bundle):
    """Count and, per field, minimum, maximum and an order-free sum over all values."""
    tiles = fragments_of(bundle)
    count = sum(len(fields["Positions"]) for fields in tiles.values())
    sums = {}
    for fields in tiles.values():
        for name, values in fields.items():
            whole = sums.setdefault(name, 0)
            sums[name] = (whole + sum(zlib.crc32(row.tobytes()) for row in values)) % (1 << 64)
    return count, sums


def test_chain_of_splits_keeps_every_value(program, data, tmp_path):
    source = data / "small/mvk-thin.las"

    def step(inputs, name, length, *flags):
        output = tmp_path / name / "out.f5"
        return refragment.split(program, [inputs], output, "--fragment-length", length, *flags)

    first = step(source, "whole", "100000", "--single-file")
    coarse = step(source, "coarse", "900")
    fine = step(coarse.output, "fine", "230")
    last = step(fine.output, "last", "500", "--single-file")
    assert len(list(coarse.tiles())) > 3 and len(list(fine.tiles())) > 20
    assert checksums(program, last.output) == checksums(program, first.output)


def test_tiles_of_two_runs_are_linked_together(program, data, tmp_path):
    source = data / "small/vegetation_1_3.las"
    whole = refragment.split(program, [source], tmp_path / "all.f5", "--fragment-length", "1")
    tiles = sorted(whole.tile_folder.glob("F*.f5"))
    halves = []
    for name, part in (("left", tiles[::2]), ("right", tiles[1::2])):
        folder = tmp_path / name
        folder.mkdir()
        for tile in part:
            tile.rename(folder / tile.name)
        halves.append(folder)
    output = tmp_path / "both.f5"
    linked = json.loads(refragment.run(program, "link", *halves, "-o", output, "--json").stdout)
    assert linked["tiles"] == len(tiles)
    assert linked["points"] == whole.report["points"]["output"]
    again = refragment.split(program, [output], tmp_path / "again.f5", "--fragment-length", "2")
    assert again.report["points"]["agree"]
    assert again.report["points"]["output"] == whole.report["points"]["output"]
