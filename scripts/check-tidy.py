#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Runs clang-tidy, with the checks that .clang-tidy names, over the sources of the product.

  scripts/check-tidy.py --build FOLDER [FILE...]

Most of clang-tidy's time goes into the headers of the standard library, anew for every file: three
seconds each. So the sources of a folder are handed to it as one, which makes the whole ten times
faster. Sources that cannot stand together in one translation unit (two helpers of one name, say) are
taken apart until they can.
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
FINDING = re.compile(r"^(/[^:]+:\d+:\d+): (?:warning|error): (.*)$", re.MULTILINE)


def run_tidy(files, flags):
    with tempfile.NamedTemporaryFile("w", suffix=".cc") as batch:
        batch.writelines(f'#include "{file}"\n' for file in files)
        batch.flush()
        # The one check that objects to the batch itself.
        command = ["clang-tidy", "--quiet", f"--config-file={ROOT}/.clang-tidy",
                   "--checks=-bugprone-suspicious-include", batch.name, "--", *flags]
        return subprocess.run(command, capture_output=True, text=True, check=False)


def findings_of(files, flags):
    result = run_tidy(files, flags)
    if result.returncode == 0:
        return {}
    if "[clang-diagnostic-error]" in result.stdout and len(files) > 1:
        middle = len(files) // 2
        return findings_of(files[:middle], flags) | findings_of(files[middle:], flags)
    found = {}
    for place, text in FINDING.findall(result.stdout):
        found[(os.path.relpath(place, ROOT), text.replace(",-warnings-as-errors", ""))] = None
    return found or {("clang-tidy", result.stderr.strip()): None}


def batches(files):
    for _, group in itertools.groupby(sorted(files), key=lambda file: file.parent):
        group = list(group)
        # Programs have each their main.
        mains = [file for file in group if file.name in ("main.cc",)]
        rest = [file for file in group if file not in mains]
        yield from ([file] for file in mains)
        for start in range(0, len(rest), 16):
            yield rest[start:start + 16]


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
        work = sorted(batches(files), key=len, reverse=True)
        for findings in pool.map(lambda batch: findings_of(batch, flags), work):
            found |= findings
    for place, text in found:
        print(f"{place}: {text}")
    print(f"{len(files)} files, {len(found)} findings")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
