#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""The check of includes finds what it is there to find."""

import pathlib
import subprocess
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/check-includes.py"

TABLE = """
| floor | folder | holds |
|---|---|---|
| 1 | `src/values/` | |
| 2 | `src/platform/` | |
| 2.1 | `src/platform/dbus/` | |
| 4 | `src/logging/`, `src/exceptions/` | |
| 6 | `src/process/` | |
| 6 | `src/locations/` | |
"""


class CheckIncludes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("docs/architecture.md", TABLE)
        self.write("src/values/Value.h", "#pragma once\n#include <string>\n")

    def write(self, path, text):
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(text)

    def check(self, *options):
        run = subprocess.run(["/usr/bin/python3", SCRIPT, "--root", self.root, *options],
                             capture_output=True, text=True, check=False)
        return run.returncode, run.stdout

    def assert_clean(self):
        status, output = self.check()
        self.assertEqual(status, 0, output)

    def assert_finds(self, text, *options):
        status, output = self.check(*options)
        self.assertEqual(status, 1, output)
        self.assertIn(text, output)

    def test_lower_floors_and_the_own_row_may_be_included(self):
        self.write("src/platform/dbus/Message.h", '#include "platform/Thread.h"\n#include "values/Value.h"\n')
        self.write("src/platform/Thread.h", "")
        self.write("src/logging/Logger.h", '#include "exceptions/KLException.h"\n')
        self.write("src/exceptions/KLException.h", "")
        self.assert_clean()

    def test_an_include_of_a_higher_floor_is_found_with_its_line(self):
        self.write("src/values/Data.h", '#pragma once\n\n#include "platform/Thread.h"\n')
        self.write("src/platform/Thread.h", "")
        self.assert_finds("src/values/Data.h:3: includes platform/Thread.h, which is not on a lower floor")

    def test_a_folder_inside_another_has_its_own_floor(self):
        self.write("src/platform/Thread.h", '#include "platform/dbus/Message.h"\n')
        self.write("src/platform/dbus/Message.h", "")
        self.assert_finds("src/platform/Thread.h:1: includes platform/dbus/Message.h")

    def test_neighbours_of_one_floor_do_not_include_each_other(self):
        self.write("src/process/Process.h", '#include "locations/KLPath.h"\n')
        self.write("src/locations/KLPath.h", "")
        self.assert_finds("src/process/Process.h:1: includes locations/KLPath.h")

    def test_two_files_that_include_each_other_are_found(self):
        self.write("src/logging/A.h", '#include "logging/B.h"\n')
        self.write("src/logging/B.h", '#include "logging/A.h"\n')
        self.assert_finds("src/logging/B.h:1: includes logging/A.h, which includes it in turn")

    def test_a_longer_circle_is_found_too(self):
        self.write("src/logging/A.h", '#include "B.h"\n')
        self.write("src/logging/B.h", '#include "logging/C.h"\n')
        self.write("src/logging/C.h", '#include "logging/A.h"\n')
        self.assert_finds("src/logging/C.h:1: includes logging/A.h, which includes it in turn")

    def test_a_source_includes_its_own_header_first(self):
        self.write("src/values/Value.cc", '#include <vector>\n#include "values/Value.h"\n')
        self.assert_finds("src/values/Value.cc:1: does not include Value.h before anything else")

    def test_a_header_without_a_source_compiles_alone(self):
        self.write("build/compile_commands.json",
                   '[{"command": "c++ -I%s/src -c x.cc", "file": "x.cc"}]' % self.root)
        self.assertEqual(self.check("--build", self.root / "build")[0], 0)
        self.write("src/values/Date.h", "#pragma once\nstd::string today();\n")
        self.assert_finds("src/values/Date.h:1: does not compile alone", "--build", self.root / "build")

    def test_a_folder_that_the_table_does_not_know_is_found(self):
        self.write("src/cellar/Wine.h", "")
        self.assert_finds("src/cellar/Wine.h:1: its folder stands in no row")


if __name__ == "__main__":
    unittest.main()
