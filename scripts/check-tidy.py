#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Runs clang-tidy, with the checks that .clang-tidy names, over the sources of the product.

  scripts/check-tidy.py --build FOLDER [FILE...]

Most of clang-tidy's time goes into the headers of the standard library, anew for every file: three
seconds each. So the sources of a folder are handed to it as one, which makes the whole ten times
faster. Sources that cannot stand together in one translation unit (two helpers of one name, say) are
found by compiling them first, which is quick, and go into different ones.
"""

import argparse
import concurrent.futures
import itertools
import os
import pathlib
import re
import subprocess
import sys
import tempfile

from build_flags import build_flags

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "tools", "examples")
LARGEST_BATCH = 64
FINDING = re.compile(r"^(/[^:]+:\d+:\d+): (?:warning|error): (.*)$", re.MULTILINE)
ERROR = re.compile(r"^(/[^:]+):\d+:\d+: (?:fatal )?error: ", re.MULTILINE)


def run_on(files, *command):
    """What the command says of the files as one translation unit, whose name stands for UNIT."""
    with tempfile.NamedTemporaryFile("w", suffix=".cc") as unit:
        unit.writelines(f'#include "{file}"\n' for file in files)
        unit.flush()
        # A file alone is looked at as itself: what is included is taken for a header.
        name = unit.name if len(files) > 1 else str(files[0])
        words = [name if word == "UNIT" else word for word in command]
        return subprocess.run(words, capture_output=True, text=True, check=False)


def take_apart(files, flags):
    """Lists of files that compile together, none longer than the largest batch."""
    waiting = list(files)
    while waiting:
        batch, waiting = waiting[:LARGEST_BATCH], waiting[LARGEST_BATCH:]
        while len(batch) > 1:
            result = run_on(batch, "clang++", "-fsyntax-only", "-w", "-ferror-limit=0", *flags, "UNIT")
            at_odds = {pathlib.Path(path) for path in ERROR.findall(result.stderr)} & set(batch[1:])
            if result.returncode != 0 and not at_odds:
                at_odds = set(batch[1:])
            if not at_odds:
                break
            waiting = [file for file in batch if file in at_odds] + waiting
            batch = [file for file in batch if file not in at_odds]
        yield batch


def findings_of(files, flags):
    # The one check that is left out objects to the unit itself.
    result = run_on(files, "clang-tidy", "--quiet", f"--config-file={ROOT}/.clang-tidy",
                    "--checks=-bugprone-suspicious-include", "UNIT", "--", *flags)
    if result.returncode == 0:
        return {}
    found = {}
    for place, text in FINDING.findall(result.stdout):
        found[(os.path.relpath(place, ROOT), text.replace(",-warnings-as-errors", ""))] = None
    return found or {("clang-tidy", result.stderr.strip()): None}


def folders_of(files):
    """The files of each folder; programs, which have each their main, by themselves."""
    for _, group in itertools.groupby(sorted(files), key=lambda file: file.parent):
        group = list(group)
        yield from ([file] for file in group if file.name == "main.cc")
        yield [file for file in group if file.name != "main.cc"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("files", type=pathlib.Path, nargs="*")
    options = parser.parse_args()

    files = [file.resolve() for file in options.files]
    files = files or [file for folder in FOLDERS for file in (ROOT / folder).rglob("*.cc")]
    flags = build_flags(options.build)
    found = {}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        units = [unit for units in pool.map(lambda group: list(take_apart(group, flags)), folders_of(files))
                 for unit in units]
        for findings in pool.map(lambda unit: findings_of(unit, flags), sorted(units, key=len, reverse=True)):
            found |= findings
    for place, text in found:
        print(f"{place}: {text}")
    print(f"{len(files)} files in {len(units)} units, {len(found)} findings")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
