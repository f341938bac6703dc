#!/usr/bin/env python3
"""Reads the JSON of kelcore_bench and prints each job's time and its ratios to
the peers, the best one first, and to the limit, as a Markdown table; with a second
argument it also draws the ratios as a picture (SVG)."""

import json
import sys
from collections import defaultdict


def medians(document):
    times = defaultdict(dict)
    for run in document["benchmarks"]:
        if run.get("aggregate_name", "median") != "median" or run.get("error_occurred"):
            continue
        job, _, who = run["run_name"].partition("/")
        if job.startswith("growth_"):
            continue
        scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
        times[job][who.split("/")[0]] = run["real_time"] * scale
    return times


def shown(ns):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.1f} {unit}"
    return f"{ns:.1f} ns"


def rows(times):
    for job, who in times.items():
        if "kelcore" not in who:
            continue
        ours = who["kelcore"]
        limits = {k[6:]: v for k, v in who.items() if k.startswith("limit_")}
        peers = {k: v for k, v in who.items() if k != "kelcore" and not k.startswith("limit_")}
        by_time = lambda item: item[1]
        yield job, ours, sorted(peers.items(), key=by_time), sorted(limits.items(), key=by_time)


def cell(ours, others):
    return ", ".join(f"{ours / time:.2f} x {who}" for who, time in others) or "-"


def draw(table, path):
    entries = [(job, other[0], ours / other[1]) for job, ours, peers, limits in table
               for other in peers + limits]
    height = 22 * len(entries) + 40
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="760" height="{height}" '
             'font-family="sans-serif" font-size="12">',
             '<text x="10" y="20">time taken, beside a peer or the limit (1 is as long as it)</text>']
    unit = 140
    for i, (job, who, ratio) in enumerate(entries):
        y = 32 + 22 * i
        width = min(ratio, 2.6) * unit
        colour = "#4a8" if ratio <= 1 else "#c84"
        lines.append(f'<text x="10" y="{y + 13}">{job} / {who}</text>')
        lines.append(f'<rect x="270" y="{y}" width="{width:.0f}" height="16" fill="{colour}"/>')
        lines.append(f'<text x="{275 + width:.0f}" y="{y + 13}">{ratio:.2f}</text>')
    lines.append(f'<line x1="{270 + unit}" y1="28" x2="{270 + unit}" y2="{height - 8}" stroke="#888"/>')
    lines.append("</svg>")
    with open(path, "w", encoding="ascii") as file:
        file.write("\n".join(lines) + "\n")


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit("usage: table.py RESULTS.json [PICTURE.svg]")
    try:
        with open(sys.argv[1], encoding="utf-8") as file:
            document = json.load(file)
    except (OSError, ValueError) as error:
        sys.exit(f"table.py: {sys.argv[1]}: {error}")
    table = list(rows(medians(document)))
    print("| job | kelcore | beside peers | beside the limit |\n| --- | --- | --- | --- |")
    for job, ours, peers, limits in table:
        print(f"| {job} | {shown(ours)} | {cell(ours, peers)} | {cell(ours, limits)} |")
    if len(sys.argv) == 3:
        draw(table, sys.argv[2])


if __name__ == "__main__":
    main()
