# SPDX-License-Identifier: Apache-2.0
"""Bundles come back as LAS and LAZ files in which nothing tells that they were ever apart."""

import gzip
import json
import os
import pathlib
import zlib

import laspy
import numpy as np
import pytest

import cloud
import refragment

HERE = pathlib.Path(__file__).parents[2]
DATA = pathlib.Path(os.environ.get("LIDARLIB_TEST_DATA", HERE.parent / "shared" / "data"))
# The largest file takes its own test.
FILES = sorted(str(path.relative_to(DATA)) for path in DATA.rglob("*.la[sz]") if path.stat().st_size < 4e7)
LIDAR_HD = [name for name in FILES if name.startswith("lidarhd/")]
# A few that differ in what matters: (files, tile length)
SURVEYS = [
    pytest.param(["small/mvk-thin.las"], "1000", id="plain"),
    pytest.param(["small/extrabytes.las"], "400", id="extra-bytes"),
    pytest.param(["small/autzen-dd.las"], "0.004", id="degrees"),
    pytest.param(["small/lone-star.copc.laz"], "15", id="copc"),
    pytest.param(LIDAR_HD, "40", id="several-files"),
    pytest.param(["fwf/100429_152240_2535pt_UTM.las"], "10", id="waveforms-outside"),
    pytest.param(["fwf/riegl_2535pt_internal.las"], "10", id="waveforms-inside"),
    pytest.param(["fwf/Haus29_ID04_FWF_V13.laz"], "30", id="waveforms-compressed"),
]


def records_of(path, **options) -> np.ndarray:
    return laspy.read(path, **options).points.array


def kept_records(las):
    """VLRs and EVLRs but those that tell how a file stores its points."""
    def facts(records):
        return [(r.user_id, r.record_id, r.description, r.record_data_bytes()) for r in records or []
                if r.user_id != "copc" and not (r.user_id == "LASF_Spec" and r.record_id == 65535)]
    return facts(las.header.vlrs), facts(las.evlrs)


def header_facts(las):
    header = las.header
    return (str(header.version), header.point_format.id, tuple(header.scales), tuple(header.offsets),
            header.system_identifier, header.generating_software, header.uuid, header.file_source_id,
            header.point_count)


def packet_file(path):
    """What holds the packets of a LAS file: itself, or the .wdp beside it; none where it is missing."""
    with laspy.open(path) as reader:
        inside = reader.header.global_encoding.waveform_data_packets_internal
    beside = path.with_suffix(".wdp")
    return path if inside else beside if beside.exists() else None


def waveforms_of(path):
    """The samples of each point, as bytes."""
    points = records_of(path)
    packets = cloud.Packets(path, packet_file(path))
    return [packets.samples(int(p["wavepacket_index"]), int(p["wavepacket_offset"]),
                            int(p["wavepacket_size"])).tobytes() for p in points]


def sorted_points(paths) -> np.ndarray:
    """Every record in ascending order of its bytes; the samples' digest in the place of the offset to them."""
    rows = []
    for path in paths:
        points = records_of(path).copy()
        if "wavepacket_offset" in points.dtype.names and packet_file(path):
            points["wavepacket_offset"] = [zlib.crc32(samples) for samples in waveforms_of(path)]
        rows.append(points.view(f"S{points.dtype.itemsize}").reshape(-1))
    return np.sort(np.concatenate(rows))


def export(program, bundle, output, *flags, **options):
    return refragment.run(program, "export", bundle, "-o", output, "-q", *flags, **options)


@pytest.mark.parametrize("name", FILES)
def test_import_and_export_give_back_every_bit(program, data, tmp_path, name):
    source = data / name
    bundle, back = tmp_path / "x.f5", tmp_path / ("back" + source.suffix)
    refragment.run(program, "import", source, "-o", bundle, "-q")
    export(program, bundle, back)
    expected, found = laspy.read(source), laspy.read(back)
    assert found.points.array.dtype == expected.points.array.dtype
    assert found.points.array.tobytes() == expected.points.array.tobytes()
    assert kept_records(found) == kept_records(expected)
    assert header_facts(found) == header_facts(expected)


