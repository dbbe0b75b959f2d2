#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""The check of documents finds what it is there to find."""

import pathlib
import subprocess
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/check-docs.py"

README = """# Thing

Read [the log](docs/log.md#its-lines), run `./test --quick`.

| folder | what |
|---|---|
| `src/values` | values |
| `tools/tool` | a tool |
| `scripts`, `docs` | the rest |
"""


class CheckDocs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("README.md", README)
        self.write("CONTRIBUTING.md", "")
        self.write("docs/log.md", "# The log\n\n## Its lines\n")
        self.write("CMakePresets.json", '{"configurePresets": [{"name": "release"}]}')
        self.write("test", "#!/bin/sh\n# --quick\n")
        self.write("src/values/Value.cc", "int Value::kindOfValue() { return kMostKinds; }\n")
        self.write("src/values/Value.h", "")
        self.write("tools/tool/main.cc", 'app.add_subcommand("launch", ""); app.add_flag("--json");\n')
        self.write("scripts/check.sh", "#!/bin/sh\n")

    def write(self, path, text):
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(text)

    def check(self, text):
        self.write("CONTRIBUTING.md", text)
        run = subprocess.run(["/usr/bin/python3", SCRIPT, "--root", self.root],
                             capture_output=True, text=True, check=False)
        return run.returncode, run.stdout

    def assert_clean(self, text=""):
        status, output = self.check(text)
        self.assertEqual(status, 0, output)

    def assert_finds(self, finding, text=""):
        status, output = self.check(text)
        self.assertEqual(status, 1, output)
        self.assertIn(finding, output)

    def test_what_exists_may_be_named(self):
        self.assert_clean("`src/values/Value.cc` `values/Value` `src/FLOOR/NAME.h` `scripts/check.sh` `docs/`\n"
                          "`Value::kindOfValue` `kMostKinds` `tool launch --json` [log](docs/log.md)\n\n"
                          "    cmake --preset release && ctest --test-dir build/release   # --nothing\n"
                          "    sudo ./test --quick\n")

    def test_what_is_not_of_this_tree_is_left_alone(self):
        self.assert_clean("`/etc/thing` `~/.config` `Contents/Linux` `systemd-nspawn --boot` `EINTR` `u+s` "
                          "[elsewhere](https://example.org)\n")

    def test_a_missing_file_is_found_with_its_line(self):
        self.assert_finds("CONTRIBUTING.md:3: src/values/Gone.cc does not exist", "\n\n`src/values/Gone.cc`\n")
        self.assert_finds("values/Gone does not exist", "`values/Gone`")
        self.assert_finds("scripts/gone.sh does not exist", "    sudo scripts/gone.sh now\n")

    def test_a_link_that_leads_nowhere_is_found(self):
        self.assert_finds("leads to docs/gone.md, which does not exist", "[gone](docs/gone.md)")
        self.assert_finds("leads to docs/log.md#gone, a heading that does not exist", "[gone](docs/log.md#gone)")

    def test_a_name_that_the_code_does_not_know_is_found(self):
        self.assert_finds("Value::kindOfThing occurs nowhere in the code", "`Value::kindOfThing`")
        self.assert_finds("kGone occurs nowhere in the code", "`kGone`")

    def test_an_option_or_command_that_is_not_there_is_found(self):
        self.assert_finds("tool knows no option --jso", "`tool launch --jso`")
        self.assert_finds("tool knows no command lunch", "    tool lunch --json\n")
        self.assert_finds("./test knows no option --slow", "```sh\n./test --slow\n```\n")

    def test_a_preset_that_is_not_there_is_found(self):
        self.assert_finds("there is no such preset", "    cmake --preset debug\n")
        self.assert_finds("there is no such preset", "    ctest --test-dir build/debug\n")

    def test_a_folder_that_the_map_leaves_out_is_found(self):
        self.write("src/logging/Logger.cc", "")
        self.assert_finds("src/logging is missing in the table of folders")

    def test_a_document_that_nothing_leads_to_is_found(self):
        self.write("docs/wire.md", "")
        self.assert_finds("leads nowhere to docs/wire.md")


if __name__ == "__main__":
    unittest.main()
