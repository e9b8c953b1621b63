# SPDX-License-Identifier: Apache-2.0
"""Waveforms of tiles, sample by sample, against packets read straight from the files."""

import numpy as np
import pytest

import cloud

CASES = [
    pytest.param("fwf/100429_152240_2535pt_UTM.las", "fwf/100429_152240_2535pt_UTM.wdp", "10", "0",
                 id="las-external"),
    pytest.param("fwf/riegl_2535pt_internal.las", "fwf/riegl_2535pt_internal.las", "10,10,40", "0.1",
                 id="las-internal"),
    pytest.param("fwf/Haus29_ID04_FWF_V13.laz", "fwf/Haus29_ID04_FWF_V13.wdp", "40", "0", id="laz-external"),
]


@pytest.mark.parametrize("name, packet_file, length, overlap", CASES)
def test_samples_are_those_of_the_packets(split, data, name, packet_file, length, overlap):
    result = split(name, "--fragment-length", length, "--overlap", overlap)
    packets = cloud.Packets(data / name, data / packet_file)
    with_samples = 0
    for tile in result.tiles():
        lengths = tile.fields["FWFLength"]
        rows = tile.fields.get("Waveforms")
        assert rows is not None or lengths.max() == 0
        assert rows is None or rows.shape == (len(tile.points), lengths.max())
        packet_of = zip(tile.fields["WaveDescriptor"], tile.fields["WaveOffset"], tile.fields["WaveSize"])
        for point, (descriptor, offset, size) in enumerate(packet_of):
            samples = packets.samples(int(descriptor), int(offset), int(size))
            assert lengths[point] == len(samples)
            if rows is not None:
                np.testing.assert_array_equal(rows[point, :len(samples)], samples)
                assert not rows[point, len(samples):].any()
            with_samples += len(samples) > 0
    assert with_samples > 1000


def test_packets_out_of_reach_leave_the_points(split):
    result = split("fwf/simple1_3.las", "--fragment-length", "100")
    assert sum(len(tile.points) for tile in result.tiles()) == 999
    assert all(tile.fields["FWFLength"].max() == 0 for tile in result.tiles())
