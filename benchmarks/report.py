#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Runs benchmark programs and writes their results as tables.

  benchmarks/report.py --programs FOLDER --output FILE [--rounds N] [NAME...]

Every benchmarks/NAME is one program, FOLDER/bench_NAME, made with Google Benchmark. Its runs are
interleaved: each contender runs once a round, in random order, and what counts is the median of the
rounds, because only ratios within one run mean anything on a machine that does other things too.

A benchmark that times its single operations gives the counters "p50" and "p99" in nanoseconds; for
one that does not, the mean time of an operation in each round is taken. benchmarks/NAME/table.toml
describes the table: title, text, baseline (the row that is 1.00; the fastest if none is named), the
rows' names, further counters as columns, the ways to run the program, the aims, and a note, which says
where the time goes.
"""

import argparse
import dataclasses
import datetime
import json
import os
import pathlib
import platform
import subprocess
import sys
import tempfile
import tomllib

BENCH = pathlib.Path(__file__).resolve().parent
TIME_LIMIT = 900  # seconds for one program


@dataclasses.dataclass
class Row:
    name: str
    time: float  # nanoseconds
    p99: float | None
    counters: dict
    error: str | None = None


def run_program(program, prefix, rounds):
    """The medians of one run of a program, by name."""
    with tempfile.NamedTemporaryFile(suffix=".json") as output:
        command = [*prefix, program, f"--benchmark_repetitions={rounds}",
                   "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05",
                   "--benchmark_out_format=json", f"--benchmark_out={output.name}"]
        subprocess.run(command, stdout=subprocess.DEVNULL, stdin=subprocess.DEVNULL, check=True,
                       timeout=TIME_LIMIT)
        return rows_of(json.load(output))


def rows_of(report):
    rows = {}
    units = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    standard = {"name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
                "repetition_index", "threads", "aggregate_name", "aggregate_unit", "iterations", "real_time",
                "cpu_time", "time_unit", "p50", "p99", "label", "error_occurred", "error_message"}
    for entry in report["benchmarks"]:
        # What a name says about how it was run: iterations, kind of time.
        name = "/".join(part for part in entry["run_name"].split("/")
                        if part not in ("real_time", "manual_time") and not part.startswith("iterations:"))
        if entry.get("error_occurred"):
            rows.setdefault(name, Row(name, 0, None, {}, entry["error_message"]))
        elif entry.get("aggregate_name") == "median":
            time = entry.get("p50", entry["real_time"] * units[entry["time_unit"]])
            counters = {key: value for key, value in entry.items() if key not in standard}
            rows[name] = Row(name, time, entry.get("p99"), counters)
    return rows


def number(value):
    """Three significant figures at least, no exponent."""
    if value >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def duration_unit(rows):
    longest = max((row.time for row in rows if not row.error), default=1)
    return next((unit, scale) for unit, scale in (("ns", 1), ("µs", 1e3), ("ms", 1e6)) if longest / scale < 1e4 or unit == "ms")


def table(rows, about):
    names = about.get("names", {})
    columns = about.get("columns", [])
    shown = list(rows.values())
    unit, scale = duration_unit(shown)
    baseline = rows.get(about["baseline"]) if "baseline" in about else min(shown, key=lambda row: row.time)
    with_p99 = any(row.p99 for row in shown)
    head = ["", about.get("what", "median") + ", " + unit, "ratio"]
    head += [f"p99, {unit}"] if with_p99 else []
    head += [column["title"] for column in columns]
    yield "| " + " | ".join(head) + " |"
    yield "|---" * len(head) + "|"
    for row in sorted(shown, key=lambda row: (row.error is not None, row.time)):
        cells = [names.get(row.name, row.name)]
        if row.error:
            cells += [f"not run: {row.error}"] + [""] * (len(head) - 2)
        else:
            cells += [number(row.time / scale)]
            cells += [f"{row.time / baseline.time:.2f}" if baseline and not baseline.error else ""]
            cells += [number(row.p99 / scale) if row.p99 else ""] if with_p99 else []
            cells += [number(row.counters[c["counter"]] * c.get("scale", 1)) if c["counter"] in row.counters else ""
                      for c in columns]
        yield "| " + " | ".join(cells) + " |"


def aim_lines(rows, about):
    for aim in about.get("aims", []):
        row, other = rows.get(aim["of"]), rows.get(aim.get("against"))
        if not row or row.error or ("against" in aim and (not other or other.error)):
            yield f"- {aim['text']}: not measured"
            continue
        value = row.counters[aim["counter"]] if "counter" in aim else row.time
        value = value / other.time if other else value * aim.get("scale", 1)
        verdict = "met" if value <= aim["most"] else "missed"
        yield f"- {aim['text']}: **{verdict}** ({value:.2f}, aim {aim['most']})"


def section(name, programs, rounds):
    about_file = BENCH / name / "table.toml"
    about = tomllib.loads(about_file.read_text()) if about_file.exists() else {}
    yield f"## {about.get('title', name)}"
    yield ""
    if "text" in about:
        yield about["text"].strip()
        yield ""
    for number_of_run, way in enumerate(about.get("runs", [{}])):
        print(f"{name}{': ' + way['title'] if 'title' in way else ''}", file=sys.stderr)
        rows = run_program(programs / f"bench_{name}", way.get("command", []), about.get("rounds", rounds))
        if "title" in way:
            yield f"{way['title'].capitalize()}:"
            yield ""
        yield from table(rows, about)
        yield ""
        if number_of_run == 0:
            aims = list(aim_lines(rows, about))
            yield from aims
            if aims:
                yield ""
    if "note" in about:
        yield about["note"].strip()
        yield ""


def machine():
    cpu = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo", encoding="utf-8")
                if line.startswith("model name")), platform.machine())
    cores = subprocess.run(["nproc"], capture_output=True, text=True, check=True).stdout.strip()
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    ahead = ""
    if os.sched_getscheduler(0) == os.SCHED_FIFO:
        ahead = "; run with real-time priority, because the machine was doing other work"
    return f"{cpu}, {cores} cores; {system}, Linux {platform.release()}; {compiler}, -O2{ahead}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    parser.add_argument("--output", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("names", nargs="*")
    options = parser.parse_args()

    built = sorted(path.name.removeprefix("bench_") for path in options.programs.glob("bench_*"))
    names = options.names or [name for name in built if (BENCH / name).is_dir()]
    failed = []
    lines = ["# What it costs", "",
             "Written by `./bench`. Every contender once a round, the rounds interleaved, medians of the rounds; only",
             "ratios within one table mean anything.", "",
             f"{datetime.date.today().isoformat()}. {machine()}.", ""]
    for name in names:
        try:
            lines += section(name, options.programs, options.rounds)
        except (subprocess.SubprocessError, OSError) as error:
            failed.append(name)
            print(f"bench_{name}: {error}", file=sys.stderr)
        # What has been measured stays, whatever happens to the rest.
        options.output.write_text("\n".join(lines).rstrip() + "\n", encoding="utf-8")
    print(options.output.read_text(encoding="utf-8"))
    if failed:
        sys.exit("failed: " + ", ".join(failed))


if __name__ == "__main__":
    main()
