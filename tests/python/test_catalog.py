# SPDX-License-Identifier: Apache-2.0
"""Virtual point clouds and tile indices are what their specifications ask for."""

import datetime
import json
import pathlib
import re
import subprocess

import laspy
import pystac
import pytest
from pystac.extensions.pointcloud import PointcloudExtension
from pystac.extensions.projection import ProjectionExtension

import refragment

LIDARHD = ["test_data_77050_627755_LA93_IGN69.laz", "test_data_77060_627760_LA93_IGN69.laz"]


@pytest.fixture(scope="module")
def writer(program):
    """The test program that writes a catalog of LAS files by what their headers say."""
    path = pathlib.Path(program).parents[1] / "tests" / "formats" / "catalog" / "catalog_of"
    if not path.is_file():
        pytest.skip(f"{path}: not built beside the program")
    return path


def catalog_of(writer, folder, names):
    """The two files of a catalog, parsed, and the notes."""
    done = subprocess.run([writer, folder, "all", *names], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    parsed = [json.loads((folder / f"all.{ending}").read_text()) for ending in ("vpc", "geojson")]
    return *parsed, done.stdout.splitlines()


@pytest.fixture(scope="module")
def survey(program, writer, tmp_path_factory):
    """A catalog of two made-up tiles, with their folder."""
    folder = tmp_path_factory.mktemp("catalog")
    for name, seed in (("one.laz", "1"), ("two.las", "2")):
        refragment.run(program, "synth", "-o", folder / name, "--points", "5k", "--seed", seed,
                       "--no-waveforms", "-q")
    return folder, *catalog_of(writer, folder, ["one.laz", "two.las"])


@pytest.fixture(scope="module")
def french(writer, data, tmp_path_factory):
    """The same of two real tiles."""
    folder = tmp_path_factory.mktemp("french")
    for name in LIDARHD:
        (folder / name).symlink_to(data / "lidarhd" / name)
    return folder, *catalog_of(writer, folder, LIDARHD)


def check_position(position, bbox):
    west, south, _, east, north, _ = bbox
    longitude, latitude = position
    assert west <= longitude <= east and south <= latitude <= north


def check_item(item):
    """What the item specification 1.0.0 and the two extensions require."""
    assert item["type"] == "Feature"
    assert item["stac_version"] == "1.0.0"
    assert isinstance(item["id"], str) and item["id"]
    assert isinstance(item["links"], list)
    assert {re.search(r"/(\w+)/v", uri).group(1) for uri in item["stac_extensions"]} == {"pointcloud", "projection"}
    assert set(item["assets"]) == {"data"}
    assert item["assets"]["data"]["roles"] == ["data"]
    properties = item["properties"]
    assert datetime.datetime.fromisoformat(properties["datetime"].replace("Z", "+00:00")).tzinfo
    assert type(properties["pc:count"]) is int
    assert properties["pc:type"] == "lidar"
    for schema in properties["pc:schemas"]:
        assert set(schema) == {"name", "size", "type"}
        assert schema["type"] in ("floating", "unsigned", "signed") and schema["size"] in (1, 2, 4, 8)
    for statistics in properties["pc:statistics"]:
        assert properties["pc:schemas"][statistics["position"]]["name"] == statistics["name"]
    assert "proj:epsg" in properties and isinstance(properties["proj:wkt2"], str)
    if item["geometry"] is None:
        assert "bbox" not in item
        return
    ring, = item["geometry"]["coordinates"]
    assert item["geometry"]["type"] == "Polygon" and len(ring) == 5 and ring[0] == ring[-1]
    for position in ring:
        check_position(position, item["bbox"])
    area = sum(a[0] * b[1] - b[0] * a[1] for a, b in zip(ring, ring[1:]))
    assert area > 0, "rings go counterclockwise"


@pytest.mark.parametrize("which", ["survey", "french"])
def test_items_have_what_is_required(which, request):
    folder, cloud, _, notes = request.getfixturevalue(which)
    # The headers of the real tiles tell no day.
    assert len(notes) == (which == "french") and all("the date of the points" in note for note in notes)
    assert cloud["type"] == "FeatureCollection"
    assert len({item["id"] for item in cloud["features"]}) == len(cloud["features"]) == 2
    for item in cloud["features"]:
        check_item(item)
        with laspy.open(folder / item["assets"]["data"]["href"]) as tile:
            header = tile.header
        assert item["properties"]["pc:count"] == header.point_count
        assert item["properties"]["proj:bbox"] == [*header.mins, *header.maxs]


@pytest.mark.parametrize("which, epsg", [("survey", 25832), ("french", None)])
def test_items_are_understood_by_pystac(which, epsg, request):
    _, cloud, _, _ = request.getfixturevalue(which)
    collection = pystac.ItemCollection.from_dict(cloud)
    assert len(collection.items) == 2
    for item, raw in zip(collection.items, cloud["features"]):
        points = PointcloudExtension.ext(item)
        assert points.count == raw["properties"]["pc:count"]
        assert [schema.name for schema in points.schemas][:3] == ["X", "Y", "Z"]
        projection = ProjectionExtension.ext(item)
        assert projection.wkt2 == raw["properties"]["proj:wkt2"] != ""
        if epsg:
            assert projection.epsg == epsg


def test_outlines_lie_where_the_places_are(survey, french):
    """The made-up town is near 8.4 E 49 N; the real tiles, in the south of France."""
    for (_, cloud, _, _), (longitude, latitude) in ((survey, (8.4, 49.0)), (french, (3.86, 43.6))):
        for item in cloud["features"]:
            west, south, _, east, north, _ = item["bbox"]
            assert abs((west + east) / 2 - longitude) < 0.1
            assert abs((south + north) / 2 - latitude) < 0.1


@pytest.mark.parametrize("which", ["survey", "french"])
def test_index_shows_the_same_outlines(which, request):
    _, cloud, index, _ = request.getfixturevalue(which)
    assert index["type"] == "FeatureCollection"
    for item, feature in zip(cloud["features"], index["features"], strict=True):
        assert feature["type"] == "Feature"
        assert feature["geometry"] == item["geometry"]
        assert feature["properties"]["points"] == item["properties"]["pc:count"]
        assert "./" + feature["properties"]["file"] == item["assets"]["data"]["href"]
        assert feature["properties"]["zmin"] == item["properties"]["proj:bbox"][2]


def test_unknown_system_leaves_no_outlines(writer, data, tmp_path):
    (tmp_path / "plain.las").symlink_to(data / "small" / "vegetation_1_3.las")
    cloud, index, notes = catalog_of(writer, tmp_path, ["plain.las"])
    check_item(cloud["features"][0])
    assert cloud["features"][0]["geometry"] is None is index["features"][0]["geometry"]
    assert any("the coordinate system is not known" in note for note in notes)
    pystac.ItemCollection.from_dict(cloud)