@pytest.mark.parametrize("place", ["external", "internal"])
@pytest.mark.parametrize("name", [name for name in FILES if name.startswith("fwf/")])
def test_waveforms_come_back(program, data, tmp_path, name, place):
    source, bundle, back = data / name, tmp_path / "x.f5", tmp_path / "back.laz"
    refragment.run(program, "import", source, "-o", bundle, "-q")
    export(program, bundle, back, "--waveforms", place)
    if "simple1_3" in name:
        pytest.skip(f"{name}: its packets lie past the end of its data, so that there is nothing to compare")
    assert packet_file(back) == (back if place == "internal" else tmp_path / "back.wdp")
    assert waveforms_of(back) == waveforms_of(source)


@pytest.mark.parametrize("overlap", ["0", "0.15"])
@pytest.mark.parametrize("shape", [(), ("--single-file",)], ids=["files", "single"])
@pytest.mark.parametrize("names, length", SURVEYS)
def test_split_and_export_keep_every_record_once(program, data, split, tmp_path, names, length, shape, overlap):
    made = split(names, "--fragment-length", length, "--overlap", overlap, *shape)
    back = tmp_path / "back.las"
    export(program, made.output, back)
    np.testing.assert_array_equal(sorted_points([back]), sorted_points(data / name for name in names))


@pytest.mark.parametrize("names, length", SURVEYS)
def test_folder_of_tiles_holds_every_record_once(program, data, split, tmp_path, names, length):
    made = split(names, "--fragment-length", length, "--overlap", "0.15")
    folder = tmp_path / "tiles"
    report = json.loads(export(program, made.output, folder, "--json").stdout)
    tiles = sorted(folder.glob("*.laz"))
    assert len(tiles) > 1
    assert {pathlib.Path(file["path"]) for file in report["files"] if file["points"]} == set(tiles)
    np.testing.assert_array_equal(sorted_points(tiles), sorted_points(data / name for name in names))
    assert report["points"] == sum(len(records_of(tile)) for tile in tiles)


@pytest.mark.parametrize("overlap", ["0", "0.15"])
@pytest.mark.parametrize("names, length", SURVEYS)
def test_kept_order_brings_back_the_files(program, data, split, tmp_path, names, length, overlap):
    made = split(names, "--fragment-length", length, "--overlap", overlap, "--keep-order")
    export(program, made.output, tmp_path / "back", "--files", "source")
    for name in names:
        found, expected = tmp_path / "back" / pathlib.Path(name).name, data / name
        assert records_of(found).tobytes() == records_of(expected).tobytes()
        assert kept_records(laspy.read(found)) == kept_records(laspy.read(expected))
    export(program, made.output, tmp_path / "one.las")
    points = np.concatenate([records_of(data / name) for name in names])
    assert records_of(tmp_path / "one.las").tobytes() == points.tobytes()


@pytest.mark.parametrize("backend", [laspy.LazBackend.Lazrs, laspy.LazBackend.Laszip], ids=lambda b: b.name)
@pytest.mark.parametrize("name", ["lidarhd/test_data_77050_627755_LA93_IGN69.laz",
                                  "small/las_with_several_extra_byte_bloc.laz"])
def test_other_decoders_read_what_was_compressed(program, data, tmp_path, name, backend):
    refragment.run(program, "import", data / name, "-o", tmp_path / "x.f5", "-q")
    export(program, tmp_path / "x.f5", tmp_path / "x.laz")
    expected, found = laspy.read(data / name), laspy.read(tmp_path / "x.laz", laz_backend=backend)
    for dimension in expected.point_format.dimension_names:
        np.testing.assert_array_equal(found[dimension], expected[dimension], err_msg=dimension)


