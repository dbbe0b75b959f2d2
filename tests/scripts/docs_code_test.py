#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""The programs that the documents print are the ones that other tests build and run."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# A block that names its file: ```LANGUAGE PATH
BLOCK = re.compile(r"^```\w+ (\S+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
MOST_LINES = 40


class DocsCode(unittest.TestCase):
    def test_a_printed_program_is_its_file_without_the_licence_and_short(self):
        names = set()
        for document in (ROOT / "docs").glob("*.md"):
            for name, text in BLOCK.findall(document.read_text()):
                names.add(name)
                lines = (ROOT / name).read_text().splitlines(keepends=True)
                self.assertEqual(text, "".join(line for line in lines if "SPDX-" not in line), f"{document}: {name}")
                self.assertLessEqual(text.count("\n"), MOST_LINES, name)
        self.assertLessEqual({"examples/client/main.cc", "examples/hello/main.cc", "examples/client/client.py",
                              "examples/client/client.js"}, names)


if __name__ == "__main__":
    unittest.main()
