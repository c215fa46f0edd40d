#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Puts the results of a benchmark run into the tables of docs/performance.md.

A table stands below a comment that names it, `<!-- table: profile -->`: a set of cases, or one of the
summaries. In the table of a set the yardstick's column holds times, the others their ratio to it. What
the page says about the figures is written by hand. Not here: measuring, drawing (plot_benchmarks.py).
"""
import argparse
import json
import pathlib
import re
import sys

import list_sources

BLOCK = re.compile(r"^<!-- table: (\S+) -->\n\n(?:\|.*\n)*\n*", re.M)

# The order of columns; what is not named here stands behind, as it was measured.
YARDSTICKS = ("hello", "floor", "floor records", "discipline", "copy")


def time_text(seconds):
    for unit, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= scale:
            return f"{seconds / scale:.3g} {unit}"
    return f"{seconds / 1e-9:.3g} ns"


def ratio_text(ratio):
    return f"{ratio:.3f}" if ratio < 0.1 else f"{ratio:.2f}" if ratio < 10 else f"{ratio:,.0f}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |"]
    lines.append("|---" + "|---:" * (len(head) - 1) + "|")
    return "\n".join([*lines, *("| " + " | ".join(row) + " |" for row in rows)]) + "\n"


def columns_of(timings):
    names = list(dict.fromkeys(timing["contender"] for timing in timings))
    return [name for name in YARDSTICKS if name in names] + [n for n in names if n not in YARDSTICKS]


def set_table(results, name):
    """A row for each case of the set."""
    own = [timing for timing in results["timings"] if timing["set"] == name]
    columns = columns_of(own)
    cases = {}
    for timing in own:
        key = (timing["operation"], timing["records"])
        cases.setdefault(key, {})[timing["contender"]] = timing["median"]
    rows = []
    order = list(dict.fromkeys(operation for operation, _ in cases))
    for (operation, records), medians in sorted(cases.items(), key=lambda c: order.index(c[0][0])):
        first = next(column for column in columns if column in medians)
        cells = [
            "" if column not in medians
            else time_text(medians[column]) if column == first
            else ratio_text(medians[column] / medians[first])
            for column in columns
        ]
        rows.append([operation, f"{records:,}", *cells])
    return table(["", "records", *columns], rows)


def bars_table(results):
    rows = []
    for bar in results["bars"]:
        worst = f"{bar['figure']:.2f} ({bar['where']})" if bar["cases"] else ""
        beyond = f"{bar['beyond']} of {bar['cases']}" if bar["cases"] else ""
        rows.append([bar["bar"], bar["outcome"], worst, beyond])
    return table(["", "", "worst case", "cases beyond"], rows)


def contention_table(results):
    rows = []
    for line in results["contention"]:
        rates = sorted(line["rates"])
        rows.append([
            f"{line['operation']}, {line['processes']} processes, {line['records']:,} records",
            line["contender"],
            f"{rates[len(rates) // 2]:,.0f}",
            time_text(line["median"]),
            time_text(line["percentile99"]),
        ])
    return table(["", "", "updates a second", "median", "99 in 100"], rows)


def growth_table(results):
    ours = [line for line in results["growth"] if line["contender"] in ("store", "directory")]
    rows = [
        [f"{line['set']}, {line['operation']}", line["contender"], f"{line['exponent']:.2f}",
         f"{line['steepest']:.2f}"]
        for line in ours
    ]
    return table(["", "", "exponent", "between the largest sizes"], rows)


SUMMARIES = {"bars": bars_table, "contention": contention_table, "growth": growth_table}


def filled(page, results):
    """The page with each table replaced by the one of these results."""

    def block(match):
        name = match.group(1)
        make = SUMMARIES.get(name)
        lines = make(results) if make else set_table(results, name)
        return f"<!-- table: {name} -->\n\n{lines}\n"

    return BLOCK.sub(block, page)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--page", type=pathlib.Path, default=list_sources.ROOT / "docs/performance.md")
    options = parser.parse_args()
    results = json.loads(options.results.read_text(encoding="utf-8"))
    if results["quick"]:
        sys.exit("a quick run has not measured all that the page shows")
    page = options.page.read_text(encoding="utf-8")
    options.page.write_text(filled(page, results), encoding="utf-8")


if __name__ == "__main__":
    main()
