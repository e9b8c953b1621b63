# SPDX-License-Identifier: Apache-2.0
"""Link tables that mean no good end in one clear line, without hanging and without following them."""

import os
import subprocess
import zlib

import h5py
import numpy as np
import pytest

import refragment


@pytest.fixture
def linked(program, tmp_path):
    """A linked bundle of two or more tiles."""
    survey = tmp_path / "survey.las"
    refragment.run(program, "synth", "-o", survey, "--points", "20k", "--no-waveforms", "-q")
    return refragment.split(program, [survey], tmp_path / "out.f5", "--fragment-length", "40")


def redirect(bundle, target):
    """Lets the first row of the link table lead to `target`, with a checksum that fits."""
    with h5py.File(bundle, "r+") as file:
        group = refragment.representation_of_table(file)
        old = group["fragments"]
        text = h5py.string_dtype("utf-8", 300)
        columns = [(name, text if name == "file" else old.dtype[name]) for name in old.dtype.names]
        rows = np.zeros(len(old), columns)
        for name in old.dtype.names:
            rows[name] = old[name]
        rows["file"][0] = os.fsencode(target)
        names = np.ravel(old.attrs["fields"])
        del group["fragments"]
        new = group.create_dataset("fragments", data=rows)
        new.attrs["fields"] = names
        new.attrs["crc32"] = np.uint32(zlib.crc32(rows.tobytes()))


def outcome(program, *arguments):
    done = subprocess.run([program, *map(str, arguments)], capture_output=True, text=True,
                          timeout=60, check=False)
    assert done.returncode in (1, 3, 4), done.stderr
    assert "terminate" not in done.stderr
    return done.stderr


@pytest.mark.parametrize("target", [
    pytest.param("/etc/passwd", id="absolute"),
    pytest.param("../" * 40 + "etc/passwd", id="upwards"),
    pytest.param("missing.f5", id="missing"),
    pytest.param("out.f5", id="itself"),
    pytest.param(".", id="folder"),
    pytest.param("pipe", id="fifo"),
    pytest.param("/dev/zero", id="device"),
    pytest.param("out/plan.json", id="no-bundle"),
    pytest.param("survey.las", id="other-format"),
])
def test_row_that_leads_astray(program, linked, tmp_path, target):
    os.mkfifo(tmp_path / "pipe")
    redirect(linked.output, target)
    for flags in ((), ("--quick",)):
        said = outcome(program, "verify", linked.output, *flags).splitlines()
        assert len(said) == 1, said
        assert said[0].startswith("refragment: tile [0x0x0]: "), "the table itself was accepted"
    said = outcome(program, "split", linked.output, "-o", tmp_path / "again" / "again.f5",
                   "--fragment-length", "10", "--no-sync")
    assert said.startswith("refragment: ")
