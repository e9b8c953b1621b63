# SPDX-License-Identifier: Apache-2.0
"""Where the program and the real test files are, and one split per set of flags for all tests."""

import os
import pathlib

import pytest

import refragment

ROOT = pathlib.Path(__file__).parents[2]


@pytest.fixture(scope="session")
def program() -> str:
    named = os.environ.get("REFRAGMENT", ROOT / "build" / "dev" / "host" / "refragment")
    path = pathlib.Path(named).resolve()
    assert path.is_file(), f"{path}: no such program; set REFRAGMENT to the one to test"
    return str(path)


@pytest.fixture(scope="session")
def data() -> pathlib.Path:
    folder = pathlib.Path(os.environ.get("LIDARLIB_TEST_DATA", ROOT.parent / "shared" / "data"))
    if not folder.is_dir():
        pytest.skip(f"{folder}: no folder of real LAS files; set LIDARLIB_TEST_DATA")
    return folder.resolve()


@pytest.fixture(scope="session")
def split(program, data, tmp_path_factory):
    """split(names, *flags) -> the split of these test files; made once per session."""
    made = {}

    def split_once(names, *flags):
        names = (names,) if isinstance(names, str) else tuple(names)
        key = names + flags
        if key not in made:
            output = tmp_path_factory.mktemp("split") / "out.f5"
            made[key] = refragment.split(program, [data / name for name in names], output, *flags)
        return made[key]

    return split_once
