# SPDX-License-Identifier: Apache-2.0
"""Compressed files of ours are read by decoders that are not ours, record by record."""

import laspy
import numpy as np
import pytest

import refragment

BACKENDS = [laspy.LazBackend.Lazrs, laspy.LazBackend.LazrsParallel, laspy.LazBackend.Laszip]


def records_of(path, **options) -> np.ndarray:
    """All point records, raw."""
    return laspy.read(path, **options).points.array


@pytest.fixture(scope="module")
def surveys(program, tmp_path_factory):
    """surveys(points, *flags) -> the same survey as .las and as .laz; made once per module."""
    made = {}

    def make(points, *flags):
        key = (points, *flags)
        if key not in made:
            folder = tmp_path_factory.mktemp("survey")
            made[key] = [folder / name for name in ("town.las", "town.laz")]
            for path in made[key]:
                refragment.run(program, "synth", "-o", path, "--points", points, "-q", *flags)
        return made[key]

    return make


@pytest.mark.parametrize("backend", BACKENDS, ids=lambda backend: backend.name)
@pytest.mark.parametrize("points", ["1", "120k"])
def test_every_record_is_that_of_the_plain_file(surveys, backend, points):
    plain, compressed = surveys(points, "--no-waveforms")
    expected = records_of(plain)
    found = records_of(compressed, laz_backend=backend)
    assert len(found) == len(expected) > 0
    assert np.array_equal(found, expected)


def test_any_chunk_can_be_had_alone(surveys):
    """The chunk table is right: a reader that seeks finds what one finds that reads on."""
    plain, compressed = surveys("120k", "--no-waveforms")
    expected = records_of(plain)
    with laspy.open(compressed, laz_backend=laspy.LazBackend.Lazrs) as reader:
        for first in (100_000, 99_990, 50_000, 7):
            reader.seek(first)
            assert np.array_equal(reader.read_points(25).array, expected[first:first + 25]), first


@pytest.mark.parametrize("backend", BACKENDS, ids=lambda backend: backend.name)
def test_records_with_waveforms_are_those_of_the_plain_file(surveys, backend):
    plain, compressed = surveys("20k")
    expected = records_of(plain)
    try:
        found = records_of(compressed, laz_backend=backend)
    except laspy.errors.LaspyException as refusal:
        pytest.skip(f"this reader knows no waveforms: {refusal}")
    assert np.array_equal(found, expected)


def test_headers_say_the_same(surveys):
    plain, compressed = surveys("20k")
    with laspy.open(plain) as one, laspy.open(compressed) as other:
        assert other.header.are_points_compressed and not one.header.are_points_compressed
        for name in ("point_count", "version", "point_format", "creation_date", "system_identifier"):
            assert getattr(other.header, name) == getattr(one.header, name), name
        for name in ("mins", "maxs", "scales", "offsets", "number_of_points_by_return"):
            assert np.array_equal(getattr(other.header, name), getattr(one.header, name)), name


def test_waveforms_inside_follow_the_compressed_points(surveys):
    """The packets of both files are the same bytes, where the headers say that they are."""
    packets = []
    for path in surveys("20k"):
        raw = path.read_bytes()
        start = int.from_bytes(raw[227:235], "little")
        size = int.from_bytes(raw[start + 20:start + 28], "little")
        packets.append(raw[start:start + 60 + size])
        assert len(raw) == start + 60 + size
    assert packets[0] == packets[1]
    assert len(packets[0]) > 100_000
