#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""The installed package, alone: examples are built against it outside of the tree, by CMake and by pkg-config.

usage: package_test.py SOURCE-FOLDER BUILD-FOLDER
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES, BUILD = (pathlib.Path(argument) for argument in sys.argv[1:3])


def run(*command, status=0, **options):
    result = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            stdin=subprocess.DEVNULL, check=False, **options)
    if result.returncode != status:
        raise AssertionError(f"{shlex.join(map(str, command))} ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hoist-package.")
        cls.addClassCleanup(folder.cleanup)
        cls.root = pathlib.Path(folder.name)
        run("cmake", "--install", BUILD, "--component", "development", "--prefix", cls.root / "prefix")
        shutil.copytree(SOURCES / "examples", cls.root / "examples")

    def build(self, example):
        build = self.root / ("build-" + example)
        run("cmake", "-G", "Ninja", "-S", self.root / "examples" / example, "-B", build,
            f"-DCMAKE_PREFIX_PATH={self.root / 'prefix'}")
        run("cmake", "--build", build, "--parallel", "2")
        return build

    def flags(self, package):
        paths = [str(path) for path in (self.root / "prefix").glob("**/pkgconfig")]
        environment = dict(os.environ, PKG_CONFIG_PATH=":".join(paths))
        return shlex.split(run("pkg-config", "--cflags", "--libs", package, env=environment))

    def test_a_client_is_built_with_cmake(self):
        client = self.build("client") / "example-client"
        # It runs, and says what it wants to be told.
        run(client, status=2)

    def test_the_example_helper_is_built_with_cmake(self):
        # Nobody tells it what to do.
        run(self.build("helper") / "KelvoHelper", status=1)

    def test_a_helper_is_built_with_pkg_config(self):
        helper = self.root / "hello"
        run("c++", "-o", helper, self.root / "examples/hello/main.cc", *self.flags("hoist-helper"))
        run(helper, status=1)
        self.assert_loads_little(helper)

    def test_a_helper_is_built_with_cmake(self):
        helper = self.build("hello") / "example-hello"
        run(helper, status=1)
        self.assert_loads_little(helper)

    # Each library more delays every launch.
    def assert_loads_little(self, helper):
        libraries = set(re.findall(r"\(NEEDED\).*\[([^.]*)", run("readelf", "--dynamic", helper)))
        self.assertIn("libc", libraries)
        self.assertLessEqual({name for name in libraries if not name.startswith("ld-")},
                             {"libc", "libm", "libgcc_s", "libstdc++", "libfmt"})

    def test_a_client_is_built_with_pkg_config(self):
        client = self.root / "client"
        run("c++", "-o", client, self.root / "examples/client/main.cc", *self.flags("hoist-client"))
        run(client, status=2)

    def test_nothing_that_is_installed_names_the_source_or_the_build_folder(self):
        for file in (self.root / "prefix").glob("**/*"):
            if file.suffix in {".h", ".cmake", ".pc"}:
                text = file.read_text()
                self.assertNotIn(str(SOURCES), text, file)
                self.assertNotIn(str(BUILD), text, file)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
