#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Checks every include of the tree against the floors that docs/architecture.md states.

  scripts/check-includes.py [--root FOLDER] [--build FOLDER]

- A file includes the folders of its own row of the table, and of lower floors: nothing else.
- No chain of includes comes back to where it began.
- A header stands alone. X.cc includes X.h before anything else, so compiling X.cc proves it of X.h;
  a header without a source is compiled by itself, with the flags of the build folder.

Every finding is one line, "file:line: what". Ends 1 when there is one.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

from build_flags import build_flags

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
TABLE_ROW = re.compile(r"^\|\s*(\d+(?:\.\d+)?)\s*\|([^|]*)\|", re.MULTILINE)
FOLDER = re.compile(r"`((?:src|tools|tests|examples|benchmarks|fuzz)(?:/[\w*-]+)*)/?`")


class Floors:
    """The table of floors: which folder stands where."""

    def __init__(self, document):
        self.rows = []  # (floor, [folders])
        for floor, folders in TABLE_ROW.findall(document.read_text()):
            self.rows.append((float(floor), FOLDER.findall(folders)))
        if not any(folders for _, folders in self.rows):
            sys.exit(f"{document}: no table of floors found")

    def row_of(self, path):
        """The row of the deepest folder of the table that the path lies in, or None."""
        best, best_length = None, -1
        for number, (_, folders) in enumerate(self.rows):
            for folder in folders:
                if str(path).startswith(folder + "/") and len(folder) > best_length:
                    best, best_length = number, len(folder)
        return best

    def may_include(self, source, target):
        if source == target:
            return True
        return self.rows[target][0] < self.rows[source][0]


def sources(root):
    for top in ("src", "tools", "tests", "examples", "benchmarks", "fuzz"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in (".h", ".cc"):
                yield path.relative_to(root)


def resolve(root, including, name):
    """The file of this tree that an include names, or None for one of somebody else's."""
    for folder in ("src", "tools", "tests", "benchmarks", "", str(including.parent)):
        candidate = pathlib.Path(os.path.normpath(pathlib.Path(folder) / name))
        for suffix in ("", ".in"):
            if (root / (str(candidate) + suffix)).is_file():
                return pathlib.Path(str(candidate) + suffix)
    return None


def read_edges(root):
    edges = {}  # file -> [(line, included file or None, name)]
    for path in sources(root):
        text = (root / path).read_text()
        edges[path] = [
            (text.count("\n", 0, match.start(1)) + 1, resolve(root, path, match.group(1)), match.group(1))
            for match in INCLUDE.finditer(text)
        ]
    return edges


def floor_findings(edges, floors):
    for path, includes in edges.items():
        row = floors.row_of(path)
        if row is None:
            yield f"{path}:1: its folder stands in no row of the table of floors"
            continue
        for line, target, name in includes:
            if target is None:
                continue
            target_row = floors.row_of(target)
            if target_row is None or not floors.may_include(row, target_row):
                yield f"{path}:{line}: includes {name}, which is not on a lower floor"


def cycle_findings(edges):
    """One line for each include that closes a circle (depth first, without recursion)."""
    state = {}
    for start in edges:
        if start in state:
            continue
        state[start] = "open"
        stack = [(start, iter(edges[start]))]
        while stack:
            path, rest = stack[-1]
            for line, target, name in rest:
                if target not in edges:
                    continue
                if state.get(target) == "open":
                    yield f"{path}:{line}: includes {name}, which includes it in turn"
                elif target not in state:
                    state[target] = "open"
                    stack.append((target, iter(edges[target])))
                    break
            else:
                state[path] = "done"
                stack.pop()


def first_include_findings(root, edges):
    for path, includes in edges.items():
        header = path.with_suffix(".h")
        if path.suffix != ".cc" or header not in edges:
            continue
        first = re.search(r"^\s*#\s*include\s+(.*)$", (root / path).read_text(), re.MULTILINE)
        if not includes or includes[0][1] != header or not first.group(1).startswith('"'):
            yield f"{path}:1: does not include {header.name} before anything else"


def stand_alone_findings(root, edges, build):
    alone = [p for p in edges if p.suffix == ".h" and p.with_suffix(".cc") not in edges]
    alone = [p for p in alone if p.parts[0] != "benchmarks"]  # built with packages that ./test lacks
    flags = build_flags(build)

    def compile_alone(path):
        command = ["c++", "-fsyntax-only", "-x", "c++"]
        command += flags + ["-I", str(root / "tests"), str(root / path)]
        return path, subprocess.run(command, capture_output=True, text=True, check=False)

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for path, result in pool.map(compile_alone, alone):
            if result.returncode != 0:
                yield f"{path}:1: does not compile alone\n{result.stderr}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).parent.parent)
    parser.add_argument("--build", type=pathlib.Path, help="a configured build folder: compile headers")
    options = parser.parse_args()

    edges = read_edges(options.root)
    findings = list(floor_findings(edges, Floors(options.root / "docs/architecture.md")))
    findings += cycle_findings(edges)
    findings += first_include_findings(options.root, edges)
    if options.build:
        findings += stand_alone_findings(options.root, edges, options.build)
    for finding in findings:
        print(finding)
    print(f"{len(edges)} files, {sum(map(len, edges.values()))} includes, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
