#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""docs/json.md names each member that --json prints, with its type, and none that there is not:

    json_page.py PROGRAM...
"""

import json
import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
ANY_COMMAND = "every-command"
# What takes a camera that is taken, broken, or behind a network that loses packets.
NOT_SHOWN = {"device.error", "setting.error", "reason.reason", "reason.frames"}
TYPES = {"text": lambda value: isinstance(value, str),
         "truth value": lambda value: isinstance(value, bool),
         "integer": lambda value: isinstance(value, int) and not isinstance(value, bool),
         "number": lambda value: isinstance(value, (int, float)) and not isinstance(value, bool)}
ENTRIES = {"list of text": "text", "list of numbers": "number"}


class Page:
    """The tables of the page and its examples, by the anchors of their headings."""

    def __init__(self, file):
        self.members, self.bases, self.examples = {}, {}, []
        command = section = block = None
        with open(file, encoding="utf-8") as lines:
            for line in lines:
                if line == "```json\n":
                    block = ""
                elif line == "```\n":
                    self.examples.append((command, json.loads(block)))
                    block = None
                elif block is not None:
                    block += line
                elif line.startswith("#"):
                    section = line.strip("# \n").lower().replace(" ", "-")
                    command = section if line.startswith("## ") else command
                elif base := re.match(r"An? \[.*\]\(#(.*)\), and$", line):
                    self.bases[section] = base[1]
                elif line.startswith("| `"):
                    name, kind, _, _, empty = (cell.strip(" `") for cell in line.strip("\n|").split("|"))
                    self.members.setdefault(section, {})[name] = (kind, empty)

    def of(self, section):
        """The members of an object, by their names: the section that tells of it, its type and when it is empty."""
        found = {name: (section, *what) for name, what in self.members[section].items()}
        return {**(self.of(self.bases[section]) if section in self.bases else {}), **found}


class Comparison:
    def __init__(self, page):
        self.page, self.seen, self.faults = page, set(), []

    def see_object(self, value, members, path, whole=True):
        for name, inner in value.items():
            if name not in members:
                self.faults.append(f"{path}.{name} is not on the page")
                continue
            section, kind, empty = members[name]
            self.seen.add(f"{section}.{name}")
            if inner is not None:
                self.see_value(inner, kind, f"{path}.{name}", whole)
            elif "null" not in empty:
                self.faults.append(f"{path}.{name} is null, of which the page says nothing")
        missing = [name for name in members if name not in value and "absent" not in members[name][2]]
        if whole and missing:
            self.faults.append(f"{path} lacks {missing}")

    def see_value(self, value, kind, path, whole):
        link = re.search(r"\(#(.*)\)$", kind)
        if kind.startswith("list of") and not isinstance(value, list):
            self.faults.append(f"{path} is no list")
        elif kind.startswith("list of"):
            for i, entry in enumerate(value):
                self.see_value(entry, kind[len("list of "):] if link else ENTRIES[kind], f"{path}[{i}]", whole)
        elif link:
            self.see_object(value, self.page.of(link[1]), path, whole)
        elif not TYPES[kind](value):
            self.faults.append(f"{path} is no {kind}: {value!r}")

    def see_output(self, command, value, whole=True):
        """What a sub-command printed; an object that tells an error has nothing else."""
        members = self.page.of(ANY_COMMAND)
        if "error" not in value:
            members = {**members, **self.page.of(command)}
        self.see_object(value, members, command, whole)


def run_all(program, see):
    """Runs all sub-commands, so that each member comes up once."""

    def run(words, status=0, source=None):
        with open(source or os.devnull, "rb") as stdin:
            done = subprocess.run([*program, *words, "--json"], stdin=stdin, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, check=False)
        if done.returncode != status:
            sys.exit(f"json_page: {words} ended with {done.returncode}: {done.stderr.decode()}")
        value = json.loads(done.stdout)
        see(words[0], value)
        return value

    camera = "sim:7?width=64&height=48&sensorwidth=96&sensorheight=64&offsetx=16"
    pair = ["--dark", "dark.tif", "--light", "light.tif"]
    run(["devices"])
    run(["settings", "-d", camera])
    run(["record", "dark", "-d", camera, "-n", "16", "-o", "dark.tif"])
    run(["record", "light", "-d", camera, "-n", "16", "-o", "light.tif"])
    run(["record", "light", "-d", camera + "&spikes=5", "-n", "16", "-o", "spikes.tif"])
    run(["record", "light", "-d", camera + "&exposure=5000", "-n", "16", "-o", "dim.tif"])
    run(["record", "light", "-d", camera + "&clusters=9", "-n", "16", "-o", "clusters.tif"])
    run(["record", "light", "-d", "sim:7?width=32&height=48", "-n", "16", "-o", "small.tif"])
    run(["record", "dark", "-d", "sim:7?width=64&height=48&exposure=5000", "-n", "1", "-o", "single.tif"])
    run(["record", "light", "--from", "light.tif", "--pixel-format", "Mono12", "-n", "16", "-o", "made.tif"])
    run(["check", "dark.tif", "light.tif", "--list", "--levels", "light.tif", "dim.tif"])
    run(["check", "dark.tif", "clusters.tif", "--list"])
    run(["check", "dark.tif", "single.tif"], 1)
    run(["check", "dark.tif", "small.tif"], 1)
    run(["check", "dark.tif", "none.tif"], 3)
    run(["run", "-d", camera, "-n", "4", *pair])
    run(["run", "-d", camera, "-n", "2", *pair, "--raw", "-o", "frames"])
    run(["run", "-d", "sim:7?width=96&height=64&format=Mono8", "-n", "2", *pair], 1)
    run(["correct", "frames/raw", *pair, "-o", "corrected"])
    run(["correct", "frames", *pair, "-o", "again"], 1)
    with open("raw", "wb") as raw:
        raw.write(bytes(2 * 64 * 48))
    run(["correct", "-", "--stream", "Mono12:64x48", *pair, "-o", "piped"], source="raw")
    run(["report", "-d", camera, *pair, "-o", "report.html"])
    run(["report", "-d", camera, *pair, "--median-dark", "1", "-o", "report.html"])
    large = "?width=160&height=120"
    run(["record", "light", "-d", "sim:3" + large, "-n", "4", "-o", "other.tif"])
    run(["report", "-d", "sim:4" + large, "--light", "other.tif", "-o", "report.html"])  # its dust lies elsewhere
    run(["report", "--light", "light.tif", "-o", "report.html"])
    run(["report", "-d", "sim:7?width=96&height=64&format=Mono8", *pair, "-o", "none.html"], 1)
    run(["output", "light.tif", "--dark", "dark.tif", "--defects", "find", "--pedestal", "16"])
    run(["demo", "--camera", "sim:3?width=20&height=10&format=BayerRG8", "-o", "demo"])
    with open("demo/figures.json", encoding="utf-8") as figures:
        see("demo", {"command": "demo", "exit": 0, **json.load(figures)})


def main(program):
    page = Page(os.path.join(ROOT, "docs", "json.md"))
    comparison = Comparison(page)
    for command, example in page.examples:
        comparison.see_output(command, example, whole=False)
    exampled = {command for command, _ in page.examples}
    comparison.seen.clear()
    folder = os.getcwd()
    program = [os.path.join(folder, word) if os.path.exists(word) else word for word in program]
    with tempfile.TemporaryDirectory() as scratch:
        os.chdir(scratch)
        commands = set()
        run_all(program, lambda command, value: (commands.add(command), comparison.see_output(command, value)))
        os.chdir(folder)
    comparison.faults += [f"the page has no example of {command}" for command in sorted(commands - exampled)]
    named = {f"{section}.{name}" for section, members in page.members.items() for name in members}
    comparison.faults += [f"no command printed {member}" for member in sorted(named - comparison.seen - NOT_SHOWN)]
    for fault in dict.fromkeys(comparison.faults):
        print("json_page:", fault, file=sys.stderr)
    sys.exit(1 if comparison.faults else 0)


if __name__ == "__main__":
    main(sys.argv[1:])