def test_files_of_another_writer_pass_through(program, tmp_path):
    rng = np.random.default_rng(7)
    header = laspy.LasHeader(point_format=7, version="1.4")
    header.scales, header.offsets = [0.01, 0.02, 0.005], [1000, -500, 3]
    header.add_extra_dim(laspy.ExtraBytesParams("height", np.int16, "above ground", offsets=np.array([1.5]),
                                                scales=np.array([0.25]), no_data=np.array([-99.0])))
    header.add_extra_dim(laspy.ExtraBytesParams("normal", "3f4"))
    las = laspy.LasData(header)
    count = 1000
    las.X, las.Y, las.Z = (rng.integers(-100000, 100000, count) for _ in range(3))
    las.gps_time, las.red = rng.random(count), rng.integers(0, 65536, count)
    las.points.array["height"] = rng.integers(-1000, 1000, count)
    las.points.array["normal"] = rng.random((count, 3))
    las.write(tmp_path / "in.laz")
    refragment.run(program, "split", tmp_path / "in.laz", "-o", tmp_path / "s.f5", "--fragment-length", "500",
                   "--keep-order", "-q")
    export(program, tmp_path / "s.f5", tmp_path / "back.laz")
    las, back = laspy.read(tmp_path / "in.laz"), laspy.read(tmp_path / "back.laz")
    assert back.points.array.tobytes() == las.points.array.tobytes()
    np.testing.assert_array_equal(back["height"], las["height"])
    assert kept_records(back) == kept_records(las)


def test_margins_are_kept_or_marked_on_demand(program, data, split, tmp_path):
    name = LIDAR_HD[0]
    made = split(name, "--fragment-length", "20", "--overlap", "0.1")
    inside = sum(len(tile.fields["Positions"]) for tile in made.tiles())
    source = records_of(data / name)
    assert inside > len(source)
    export(program, made.output, tmp_path / "keep.las", "--overlap", "keep")
    export(program, made.output, tmp_path / "flag.las", "--overlap", "flag")
    assert len(records_of(tmp_path / "keep.las")) == len(records_of(tmp_path / "flag.las")) == inside
    flagged = laspy.read(tmp_path / "flag.las")
    assert not np.asarray(laspy.read(data / name).overlap).any()
    own = flagged.points.array[~np.asarray(flagged.overlap, bool)]
    assert sorted(r.tobytes() for r in own) == sorted(r.tobytes() for r in source)


def test_marks_go_to_withheld_in_old_formats(program, data, split, tmp_path):
    made = split("small/mvk-thin.las", "--fragment-length", "1000", "--overlap", "0.1")
    export(program, made.output, tmp_path / "flag.las", "--overlap", "flag")
    flagged = laspy.read(tmp_path / "flag.las")
    assert (~np.asarray(flagged.withheld, bool)).sum() == len(records_of(data / "small/mvk-thin.las"))


@pytest.fixture(scope="module")
def city(program, data, tmp_path_factory):
    bundle = tmp_path_factory.mktemp("bundle") / "x.f5"
    refragment.run(program, "import", data / LIDAR_HD[0], "-o", bundle, "-q")
    return bundle


def test_other_format_is_refused_where_it_would_lose_values(program, tmp_path):
    bundle = import_all(program, tmp_path, write_las(tmp_path / "a.las", 7, red=np.full(100, 7)))
    failed = export(program, bundle, tmp_path / "x.las", "--format", "6", expect=1)
    assert "field Red has no place in point format 6" in failed.stderr
    assert not (tmp_path / "x.las").exists()
    lossy = refragment.run(program, "export", bundle, "-o", tmp_path / "x.las", "--format", "6", "--lossy")
    assert "left out" in lossy.stderr
    assert laspy.read(tmp_path / "x.las").point_format.id == 6


def test_richer_format_holds_everything(program, data, city, tmp_path):
    export(program, city, tmp_path / "x.las", "--format", "10")
    expected, found = laspy.read(data / LIDAR_HD[0]), laspy.read(tmp_path / "x.las")
    assert found.point_format.id == 10
    for dimension in expected.point_format.dimension_names:
        np.testing.assert_array_equal(found[dimension], expected[dimension], err_msg=dimension)


