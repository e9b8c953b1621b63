# SPDX-License-Identifier: Apache-2.0
"""The reader printed in the description of the file format works as printed."""

import pathlib
import re

import numpy as np

import refragment

DOCUMENT = pathlib.Path(__file__).parents[2] / "docs" / "container-format.md"


def python_blocks():
    return re.findall(r"```python\n(.*?)```", DOCUMENT.read_text(), re.DOTALL)


def test_document_has_a_short_reader():
    blocks = [block for block in python_blocks() if "h5py" in block]
    assert blocks, "no reader in the document"
    assert len(blocks[0].strip().splitlines()) <= 12
