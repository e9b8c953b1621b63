#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that includes point one way only: each folder may use those listed for it, no others.

    scripts/check_includes.py [ROOT]

Prints one line per forbidden include and ends with 1 when there is any.
"""

import pathlib
import re
import sys

DATAMODEL = ["datamodel/memcore", "datamodel/eagle", "datamodel/fiber", "datamodel/convlib"]

# Folder -> what it may include besides itself. The longest folder that fits a file counts.
ALLOWED = {
    "datamodel/memcore": [],
    "datamodel/eagle": DATAMODEL[:1],
    "datamodel/fiber": DATAMODEL[:2],
    "datamodel/convlib": DATAMODEL[:3],
    "datamodel/container": DATAMODEL,
    # LAS and LAZ files as such know only how a failure is said; the clouds made of them know bundles.
    "formats": ["datamodel/memcore"],
    "formats/cloud": ["formats", *DATAMODEL],
    # Grids as point files: the way back.
    "formats/export": ["formats", "datamodel/container", *DATAMODEL],
    "formats/catalog": ["formats", "datamodel/memcore"],
    "formats/text": ["formats", *DATAMODEL],
    "planning": DATAMODEL,
    "assembly": ["planning", *DATAMODEL],
    "operation": ["assembly", "planning", *DATAMODEL],
    "linked": ["operation", "assembly", "planning", *DATAMODEL],
    "host": ["linked", "operation", "assembly", "planning", "formats", "datamodel"],
}
# A library's headers that one folder alone may include.
ONLY_IN = {"hdf5.h": "datamodel/container", "proj.h": "formats/catalog"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')


def is_within(path: str, folder: str) -> bool:
    return path.startswith(folder + "/")


def folder_of(path: str) -> str:
    fitting = [folder for folder in ALLOWED if is_within(path, folder)]
    return max(fitting, key=len, default="")


def complaint(path: str, line: str) -> str:
    """What is wrong with one line of a file; empty when nothing is."""
    found = INCLUDE.match(line)
    if not found:
        return ""
    own, library = found.groups()
    folder = folder_of(path)
    if library:
        home = ONLY_IN.get(library)
        return f"includes <{library}>, which only {home} may" if home and folder != home else ""
    target = folder_of(own)
    if target == folder or any(is_within(own, allowed) for allowed in ALLOWED[folder]):
        return ""
    if not target:
        return f'includes "{own}", expected a path from the root of the tree'
    return f'includes "{own}", expected nothing of {target} in {folder}'


def main() -> int:
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parents[1])
    complaints = 0
    checked = 0
    for top in sorted({folder.split("/")[0] for folder in ALLOWED}):
        for file in sorted((root / top).rglob("*.[ch]pp")):
            path = file.relative_to(root).as_posix()
            checked += 1
            for number, line in enumerate(file.read_text().splitlines(), 1):
                if text := complaint(path, line):
                    print(f"{path}:{number}: {text}", file=sys.stderr)
                    complaints += 1
    if checked == 0:
        print(f"{root}: no source files found", file=sys.stderr)
        return 1
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
