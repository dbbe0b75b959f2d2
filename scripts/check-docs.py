#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Checks what README.md, CONTRIBUTING.md and docs/*.md say of this tree.

  scripts/check-docs.py [--root FOLDER]

- A link leads to a file and a heading that exist.
- A path in code marks exists; a word of it that is all capitals stands for any name.
- A name of the code in code marks (one with a capital inside, "_" or "::") occurs in the code.
- In a command, the program, its subcommands, its options and the presets of the build exist. Only
  this tree's own programs and scripts are looked at.
- README's table of folders names every folder, and README leads to every document.

Every finding is one line, "file:line: what". Ends 1 when there is one.
"""

import argparse
import functools
import json
import pathlib
import re
import sys

TOPS = ("src", "tools", "tests", "examples", "benchmarks", "fuzz", "packaging", "scripts", "cmake", "docs")
INSIDE = ("", "src", "src/platform", "tools", "tests", "benchmarks", "examples")  # where a path may begin
CODE = {".cc", ".h", ".in", ".py", ".sh", ".txt", ".cmake", ".json", ""}
LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
SPAN = re.compile(r"`([^`]+)`")
PATH = re.compile(r"\.?[\w.*-]+(/[\w.*-]*)+|[\w-]+\.(md|sh|py|json|cmake)")
NAME = re.compile(r"[A-Za-z_]\w*(::\w+)*")
OPTION = re.compile(r"(?<![\w-])--?[A-Za-z][\w-]*")


class Tree:
    """What there is."""

    def __init__(self, root):
        self.root = root

    @functools.cached_property
    def code(self):
        files = [file for top in TOPS if top != "docs" for file in (self.root / top).rglob("*")]
        files += [file for file in self.root.glob("*") if file.suffix != ".md"]
        return [file for file in files if file.is_file() and file.suffix in CODE]

    @functools.cached_property
    def words(self):
        found = set()
        for file in self.code:
            found.update(re.findall(r"\w+", file.read_text(errors="replace")))
        return found

    @functools.cached_property
    def presets(self):
        return {preset["name"] for preset in
                json.loads((self.root / "CMakePresets.json").read_text())["configurePresets"]}

    def folders(self):
        """Every folder that the map has to name: the tops, and the rooms of the large ones."""
        for top in TOPS:
            rooms = [room for room in sorted((self.root / top).glob("*/")) if any(room.rglob("*.cc"))]
            yield from (f"{top}/{room.name}" for room in rooms if top in ("src", "tools"))
            if top not in ("src", "tools") and (self.root / top).is_dir():
                yield top

    def has(self, path):
        pattern = re.sub(r"(?<![^/])[A-Z]+(?=[/_.]|$)", "*", path.removeprefix("./").rstrip("/"))
        return any(any(self.root.glob(f"{inside}/{pattern}{suffix}".lstrip("/")))
                   for inside in INSIDE for suffix in ("", ".in", ".h", ".cc"))

    def text_of_program(self, name):
        """The text that knows the options of a program of this tree; None for others."""
        folder, script = self.root / "tools" / name, self.root / name
        if folder.is_dir():
            return "\n".join(file.read_text() for file in folder.rglob("*.cc"))
        if script.is_file() and script.read_text(errors="replace").startswith("#!"):
            return script.read_text()
        return None


def heading_anchors(document):
    for heading in re.findall(r"^#+ (.*)$", document.read_text(), re.MULTILINE):
        yield re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def link_findings(document, line):
    for target in LINK.findall(line):
        if "://" in target:
            continue
        path, _, anchor = target.partition("#")
        file = (document.parent / path) if path else document
        if not file.exists():
            yield f"leads to {target}, which does not exist"
        elif anchor and anchor not in heading_anchors(file):
            yield f"leads to {target}, a heading that does not exist"


def path_findings(tree, path):
    first = path.removeprefix("./").split("/")[0]
    if first == "build":
        preset = path.split("/")[1:2]
        if preset and preset[0].islower() and preset[0] not in tree.presets:
            yield f"{path}: there is no such preset"
    elif path.startswith("./") or (first.islower() and tree.has(first)) or "/" not in path:
        if not tree.has(path):
            yield f"{path} does not exist"


def command_findings(tree, command):
    words = command.split("#")[0].split()
    while words and (words[0] in ("sudo", "!") or "=" in words[0]):
        words = words[1:]
    if not words:
        return
    if words[0] in ("cmake", "ctest"):
        for preset in re.findall(r"--preset (\w+)|--test-dir build/(\w+)", command):
            if "".join(preset) not in tree.presets:
                yield f"{command}: there is no such preset"
        return
    text = tree.text_of_program(words[0].removeprefix("./"))
    if text is None:
        if words[0].startswith("./") or words[0].startswith(tuple(f"{top}/" for top in TOPS)):
            yield from path_findings(tree, words[0])
        return
    for option in OPTION.findall(" ".join(words[1:])):
        if not re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", text):
            yield f"{words[0]} knows no option {option}"
    subcommands = re.findall(r'add_subcommand\(\s*"(\w+)"', text)
    for word in words[1:2]:
        if subcommands and word.isalpha() and word not in subcommands:
            yield f"{words[0]} knows no command {word}"


def span_findings(tree, span):
    if " " in span:
        yield from command_findings(tree, span)
    elif PATH.fullmatch(span):
        yield from path_findings(tree, span)
    elif NAME.fullmatch(span) and ("_" in span or "::" in span or re.search(r"[a-z][A-Z]", span)):
        unknown = [word for word in span.split("::")
                   if word not in tree.words and not set(word.split("_")) <= tree.words | {""}]
        if unknown:
            yield f"{span} occurs nowhere in the code"


def map_findings(tree):
    readme = tree.root / "README.md"
    text = readme.read_text()
    named = set()
    for row in re.findall(r"^\|([^|]*)\|", text, re.MULTILINE):
        named.update(SPAN.findall(row))
    for folder in tree.folders():
        if folder not in named:
            yield f"{readme.name}:1: {folder} is missing in the table of folders"
    linked = {target.partition("#")[0] for target in LINK.findall(text)}
    for document in sorted((tree.root / "docs").glob("*.md")):
        if f"docs/{document.name}" not in linked:
            yield f"{readme.name}:1: leads nowhere to docs/{document.name}"


def document_findings(tree, document):
    fenced = None
    for number, line in enumerate(document.read_text().splitlines(), 1):
        place = f"{document.relative_to(tree.root)}:{number}"
        if line.startswith("```"):
            fenced = None if fenced is not None else line[3:]
            continue
        if fenced is not None or line.startswith("    "):
            found = command_findings(tree, line.strip()) if fenced in (None, "", "sh") else ()
        else:
            found = [*link_findings(document, line)]
            found += [finding for span in SPAN.findall(line) for finding in span_findings(tree, span)]
        for finding in found:
            yield f"{place}: {finding}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parent.parent)
    tree = Tree(parser.parse_args().root)

    documents = [tree.root / "README.md", tree.root / "CONTRIBUTING.md", *sorted((tree.root / "docs").glob("*.md"))]
    findings = [finding for document in documents for finding in document_findings(tree, document)]
    findings += map_findings(tree)
    for finding in findings:
        print(finding)
    print(f"{len(documents)} documents, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
