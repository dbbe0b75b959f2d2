#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Reads what one run of CTest reported.

  scripts/test-report.py REPORT.xml DETAILS

Prints "PASSED FAILED SKIPPED" and writes to DETAILS what each failed test said and why each skipped
one was.
"""

import sys
import xml.etree.ElementTree as ElementTree

OUTPUT_LINES = 40


def main():
    report, details = sys.argv[1:]
    passed = failed = 0
    skipped = []
    with open(details, "w", encoding="utf-8") as log:
        for case in ElementTree.parse(report).getroot().iter("testcase"):
            output = (case.findtext("system-out") or "").strip().splitlines()
            if case.get("status") == "run":
                passed += 1
            elif case.get("status") == "fail":
                failed += 1
                print(f"FAILED {case.get('name')} ({float(case.get('time')):.1f} s)", file=log)
                for line in output[-OUTPUT_LINES:]:
                    print(f"  {line}", file=log)
            else:
                skipped.append((case.get("name"), skip_reason(output)))
        for name, reason in skipped:
            print(f"skipped {name}: {reason}", file=log)
    print(passed, failed, len(skipped))


def skip_reason(output):
    """GoogleTest writes the reason on the line after "file:line: Skipped"."""
    for line, following in zip(output, output[1:]):
        if line.endswith(": Skipped"):
            return following.strip() or "no reason given"
    return "disabled or not runnable"


main()
