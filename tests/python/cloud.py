# SPDX-License-Identifier: Apache-2.0
"""The input clouds as laspy and struct read them: the judge of what the program makes."""

import pathlib
import struct

import laspy
import numpy as np

# Our field -> laspy's dimension.
DIMENSIONS = {
    "Intensity": "intensity",
    "ReturnNumber": "return_number",
    "NumberOfReturns": "number_of_returns",
    "ScanDirectionFlag": "scan_direction_flag",
    "EdgeOfFlightLine": "edge_of_flight_line",
    "Classification": "classification",
    "Synthetic": "synthetic",
    "KeyPoint": "key_point",
    "Withheld": "withheld",
    "Overlap": "overlap",
    "ScanChannel": "scanner_channel",
    "UserData": "user_data",
    "PointSourceId": "point_source_id",
    "GpsTime": "gps_time",
    "Red": "red",
    "Green": "green",
    "Blue": "blue",
    "Infrared": "nir",
    "WaveDescriptor": "wavepacket_index",
    "WaveOffset": "wavepacket_offset",
    "WaveSize": "wavepacket_size",
    "WaveReturnLocation": "return_point_wave_location",
    "WaveXt": "x_t",
    "WaveYt": "y_t",
    "WaveZt": "z_t",
}


def read(paths) -> dict:
    """Positions (n x 3) and every known field of some files, one after the other."""
    parts = [_read_one(path) for path in paths]
    names = set.intersection(*(set(part) for part in parts))
    return {name: np.concatenate([part[name] for part in parts]) for name in names}


def _read_one(path: pathlib.Path) -> dict:
    las = laspy.read(path)
    fields = {"Positions": np.column_stack([las.x, las.y, las.z]).astype(np.float64)}
    present = set(las.point_format.dimension_names)
    for field, dimension in DIMENSIONS.items():
        if dimension in present:
            fields[field] = np.asarray(las[dimension])
    angle = "scan_angle" if "scan_angle" in present else "scan_angle_rank"
    fields["ScanAngle"] = np.asarray(las[angle])
    for dimension in las.point_format.extra_dimension_names:
        values = las.points.array[dimension]
        name = dimension + "_2" if dimension in fields else dimension
        if values.ndim == 1:
            fields[name] = values
        else:
            fields |= {f"{name}[{i}]": values[:, i] for i in range(values.shape[1])}
    return fields


class Packets:
    """Waveform packets read straight from the file that holds them, by offsets and sizes alone."""

    def __init__(self, las_path: pathlib.Path, packet_path: pathlib.Path):
        with laspy.open(las_path) as reader:
            header = reader.header
            # User id LASF_Spec, records 100 to 354: bits a sample, compression, samples, ...
            self.descriptors = {
                record.record_id - 99: struct.unpack_from("<BBI", record.record_data_bytes())
                for record in header.vlrs
                if record.user_id == "LASF_Spec" and 100 <= record.record_id < 355
            }
        raw = las_path.read_bytes()[:235]
        start = struct.unpack_from("<Q", raw, 227)[0] if packet_path == las_path else 0
        self.data = packet_path.read_bytes()[start:]

    def samples(self, descriptor: int, offset: int, size: int) -> np.ndarray:
        """The samples of one packet; none for descriptor 0."""
        if descriptor == 0:
            return np.zeros(0, np.uint16)
        bits, compression, count = self.descriptors[descriptor]
        assert compression == 0
        kind = {8: "<u1", 16: "<u2"}[bits]
        assert count * bits // 8 == size
        return np.frombuffer(self.data, kind, count, offset).astype(np.uint16)
