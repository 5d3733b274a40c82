#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Turns the output of several rounds of the benches into the section of a machine, in Markdown.

Usage: table.py MACHINE HEADING-LINE... -- FILE...
Files *.csv hold NAME,NANOSECONDS; from files *.log come the lines "tables of GROUP/FORMAT: TEXT" and "GROUP/FORMAT, WAY by
none RATIO". A figure is the median over the files. A ratio is taken inside each file first: two rounds never meet the same machine. The spread is the
distance of the quartiles of that ratio, or of the figure where there is no ratio, as a share of its median.
"""

import re
import statistics
import sys

SAMPLES = {"qvga": 320 * 240, "vga": 640 * 480, "5mp": 2448 * 2048, "26mp": 5120 * 5120}
# Bytes that a correction moves per sample, and samples per pixel.
FORMATS = {"mono8": (5, 1), "mono12": (8, 1), "mono16": (8, 1), "mono12p": (7, 1), "mono12packed": (7, 1),
           "bayerrg8": (5, 1), "rgb8": (5, 3), "mono8-sensor": (5, 1), "mono10-sensor": (8, 1), "mono12-sensor": (8, 1),
           "mono12p-sensor": (7, 1), "mono16-recorded": (8, 1)}
# Most that ours may take, in multiples of the limit: goal, and what a fast machine reaches.
EIGHT = {"vga-ring": (1.5, 1.15), "5mp-ring": (1.18, 1.05), "26mp-ring": (1.16, 1.02)}
COMPACT = {"5mp-ring": (0.95, None), "26mp-ring": (0.95, None)}
CORRECTION_GOALS = {
    "mono8": EIGHT, "bayerrg8": EIGHT, "rgb8": EIGHT,
    "mono12": {"vga-ring": (1.25, None), "5mp-ring": (1.08, 0.95), "26mp-ring": (1.08, 0.95)},
    "mono16": {"vga-ring": (1.3, None), "5mp-ring": (1.13, 1.05), "26mp-ring": (1.10, None)},
    "mono12p": {"vga-ring": (1.25, None), "5mp-ring": (1.2, None), "26mp-ring": (1.2, None)},
    "mono12packed": {},
    # Tables of 3 bytes a sample, beside the limit of 4.
    "mono8-sensor": EIGHT,
    "mono10-sensor": COMPACT, "mono12-sensor": COMPACT, "mono12p-sensor": {},
    "mono16-recorded": {},
}
# Ratio of two figures, its goal, in words. OpenCV by ours is how many times faster ours is.
REFERENCE_RATIOS = (
    [(f"box-r{r}/ours", f"box-r{r}/opencv", 1.0, "of OpenCV") for r in (1, 2, 3, 5, 15, 31)]
    + [(f"median-r{r}/ours", "memcpy/limit", goal, "of memcpy")
       for r, goal in ((1, 8), (2, 13), (3, 25), (5, 60), (15, 800), (31, 1300))]
    + [(f"accumulate-{t}/sums-alone", f"accumulate-{t}/limit", goal, "of the limit")
       for t, goal in (("u8", 1.15), ("u16", 1.05))]
    # What it costs to watch for frames and samples that leave the others.
    + [(f"{what}-{t}/ours", f"{what}-{t}/sums-alone", 1.6, "of the sums alone")
       for what in ("accumulate", "record-16") for t in ("u8", "u16")])
FLAGS_GOAL = 2.8
# Most that a frame with defects may take, in multiples of one without.
DEFECT_GOALS = {"250 defects": 1.015, "1000 defects": 1.05}


class Figures:
    def __init__(self, files):
        self.rounds = []
        self.tables = {}
        self.outputs = {}  # by image and way
        for file in files:
            with open(file, encoding="utf-8") as lines:
                if file.endswith(".csv"):
                    pairs = (line.strip().rsplit(",", 1) for line in lines if "," in line)
                    self.rounds.append({name: float(ns) for name, ns in pairs})
                else:
                    text = lines.read()
                    self.tables.update(re.findall(r"^tables of (\S+): (.*)$", text, re.MULTILINE))
                    for image, way, ratio in re.findall(r"^ *(\S+), (.+) by none ([0-9.]+)$", text, re.MULTILINE):
                        self.outputs.setdefault(image, {}).setdefault(way, []).append(float(ratio))

    def names(self):
        return list(dict.fromkeys(name for values in self.rounds for name in values))

    def each(self, name):
        return [values[name] for values in self.rounds if name in values]

    def ns(self, name):
        return statistics.median(self.each(name))

    def ratios(self, name, base):
        return [values[name] / values[base] for values in self.rounds if name in values and base in values]


def spread(values):
    if len(values) < 2:
        return "-"
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return f"{100 * (high - low) / statistics.median(values):.0f} %"


def table(head, rows):
    if not rows:
        return []
    return ["| " + " | ".join(cells) + " |" for cells in [head, ["---"] * len(head)] + rows] + [""]


def verdict(value, goal):
    return "-" if goal is None else f"{goal:g}: " + ("met" if value <= goal else "**missed**")


def correction(figures):
    rows = []
    for name in [n[:-5] for n in figures.names() if n.count("/") == 2 and n.endswith("/ours")]:
        group, kind = name.split("/")
        ratios = figures.ratios(name + "/ours", name + "/limit")
        ratio = statistics.median(ratios)
        limit = figures.ns(name + "/limit")
        goal, stretch = CORRECTION_GOALS[kind].get(group, (None, None))
        traffic = SAMPLES[group.split("-")[0]] * FORMATS[kind][0] * FORMATS[kind][1]
        rows.append([group, kind, f"{figures.ns(name + '/ours') / 1e3:.1f}", f"{limit / 1e3:.1f}", f"{traffic / limit:.0f}",
                     f"{ratio:.2f}", spread(ratios), verdict(ratio, goal), verdict(ratio, stretch),
                     figures.tables.get(name, "-")])
    return table(["group", "format", "ours, us", "limit, us", "limit, GB/s", "ours / limit", "spread", "goal", "stretch",
                  "tables and target"], rows)


def opencv(figures):
    rows = []
    for name in [n[:-7] for n in figures.names() if n.count("/") == 2 and n.endswith("/opencv")]:
        ratios = figures.ratios(name + "/opencv", name + "/ours")
        times = statistics.median(ratios)
        goal = 3 if name.endswith("mono8") else 1.3
        rows.append([name, f"{figures.ns(name + '/opencv') / 1e3:.1f}", f"{times:.1f}", spread(ratios),
                     f"{goal:g}: " + ("met" if times >= goal else "**missed**")])
    return table(["", "OpenCV's best, us", "times ours", "spread", "goal, at least"], rows)


def outputs(figures):
    ways = list(dict.fromkeys(way for ratios in figures.outputs.values() for way in ratios))

    def cell(ratios, goal):
        text = ", ".join(f"{ratio:.3f}" for ratio in ratios) or "-"
        return f"{text}; {verdict(statistics.median(ratios), goal)}" if ratios and goal else text

    rows = [[image] + [cell(ratios.get(way, []), DEFECT_GOALS.get(way)) for way in ways]
            for image, ratios in figures.outputs.items()]
    return table([""] + ways, rows)


def references(figures):
    rows = []
    compared = {ours: rest for ours, *rest in REFERENCE_RATIOS}
    for name in sorted((n for n in figures.names() if n.count("/") == 1 and re.match("box|median|acc|record|apply|memcpy", n)),
                       key=lambda n: [int(t) if t.isdigit() else t for t in re.split(r"(\d+)", n)]):
        base, goal, words = compared.get(name, [None] * 3)
        values = figures.ratios(name, base) if base else []
        middle = statistics.median(values) if values else None
        if name.startswith("apply"):
            words = verdict(figures.ns(name) / 1e6, 30)
        rows.append([name, f"{figures.ns(name) / 1e6:.3f}", spread(values or figures.each(name)),
                     f"{middle:.2f} {words}" if values else "-",
                     words if name.startswith("apply") else verdict(middle, goal) if values else "-"])
    boxes = [figures.ns(f"box-r{r}/ours") for r in (1, 2, 3, 5, 15, 31) if figures.each(f"box-r{r}/ours")]
    if boxes:
        rows.append(["box, slowest by fastest radius", "-", "-", f"{max(boxes) / min(boxes):.2f}",
                     verdict(max(boxes) / min(boxes), 1.3)])
    return table(["", "ms", "spread", "ratio", "goal"], rows)


def fetch(figures):
    names = [n for n in figures.names() if re.match("fetch-|processor|gate-", n)]
    if not names:
        return []
    rows = [[name, f"{figures.ns(name):.1f}", spread(figures.each(name)), "-"] for name in names]

    def add(words, parts, goal):
        values = [sum(sign * r[part] for sign, part in parts) for r in figures.rounds if parts[0][1] in r]
        rows.append([words, f"{statistics.median(values):.1f}", spread(values), verdict(statistics.median(values), goal)])

    add("correction off adds to a forwarding hook", [(1, "fetch-off/ours"), (-1, "fetch-forwarded/host")], 40)
    add("correction off adds to the bare fetch", [(1, "fetch-off/ours"), (-1, "fetch-bare/host")], None)
    add("correction on adds beyond the processor",
        [(1, "fetch-on/ours"), (-1, "fetch-off/ours"), (-1, "processor/host")], 150)
    for threads in ("1-thread", "2-threads"):
        base = f"gate-{threads}/shared_mutex"
        for ours in (f"gate-{threads}/ours", f"gate-{threads}/ours-flags"):
            values = figures.ratios(ours, base)
            middle = statistics.median(values)
            rows.append([f"{ours} by shared_mutex", f"{middle:.2f}", spread(values),
                         verdict(middle, FLAGS_GOAL if ours.endswith("flags") else None)])
    return table(["", "ns, or ratio", "spread", "goal"], rows)


def main(arguments):
    split = arguments.index("--")
    figures = Figures(arguments[split + 1:])
    page = ["## " + arguments[0], "", *[f"- {line}" for line in arguments[1:split]], ""]
    for heading, lines in (("Correction, one thread", correction(figures)), ("Beside OpenCV", opencv(figures)),
                           ("Defects and pedestal, by a frame without, each run", outputs(figures)),
                           ("References, 2448 x 2048", references(figures)), ("Fetch and gate", fetch(figures))):
        if lines:
            page += ["### " + heading, "", *lines]
    print("\n".join(page).rstrip())


if __name__ == "__main__":
    main(sys.argv[1:])
