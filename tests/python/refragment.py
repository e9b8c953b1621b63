# SPDX-License-Identifier: Apache-2.0
"""Runs the program, and reads its tiles by h5py alone, as the format's description says."""

import dataclasses
import json
import pathlib
import re
import subprocess

import h5py
import numpy as np
import numpy.lib.recfunctions

TILE_NAME = re.compile(r"F(\d+)x(\d+)x(\d+)T(.+)G(.+)\.f5")


@dataclasses.dataclass
class Tile:
    """One tile file: its index, and its fields as arrays, points along the first axis."""

    path: pathlib.Path
    index: tuple
    fields: dict
    attributes: dict

    @property
    def points(self) -> np.ndarray:
        return self.fields["Positions"]


@dataclasses.dataclass
class Split:
    output: pathlib.Path
    report: dict
    inputs: list

    @property
    def tile_folder(self) -> pathlib.Path:
        return self.output.with_suffix("")

    def tiles(self):
        """All tiles, read anew, in the order of their names."""
        for path in sorted(self.tile_folder.glob("F*.f5")):
            yield read_tile(path)


def run(program, *arguments, expect=0, folder=None):
    """Runs the program (in a folder) and returns what it did; its exit status must be the expected one."""
    done = subprocess.run([program, *map(str, arguments)], capture_output=True, text=True, check=False, cwd=folder)
    assert done.returncode == expect, f"{arguments}: exit status {done.returncode}\n{done.stderr}"
    return done


def split(program, inputs, output, *flags, expect=0) -> Split:
    done = run(program, "split", *inputs, "-o", output, "--json", "--no-sync", "-q", *flags, expect=expect)
    return Split(pathlib.Path(output), json.loads(done.stdout), list(inputs))


def values_of(dataset: h5py.Dataset) -> np.ndarray:
    """The values that a dataset stands for: scaled integers are multiplied, then shifted."""
    values = dataset[()]
    if "scale_factor" in dataset.attrs:
        values = values * dataset.attrs["scale_factor"] + dataset.attrs["add_offset"]
    return values


def plain(values: np.ndarray) -> np.ndarray:
    """Points are stored as records of x, y, z: here three numbers in a row."""
    return np.lib.recfunctions.structured_to_unstructured(values) if values.dtype.names else values


def _group_with(file: h5py.File, name: str) -> h5py.Group:
    """The one group of a file that has a dataset of that name."""
    found = []
    file.visititems(lambda _, node: found.append(node.parent)
                    if isinstance(node, h5py.Dataset) and node.name.endswith("/" + name) else None)
    assert len(found) == 1, f"{file.filename}: {len(found)} datasets {name}, expected 1"
    return found[0]


def representation_of(file: h5py.File) -> h5py.Group:
    """The group of the one representation that a tile file has."""
    return _group_with(file, "Positions")


def representation_of_table(file: h5py.File) -> h5py.Group:
    """The same by its table of fragments, for a file that may hold no points of its own."""
    return _group_with(file, "fragments")


def read_tile(path: pathlib.Path) -> Tile:
    index = tuple(int(number) for number in TILE_NAME.fullmatch(path.name).groups()[:3])
    with h5py.File(path, "r") as file:
        group = representation_of(file)
        fields = {name: values_of(node) for name, node in group.items()
                  if name != "fragments" and isinstance(node, h5py.Dataset)}
        grid = group.parent.parent
        attributes = {name: plain(np.asarray(value)) for name, value in grid.attrs.items()}
    return Tile(path, index, fields, attributes)
