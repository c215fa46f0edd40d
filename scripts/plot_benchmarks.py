#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws the results of the benchmarks as an SVG: time against records, both axes logarithmic.

Four panels of the instance registries: lookup, scan, and a change with and without syncing. The
colours are chosen in the picture itself by the reader's colour scheme. Not here: measuring, tables.
"""
import argparse
import json
import math
import sys

PANELS = [
    ("lookup missing", "Lookup of a missing record"),
    ("read all", "Reading all records"),
    ("change durable", "Change of one record, durable"),
    ("change unsynced", "Change of one record, unsynced"),
]

# Contender: (its class in the style below, dashes). The library is drawn last and boldest.
LINES = {
    "floor": ("floor", "6 4"),
    "discipline": ("floor", "2 3"),
    "sqlite": ("sqlite", ""),
    "sqlite wal": ("sqlite", "6 4"),
    "tdb": ("tdb", ""),
    "lmdb": ("lmdb", ""),
    "directory": ("library", "6 4"),
    "store": ("library", ""),
}

STYLE = """
  text { font: 12px system-ui, sans-serif; fill: #24292f }
  .title { font-weight: 600; font-size: 13px }
  .page { fill: #ffffff }
  .grid { stroke: #d8dee4; stroke-width: 1 }
  .line { fill: none; stroke-width: 1.6 }
  .line.library { stroke-width: 2.6 }
  .floor { stroke: #57606a } .library { stroke: #0969da } .sqlite { stroke: #bc4c00 }
  .tdb { stroke: #8250df } .lmdb { stroke: #1a7f37 }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6edf3 }
    .page { fill: #0d1117 }
    .grid { stroke: #30363d }
    .floor { stroke: #9ea7b3 } .library { stroke: #58a6ff } .sqlite { stroke: #f0883e }
    .tdb { stroke: #bc8cff } .lmdb { stroke: #3fb950 }
  }
"""

WIDTH, HEIGHT = 920, 760
PANEL_WIDTH, PANEL_HEIGHT = 370, 270
LEFT, TOP = 70, 50
GAP_X, GAP_Y = 80, 80
LEGEND_Y = HEIGHT - 22


def time_text(exponent):
    units = {-6: "us", -3: "ms", 0: "s"}
    base = max(unit for unit in units if unit <= max(exponent, -6))
    return f"{10 ** (exponent - base):g} {units[base]}"


def points_of(timings, operation):
    """{contender: [(records, seconds)]} of one operation, in the order of sizes."""
    lines = {}
    for timing in timings:
        if timing["set"] == "instances" and timing["operation"] == operation:
            lines.setdefault(timing["contender"], []).append((timing["records"], timing["median"]))
    return {name: sorted(points) for name, points in lines.items()}


def decades(values):
    """The powers of ten around all values."""
    return math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))


class Panel:
    """One diagram: its place in the picture and the ranges of its axes."""

    def __init__(self, left, top, lines):
        self.left, self.top, self.lines = left, top, lines
        points = [point for line in lines.values() for point in line]
        self.x_range = decades([x for x, _ in points])
        self.y_range = decades([y for _, y in points])

    def x(self, records):
        low, high = self.x_range
        return self.left + PANEL_WIDTH * (math.log10(records) - low) / max(high - low, 1)

    def y(self, seconds):
        low, high = self.y_range
        return self.top + PANEL_HEIGHT * (1 - (math.log10(seconds) - low) / max(high - low, 1))

    def grid(self):
        right, bottom = self.left + PANEL_WIDTH, self.top + PANEL_HEIGHT
        for exponent in range(self.x_range[0], self.x_range[1] + 1):
            x = self.x(10**exponent)
            yield f'<line class="grid" x1="{x:.1f}" y1="{self.top}" x2="{x:.1f}" y2="{bottom}"/>'
            yield text(x, bottom + 16, f"{10 ** exponent:,}", "middle")
        for exponent in range(self.y_range[0], self.y_range[1] + 1):
            y = self.y(10**exponent)
            yield f'<line class="grid" x1="{self.left}" y1="{y:.1f}" x2="{right}" y2="{y:.1f}"/>'
            yield text(self.left - 8, y + 4, time_text(exponent), "end")

    def curves(self):
        for name, (style, dashes) in LINES.items():
            if name not in self.lines:
                continue
            points = " ".join(f"{self.x(x):.1f},{self.y(y):.1f}" for x, y in self.lines[name])
            yield f'<polyline class="line {style}" stroke-dasharray="{dashes}" points="{points}"/>'


def text(x, y, words, anchor="start", style=""):
    return f'<text class="{style}" x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{words}</text>'


def legend():
    step = (WIDTH - LEFT) / len(LINES)
    for number, (name, (style, dashes)) in enumerate(LINES.items()):
        x = LEFT + number * step
        yield (f'<polyline class="line {style}" stroke-dasharray="{dashes}" '
               f'points="{x:.1f},{LEGEND_Y - 4} {x + 26:.1f},{LEGEND_Y - 4}"/>')
        yield text(x + 32, LEGEND_Y, name)


def draw(timings):
    """The picture as text; None when one of the panels was not measured."""
    parts = []
    for number, (operation, title) in enumerate(PANELS):
        lines = points_of(timings, operation)
        if not lines:
            return None
        left = LEFT + (number % 2) * (PANEL_WIDTH + GAP_X)
        top = TOP + (number // 2) * (PANEL_HEIGHT + GAP_Y)
        panel = Panel(left, top, lines)
        parts.append(text(left, top - 14, title, style="title"))
        parts += [*panel.grid(), *panel.curves()]
        parts.append(text(left + PANEL_WIDTH, top + PANEL_HEIGHT + 32, "records", "end"))
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img" '
            'aria-label="Time against records of the library, the floor and the peers">')
    page = f'<rect class="page" width="{WIDTH}" height="{HEIGHT}"/>'
    return "\n".join([head, f"<style>{STYLE}</style>", page, *parts, *legend(), "</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("results", help="results.json of a run")
    parser.add_argument("picture", help="the SVG to write")
    options = parser.parse_args()
    with open(options.results, encoding="utf-8") as source:
        picture = draw(json.load(source)["timings"])
    if picture is None:
        print("plot_benchmarks: the run left out what is drawn", file=sys.stderr)
        return 1
    with open(options.picture, "w", encoding="utf-8") as target:
        target.write(picture)
    return 0


if __name__ == "__main__":
    sys.exit(main())
