# SPDX-License-Identifier: Apache-2.0
"""Text files of points: what the program makes of them is what numpy reads from the same bytes."""

import gzip
import json

import h5py
import numpy as np
import pytest

import refragment

COLUMNS = ("x", "y", "z", "intensity", "gps_time", "echo")
FIELDS = {"intensity": "Intensity", "gps_time": "GpsTime", "echo": "echo"}
TYPES = {"Intensity": np.uint16, "GpsTime": np.float64, "echo": np.int32}


def rows(count: int, seed: int) -> np.ndarray:
    """Points as surveys have them, one row each."""
    random = np.random.default_rng(seed)
    return np.column_stack([
        np.round(random.uniform(455000, 456000, count), 3),
        np.round(random.uniform(5427000, 5428000, count), 3),
        np.round(random.uniform(-40, 10, count), 3),
        random.integers(0, 65536, count),
        np.round(random.uniform(0, 604800, count), 6),
        random.integers(-5, 5, count)])


def text_of(values: np.ndarray, delimiter: str, header: bool, line_end: str) -> str:
    lines = [delimiter.join(COLUMNS)] if header else []
    lines += [delimiter.join(("%.3f", "%.3f", "%.3f", "%d", "%.6f", "%d")) % tuple(row) for row in values]
    return line_end.join(lines) + line_end


def imported(program, inputs, folder, *flags) -> dict:
    """All fields of an imported cloud, as h5py reads them."""
    output = folder / "out.f5"
    refragment.run(program, "import", *inputs, "-o", output, "--no-sync", "-q", "--force", *flags)
    with h5py.File(output) as file:
        group = refragment.representation_of(file)
        return {name: refragment.plain(refragment.values_of(node)) for name, node in group.items()
                if isinstance(node, h5py.Dataset) and name != "fragments"}


def expect_equal(fields: dict, judged: np.ndarray):
    np.testing.assert_array_equal(fields["Positions"], judged[:, :3])
    for column, name in FIELDS.items():
        assert fields[name].dtype == TYPES[name], name
        np.testing.assert_array_equal(fields[name], judged[:, COLUMNS.index(column)], err_msg=name)


@pytest.mark.parametrize("delimiter", [",", ";", "\t", " ", "  "])
@pytest.mark.parametrize("line_end", ["\n", "\r\n"])
def test_every_delimiter_reads_as_numpy_does(program, tmp_path, delimiter, line_end):
    path = tmp_path / "points.txt"
    path.write_text(text_of(rows(5000, 1), delimiter, True, line_end), newline="")
    judged = np.loadtxt(path, delimiter=delimiter if delimiter.strip(" ") else None, skiprows=1)
    expect_equal(imported(program, [path], tmp_path), judged)


def test_gzip_files_read_as_numpy_does(program, tmp_path):
    path = tmp_path / "points.csv.gz"
    with gzip.open(path, "wt") as file:
        file.write(text_of(rows(5000, 2), ",", True, "\n"))
    expect_equal(imported(program, [path], tmp_path), np.loadtxt(path, delimiter=",", skiprows=1))


def test_columns_can_be_named(program, tmp_path):
    path = tmp_path / "points.xyz"
    path.write_text(text_of(rows(1000, 3), " ", False, "\n"))
    judged = np.loadtxt(path)
    expect_equal(imported(program, [path], tmp_path, "--columns", ",".join(COLUMNS)), judged)
    fields = imported(program, [path], tmp_path, "--columns", "y,x,z,-,-,Quality")
    assert set(fields) == {"Positions", "Quality"}
    np.testing.assert_array_equal(fields["Positions"], judged[:, [1, 0, 2]])


def test_several_files_are_one_cloud_whatever_their_order_of_columns(program, tmp_path):
    first, second = rows(800, 4), rows(700, 5)
    (tmp_path / "a.csv").write_text(text_of(first, ",", True, "\n"))
    order = [5, 2, 0, 1, 3, 4]
    np.savetxt(tmp_path / "b.txt", second[:, order], header=" ".join(COLUMNS[i] for i in order), fmt="%.17g")
    expect_equal(imported(program, [tmp_path / "a.csv", tmp_path / "b.txt"], tmp_path),
                 np.concatenate([first, second]))


def test_many_fragments_keep_every_row_in_order(program, tmp_path):
    path = tmp_path / "points.csv"
    path.write_text(text_of(rows(600_000, 6), ",", True, "\n"))
    judged = np.loadtxt(path, delimiter=",", skiprows=1)
    expect_equal(imported(program, [path], tmp_path, "--memory", "1M"), judged)
    expect_equal(imported(program, [path], tmp_path, "--threads", "1"), judged)


def test_split_loses_no_point(program, tmp_path):
    values = rows(20_000, 7)
    path = tmp_path / "points.csv"
    path.write_text(text_of(values, ",", True, "\n"))
    split = refragment.split(program, [path], tmp_path / "out.f5", "--fragment-length", "100")
    assert split.report["points"]["agree"]
    tiles = list(split.tiles())
    points = np.concatenate([tile.points for tile in tiles])
    times = np.concatenate([tile.fields["GpsTime"] for tile in tiles])
    found = np.column_stack([points, times])
    expected = values[:, [0, 1, 2, 4]]
    np.testing.assert_array_equal(found[np.lexsort(found.T)], expected[np.lexsort(expected.T)])


def test_other_columns_are_another_plan(program, tmp_path):
    path = tmp_path / "points.xyz"
    path.write_text(text_of(rows(1000, 8), " ", False, "\n"))
    flags = ("--fragment-length", "500")
    refragment.split(program, [path], tmp_path / "out.f5", *flags)
    done = refragment.run(program, "split", path, "-o", tmp_path / "out.f5", *flags,
                          "--columns", "x,y,z,a,b,c", expect=1)
    assert "another plan" in done.stderr


def test_counts_and_box_are_told_without_writing(program, tmp_path):
    values = rows(3000, 9)
    path = tmp_path / "points.csv"
    path.write_text(text_of(values, ",", True, "\n"))
    done = refragment.run(program, "show", path, "--json")
    grid = json.loads(done.stdout)["slices"][0]["grids"][0]
    assert grid["points"] == 3000
    np.testing.assert_array_equal(grid["box"]["min"], values[:, :3].min(axis=0))
    np.testing.assert_array_equal(grid["box"]["max"], values[:, :3].max(axis=0))