def test_coarser_scale_needs_a_word(program, data, city, tmp_path):
    failed = export(program, city, tmp_path / "x.las", "--scale", "0.1", expect=1)
    assert "scale 0.1" in failed.stderr and not any(tmp_path.iterdir())
    export(program, city, tmp_path / "x.las", "--scale", "0.1", "--lossy")
    expected, found = laspy.read(data / LIDAR_HD[0]), laspy.read(tmp_path / "x.las")
    for axis in "xyz":
        assert np.abs(np.asarray(found[axis]) - np.asarray(expected[axis])).max() <= 0.05 + 1e-9


def test_names_follow_the_template(program, split, tmp_path):
    made = split(LIDAR_HD[0], "--fragment-length", "4")
    export(program, made.output, tmp_path / "t", "--name", "{grid}-{i}-{j}", "--as", "las")
    names = sorted(path.name for path in (tmp_path / "t").glob("*.las"))
    assert "points-00-00.las" in names and all(len(name) == len("points-00-00.las") for name in names)
    export(program, made.output, tmp_path / "u", "--name", "{xmin}_{ymin}")
    for path in (tmp_path / "u").glob("*.laz"):
        corner = [float(part) for part in path.stem.split("_")]
        assert (laspy.read(path).header.mins[:2] >= corner).all()


def write_las(path, point_format=1, scale=0.01, wkt=None, **fields):
    header = laspy.LasHeader(point_format=point_format, version="1.4")
    header.scales, header.offsets = [scale] * 3, [0, 0, 0]
    if wkt:
        header.vlrs.append(laspy.VLR("LASF_Projection", 2112, "", wkt.encode() + b"\0"))
    las = laspy.LasData(header)
    las.X = las.Y = las.Z = np.arange(1, 101)
    for name, values in fields.items():
        las[name] = values
    las.write(path)
    return path


def import_all(program, tmp_path, *files):
    refragment.run(program, "import", *files, "-o", tmp_path / "all.f5", "-q")
    return tmp_path / "all.f5"


def test_colour_of_some_files_makes_a_format_with_colour(program, tmp_path):
    bundle = import_all(program, tmp_path, write_las(tmp_path / "a.las", 1),
                        write_las(tmp_path / "b.las", 3, red=np.full(100, 7)))
    export(program, bundle, tmp_path / "x.las")
    found = laspy.read(tmp_path / "x.las")
    assert found.point_format.id == 3
    assert (np.asarray(found.red) == [0] * 100 + [7] * 100).all()


def test_files_of_other_scales_share_one_that_is_exact(program, tmp_path):
    files = [write_las(tmp_path / "a.las", scale=0.01), write_las(tmp_path / "b.las", scale=0.001)]
    export(program, import_all(program, tmp_path, *files), tmp_path / "x.las")
    found = np.asarray(laspy.read(tmp_path / "x.las").x)
    np.testing.assert_array_equal(found, np.concatenate([np.asarray(laspy.read(f).x) for f in files]))


def test_other_coordinate_systems_are_refused(program, tmp_path):
    bundle = import_all(program, tmp_path, write_las(tmp_path / "a.las", wkt='LOCAL_CS["a"]'),
                        write_las(tmp_path / "b.las", wkt='LOCAL_CS["b"]'))
    failed = export(program, bundle, tmp_path / "x.las", expect=1)
    assert "b.las" in failed.stderr and "coordinate system" in failed.stderr
    assert not (tmp_path / "x.las").exists()


def test_catalogue_lists_the_tiles_by_relative_paths(program, split, tmp_path):
    made = split(LIDAR_HD, "--fragment-length", "40")
    export(program, made.output, tmp_path / "tiles")
    (tmp_path / "tiles").rename(tmp_path / "moved")
    catalogue = json.loads((tmp_path / "moved" / "tiles.vpc").read_text())
    hrefs = [item["assets"]["data"]["href"] for item in catalogue["features"]]
    assert len(hrefs) == len(list((tmp_path / "moved").glob("*.laz")))
    for item, href in zip(catalogue["features"], hrefs):
        path = tmp_path / "moved" / href
        assert path.is_file() and item["properties"]["pc:count"] == len(records_of(path))
    index = json.loads((tmp_path / "moved" / "tiles.geojson").read_text())
    assert len(index["features"]) == len(hrefs)


