# SPDX-License-Identifier: Apache-2.0
"""What the documents say is so: flags exist, links lead somewhere, the printed reader reads."""

import contextlib
import io
import pathlib
import re

import numpy
import pytest

import refragment

ROOT = pathlib.Path(__file__).parents[2]
DOCUMENTS = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
COMMANDS = ("info", "split", "link", "show", "verify", "import", "export", "synth")
# Flags of other programs that the documents name.
FOREIGN = {"--preset", "--workflow", "--build", "--install", "--prefix", "--target", "--fix", "--no-tests",
           "--quick", "--only", "--las", "--laz", "--call-graph", "--no-children"}


@pytest.fixture(scope="module")
def known_flags(program):
    texts = [refragment.run(program, command, "--help").stdout for command in COMMANDS]
    return set(re.findall(r"--[a-z][a-z-]+", "\n".join(texts)))


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_every_flag_exists(document, known_flags):
    named = set(re.findall(r"(?<![\w-])--[a-z][a-z-]+", document.read_text()))
    assert named - FOREIGN <= known_flags


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_every_link_leads_to_a_file(document):
    targets = re.findall(r"\]\(([^)#:]+)\)", document.read_text())
    missing = [target for target in targets if not (document.parent / target).exists()]
    assert not missing


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_every_source_file_named_exists(document):
    folders = "datamodel|formats|planning|assembly|operation|linked|host|tests|scripts|docs|benchmarks"
    named = re.findall(rf"`((?:{folders})/[\w/.-]+\.(?:cpp|hpp|py|sh|toml|lock|txt))`", document.read_text())
    missing = [name for name in named if not (ROOT / name).exists()]
    assert not missing


def test_printed_reader_reads_a_tile(split, tmp_path, monkeypatch):
    """The short reader of the format's description runs as printed, on a real tile."""
    blocks = re.findall(r"```python\n(.*?)```", (ROOT / "docs" / "container-format.md").read_text(), re.DOTALL)
    readers = [block for block in blocks if "h5py" in block]
    assert readers, "the document has no reader"
    assert len(readers[0].strip().splitlines()) <= 12
    result = split("small/vegetation_1_3.las", "--fragment-length", "1")
    tile = next(result.tiles())
    named = re.search(r"""["']([^"']+\.f5)["']""", readers[0])
    assert named, "the reader opens no .f5 file"
    (tmp_path / named.group(1)).parent.mkdir(parents=True, exist_ok=True)
    (tmp_path / named.group(1)).write_bytes(tile.path.read_bytes())
    monkeypatch.chdir(tmp_path)
    names = {}
    with contextlib.redirect_stdout(io.StringIO()):
        exec(compile(readers[0], "container-format.md", "exec"), names)  # pylint: disable=exec-used
    arrays = [value for value in names.values() if isinstance(value, numpy.ndarray)]
    same_shape = [array for array in arrays if array.shape == tile.points.shape]
    assert any((array == tile.points).all() for array in same_shape)
