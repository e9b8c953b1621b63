#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The include check must say yes to a good tree and name each kind of bad include."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).parents[2] / "scripts" / "check_includes.py"


class IncludeCheck(unittest.TestCase):
    def check(self, **files: str) -> subprocess.CompletedProcess:
        """Runs the check on a tree; names spell paths with __ for / and end in _hpp or _cpp."""
        with tempfile.TemporaryDirectory() as root:
            for name, line in files.items():
                path = pathlib.Path(root, name.replace("__", "/").replace("_hpp", ".hpp").replace("_cpp", ".cpp"))
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(line + "\n")
            return subprocess.run([sys.executable, CHECK, root], capture_output=True, text=True, check=False)

    def test_allowed_includes_pass(self):
        result = self.check(
            operation__Run_cpp='#include "planning/TilingLayout.hpp"',
            planning__TilingLayout_hpp='#include "datamodel/fiber/Grid.hpp"',
            datamodel__container__Write_cpp="#include <hdf5.h>",
            host__main_cpp='#include "formats/cloud/CloudGrid.hpp"',
        )
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_include_against_the_direction_is_named(self):
        result = self.check(planning__TilingLayout_cpp='#include "assembly/FieldCopy.hpp"')
        self.assertEqual(result.returncode, 1)
        self.assertIn("planning/TilingLayout.cpp:1", result.stderr)
        self.assertIn("assembly/FieldCopy.hpp", result.stderr)

    def test_lower_data_model_folder_may_not_use_a_higher_one(self):
        result = self.check(datamodel__eagle__BoundingBox_hpp='#include "datamodel/fiber/Grid.hpp"')
        self.assertEqual(result.returncode, 1)

    def test_hdf5_belongs_to_the_container_alone(self):
        result = self.check(operation__Run_cpp="#include <hdf5.h>")
        self.assertEqual(result.returncode, 1)
        self.assertIn("datamodel/container", result.stderr)

    def test_proj_belongs_to_the_catalog_alone(self):
        self.assertEqual(self.check(formats__catalog__A_cpp="#include <proj.h>").returncode, 0)
        result = self.check(formats__las__A_cpp="#include <proj.h>")
        self.assertEqual(result.returncode, 1)
        self.assertIn("formats/catalog", result.stderr)

    def test_relative_include_is_refused(self):
        result = self.check(operation__Run_cpp='#include "Linking.hpp"')
        self.assertEqual(result.returncode, 1)

    def test_empty_tree_is_no_success(self):
        self.assertEqual(self.check().returncode, 1)


if __name__ == "__main__":
    unittest.main()