@pytest.mark.parametrize("ending", [".csv", ".csv.gz", ".txt"])
def test_text_has_every_point_and_column(program, data, split, tmp_path, ending):
    made = split(LIDAR_HD[0], "--fragment-length", "20", "--overlap", "0.1")
    path = tmp_path / ("points" + ending)
    export(program, made.output, path)
    opener = gzip.open if ending.endswith(".gz") else open
    with opener(path, "rt") as text:
        names = text.readline().replace(",", " ").split()
    table = np.loadtxt(path, delimiter="," if ".csv" in ending else None, skiprows=1)
    source = cloud.read([data / LIDAR_HD[0]])
    expected = np.column_stack([source["Positions"], *(source[name] for name in names[3:])])
    assert names[:3] == ["x", "y", "z"] and set(names[3:]) == set(source) - {"Positions"}
    np.testing.assert_array_equal(np.sort(table.view("f8,f8,f8" + ",f8" * (len(names) - 3)), axis=0),
                                  np.sort(np.ascontiguousarray(expected, "f8").view(
                                      "f8,f8,f8" + ",f8" * (len(names) - 3)), axis=0))


def test_text_goes_back_to_las_digit_by_digit(program, data, split, tmp_path):
    made = split(LIDAR_HD[0], "--fragment-length", "20")
    export(program, made.output, tmp_path / "points.xyz", "--field", "Intensity", "--lossy")
    refragment.run(program, "import", tmp_path / "points.xyz", "-o", tmp_path / "x.f5", "-q",
                   "--columns", "x,y,z,Intensity")
    export(program, tmp_path / "x.f5", tmp_path / "x.las")
    found, expected = laspy.read(tmp_path / "x.las"), laspy.read(data / LIDAR_HD[0])
    for las in (found, expected):
        las.order = np.lexsort((las.intensity, np.round(las.z, 3), np.round(las.y, 3), np.round(las.x, 3)))
    for name in ("x", "y", "z", "intensity"):
        np.testing.assert_allclose(np.asarray(found[name])[found.order], np.asarray(expected[name])[expected.order],
                                   rtol=0, atol=1e-9, err_msg=name)


@pytest.mark.parametrize("flags, text, status", [
    (("-o", "x/y.laz", "--name", "a"), "for a folder", 2),
    (("-o", "t", "--name", "{what}"), "{what}", 2),
    (("-o", "t", "--name", "../{i}"), "--name", 2),
    (("-o", "t", "--name", "same"), "--name tells them apart", 2),
    (("-o", "t", "--files", "source"), "--keep-order", 1),
    (("-o", "x.laz", "--format", "11"), "0 to 10", 2),
    (("-o", "x.laz", "--scale", "0"), "above 0", 2),
    (("-o", "x.laz", "--grid", "none"), "none", 2),
])
def test_mistakes_are_told_and_leave_nothing(program, split, tmp_path, flags, text, status):
    made = split(LIDAR_HD[0], "--fragment-length", "20")
    failed = refragment.run(program, "export", made.output, *flags, folder=tmp_path, expect=status)
    assert text in failed.stderr and len(failed.stderr.strip().splitlines()) == 1
    assert not any(tmp_path.iterdir())


def test_what_exists_stays(program, split, tmp_path):
    made = split(LIDAR_HD[0], "--fragment-length", "20")
    (tmp_path / "x.laz").write_text("mine")
    failed = export(program, made.output, tmp_path / "x.laz", expect=1)
    assert "--force" in failed.stderr and (tmp_path / "x.laz").read_text() == "mine"
    export(program, made.output, tmp_path / "x.laz", "--force")
    assert len(records_of(tmp_path / "x.laz"))
