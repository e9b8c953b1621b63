# SPDX-License-Identifier: Apache-2.0
"""Every input point is in the tiles that it must be in, with every field, and nowhere else."""

import numpy as np
import pytest

import cloud

HAUS = "fwf/Haus29_ID04_FWF_V13.laz"
LIDARHD = [f"lidarhd/test_data_{name}_LA93_IGN69.laz"
           for name in ("77050_627755", "77050_627760", "77055_627755",
                        "77055_627760", "77060_627755", "77060_627760")]

CASES = [
    pytest.param("small/vegetation_1_3.las", "1", "0", id="negative-coordinates"),
    pytest.param("small/vegetation_1_3.las", "1,2,1.5", "0.1", id="boxes-with-overlap"),
    pytest.param("small/simple1_1.las", "500", "0", id="las-1.1"),
    pytest.param("small/autzen-dd.las", "0.004", "0", id="degrees"),
    pytest.param("small/autzen-dd.las", "0.004", "0.1", id="degrees-overlap"),
    pytest.param("small/point-version-1-point-wise.laz", "100", "0", id="laz-without-chunks"),
    pytest.param("small/1_4_w_evlr.las", "70", "0.1", id="scale-not-decimal"),
    pytest.param("small/extrabytes.las", "1000", "0", id="extra-bytes"),
    pytest.param("small/mvk-thin.las", "700,900", "0", id="unsorted-time"),
    pytest.param("small/lone-star.copc.laz", "10", "0", id="copc"),
    pytest.param("small/las_with_several_extra_byte_bloc.laz", "100", "0.1", id="format-8"),
    pytest.param(HAUS, "40", "0", id="waveform-laz"),
    pytest.param("fwf/100429_152240_2535pt_UTM.las", "10,10,50", "0.1", id="waveform-las"),
    pytest.param(LIDARHD, "40", "0", id="six-files"),
    pytest.param(LIDARHD, "40", "0.1", id="six-files-overlap"),
]


def tile_bounds(tile, origin):
    """The box that a tile covers, from the attributes that it carries."""
    length = tile.attributes["FragLength"].ravel()
    index = np.array(tile.index, np.float64)
    low = index * length + origin
    high = (index + 1) * length + origin
    overlap = float(tile.attributes["NormalizeOverlap"].ravel()[0])
    if overlap > 0:
        low, high = low - overlap * length, high + overlap * length
    return low, high


def inside(points, tile, origin):
    """Which points belong to a tile: above its lower faces (on them too in the first tile of an
    axis), up to and on its upper faces."""
    low, high = tile_bounds(tile, origin)
    above = np.where(np.array(tile.index) == 0, points >= low, points > low)
    return (above & (points <= high)).all(axis=1)


def rows_of(fields, names):
    """All fields as rows of one sorted table, to be compared as a whole."""
    columns = [fields["Positions"][:, axis] for axis in range(3)]
    columns += [np.asarray(fields[name], np.float64) for name in names]
    table = np.column_stack(columns)
    return table[np.lexsort(table.T[::-1])]


def common_fields(tile, expected):
    return sorted(name for name in expected
                  if name != "Positions" and name in tile.fields)


@pytest.mark.parametrize("names, length, overlap", CASES)
def test_tiles_hold_exactly_their_points(split, names, length, overlap):
    result = split(names, "--fragment-length", length, "--overlap", overlap)
    expected = cloud.read(result.inputs)
    origin = expected["Positions"].min(axis=0)
    covered = np.zeros(len(expected["Positions"]), np.int64)
    tiles = 0
    for tile in result.tiles():
        members = inside(expected["Positions"], tile, origin)
        names_of_fields = common_fields(tile, expected)
        assert len(names_of_fields) >= 10
        wanted = {name: values[members] for name, values in expected.items()}
        np.testing.assert_array_equal(rows_of(tile.fields, names_of_fields), rows_of(wanted, names_of_fields),
                                      err_msg=tile.path.name)
        covered += members
        tiles += 1
    assert tiles == result.report["tiles"]["written"] > 1
    assert (covered >= 1).all(), "a point is in no tile"
    if overlap == "0":
        assert (covered == 1).all(), "a point is in two tiles"
        assert result.report["points"]["output"] == len(covered)
    assert result.report["points"]["input"] == len(covered)


@pytest.mark.parametrize("name", ["small/extrabytes.las", "small/las_with_several_extra_byte_bloc.laz", HAUS])
def test_no_field_of_the_file_is_missing(split, name):
    result = split(name, "--fragment-length", {"small/extrabytes.las": "1000", HAUS: "40"}.get(name, "100"))
    expected = cloud.read(result.inputs)
    tile = next(result.tiles())
    # "ExtraBytes" is what laspy calls bytes whose description it does not take up.
    assert set(expected) - {"ExtraBytes"} <= set(tile.fields)


def test_extra_bytes_of_two_descriptions_both_arrive(split):
    """Each of the two attributes has a record of its own, of which laspy takes up the first."""
    result = split("small/las_with_several_extra_byte_bloc.laz", "--fragment-length", "100")
    expected = cloud.read(result.inputs)
    for field, dimension in (("Deviation", "Deviation"), ("confidence", "ExtraBytes")):
        ours = np.concatenate([tile.fields[field] for tile in result.tiles()])
        np.testing.assert_array_equal(np.sort(ours), np.sort(expected[dimension].ravel()))


def exact(name, values):
    """Values whose sums do not depend on the order: whole numbers, coordinates in centimetres."""
    if name == "Positions":
        return np.rint(values * 100).astype(np.int64)
    return values.astype(np.int64) if values.dtype.kind in "iu" else values


def test_main_input_sums_up(split):
    """Totals, minima, maxima and sums of every field over all tiles of the largest file."""
    result = split("hawaii_north.laz", "--fragment-length", "150")
    expected = cloud.read(result.inputs)
    sums, lows, highs = {}, {}, {}
    count = 0
    for tile in result.tiles():
        count += len(tile.points)
        for name, values in tile.fields.items():
            sums[name] = sums.get(name, 0) + exact(name, values).sum(axis=0)
            lows[name] = np.minimum(lows.get(name, np.inf), values.min(axis=0))
            highs[name] = np.maximum(highs.get(name, -np.inf), values.max(axis=0))
    assert count == len(expected["Positions"]) == 8_750_450
    assert result.report["points"]["agree"] is True
    for name, values in expected.items():
        np.testing.assert_array_equal(lows[name], values.min(axis=0), err_msg=name)
        np.testing.assert_array_equal(highs[name], values.max(axis=0), err_msg=name)
        np.testing.assert_allclose(sums[name], exact(name, values).sum(axis=0), err_msg=name,
                                   rtol=1e-11 if name == "GpsTime" else 0)
