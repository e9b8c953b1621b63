#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws a plan view of the tiles of a split, each shaded by its heights and coloured by its classes,
with gaps between the tiles. A cloud that is taller than wide is turned, so that west is up. Needs
numpy and h5py.

    refragment synth -o survey.las --points 3M --density 4 --no-waveforms --seed 7
    refragment split survey.las -o survey.f5 --fragment-length 80
    docs/make_picture.py survey/ docs/tiles.png
"""

import pathlib
import struct
import sys
import zlib

import h5py
import numpy as np

WIDTH = 840  # pixels of the picture
GAP = 5  # pixels between tiles
BACKGROUND = (250, 250, 248)
GROUND, VEGETATION = (196, 176, 140), (104, 145, 82)
# By class of the LAS standard; low vegetation, buildings, water and roads have colours of their own.
COLOURS = {2: GROUND, 3: (170, 172, 112), 4: VEGETATION, 5: VEGETATION, 6: (184, 106, 82),
           9: (120, 156, 184), 11: (150, 146, 142)}


def read_tile(path):
    """Index, positions and classes of a tile file."""
    with h5py.File(path, "r") as file:
        groups = []
        file.visititems(lambda name, node: groups.append(node.parent) if name.endswith("/Positions") else None)
        group = groups[0]
        positions = group["Positions"]
        points = positions[()].astype(np.float64)
        if "scale_factor" in positions.attrs:
            points = points * positions.attrs["scale_factor"] + positions.attrs["add_offset"]
        classes = group["Classification"][()] if "Classification" in group else np.full(len(points), 2)
    index = [int(number) for number in path.name[1:].split("T")[0].split("x")]
    return index, points, classes


def fill_holes(heights, colours):
    """Gives pixels between points the mean of their neighbours; larger gaps stay."""
    for _ in range(2):
        empty = np.isnan(heights)
        padded = np.pad(np.dstack([heights, colours]), ((1, 1), (1, 1), (0, 0)), constant_values=np.nan)
        rows, columns = heights.shape
        around = [padded[r:r + rows, c:c + columns] for r in range(3) for c in range(3)]
        around = np.stack([np.where(np.isnan(part[..., :1]), np.nan, part) for part in around])
        known = (~np.isnan(around[..., 0])).sum(axis=0)
        mean = np.nansum(around, axis=0) / np.maximum(known, 1)[..., None]
        fill = empty & (known >= 2)
        heights[fill] = mean[fill, 0]
        colours[fill] = mean[fill, 1:]


def draw_tile(points, classes, origin, metres, shape):
    """Pixels of one tile: colour of the highest point of each pixel, shaded from the north-west."""
    column = np.clip(((points[:, 0] - origin[0]) / metres).astype(int), 0, shape[1] - 1)
    row = np.clip(((points[:, 1] - origin[1]) / metres).astype(int), 0, shape[0] - 1)
    order = np.argsort(points[:, 2])  # later, higher points overwrite lower ones
    heights = np.full(shape, np.nan)
    heights[row[order], column[order]] = points[order, 2]
    palette = np.array([COLOURS.get(number, GROUND) for number in range(256)], float)
    colours = np.full((*shape, 3), BACKGROUND, float)
    colours[row[order], column[order]] = palette[classes[order]]
    fill_holes(heights, colours)
    empty = np.isnan(heights)
    slope_y, slope_x = np.gradient(np.where(empty, np.nanmedian(heights), heights), metres)
    light = np.clip(0.9 + 0.3 * (slope_x - slope_y) / np.sqrt(1 + slope_x**2 + slope_y**2), 0.45, 1.2)
    colours[~empty] *= light[~empty][:, None]
    return colours.clip(0, 255).astype(np.uint8)[::-1]  # north is up


def write_png(path, pixels):
    height, width, _ = pixels.shape
    pixels = pixels & 0xF8  # fewer shades make a much smaller file
    raw = b"".join(b"\0" + row.tobytes() for row in pixels)

    def chunk(kind, content):
        return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    content = chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + content)


def tile_lengths(path):
    """Edge lengths of a tile along x and y, from the grid's attribute."""
    with h5py.File(path, "r") as file:
        grids = []
        file.visititems(lambda _, node: grids.append(node.attrs["FragLength"])
                        if "FragLength" in node.attrs else None)
    return np.array(grids[0][0].tolist())[:2]


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    paths = sorted(pathlib.Path(sys.argv[1]).glob("F*.f5"))
    tiles = [read_tile(path) for path in paths]
    counts = np.max([index[:2] for index, _, _ in tiles], axis=0) + 1
    low = np.min([points.min(axis=0) for _, points, _ in tiles], axis=0)[:2]
    length = tile_lengths(paths[0])
    across = int(counts[1] > counts[0])  # the axis that runs along the picture's width
    metres = (counts * length)[across] / (WIDTH - GAP * (counts[across] + 1))
    size = np.ceil(length / metres).astype(int)
    picture = np.empty((*(counts * (size + GAP) + GAP)[::-1], 3), np.uint8)
    picture[:] = BACKGROUND
    for index, points, classes in tiles:
        tile = draw_tile(points, classes, low + np.array(index[:2]) * length, metres, tuple(size[::-1]))
        x = GAP + index[0] * (size[0] + GAP)
        y = GAP + (counts[1] - 1 - index[1]) * (size[1] + GAP)
        picture[y:y + size[1], x:x + size[0]] = tile
    write_png(pathlib.Path(sys.argv[2]), np.rot90(picture, -across).copy())


if __name__ == "__main__":
    main()
