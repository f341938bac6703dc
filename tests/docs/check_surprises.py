#!/usr/bin/env python3
"""Each row of the page of surprises names a function that there is, each header has a row
for each surprise that it tells in its opening comment, and no text of trace levels in the
guide lets the timers' handler trace.

A row is for the header of the first function that it names. The functions that a surprise
names are in as many rows as in surprises, so that a row of their family does not stand for
any other."""

import re
import sys
from collections import Counter
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "docs/reference"))
import headers  # noqa: E402

GUIDE = headers.ROOT / "docs/guide"
ROW = re.compile(r"^\| (?!---|what surprises)(.*?) \| (.*?) \|$", re.M)
NAME = re.compile(r"\bKEL\w*\w\b")


def told(header):
    """The surprises that the header's opening comment tells."""
    for number, block in enumerate(header.blocks):
        if block.kind == "text" and re.match(r"Surprises? worth knowing", block.text):
            after = header.blocks[number + 1:number + 2]
            return after[0].lines if after and after[0].kind == "list" else [block.text]
    return []


def mentions(texts, functions):
    """How many of the texts name each of the functions."""
    return Counter(name for text in texts for name in set(NAME.findall(text)) & functions)


def row_complaints(header, rows, functions):
    """What the rows, pairs of a surprise and its remedy, lack of the header's surprises."""
    own, surprises = {item.name for item in header.functions()}, told(header)
    firsts = [next((name for name in NAME.findall(what) if name in functions), "")
              for what, _ in rows]
    found = sum(1 for name in firsts if name in own)
    if found < len(surprises):
        yield f"{found} rows for {len(surprises)} surprises of {header.path.name}"
    in_rows = mentions([what + how for what, how in rows], own)
    for name, count in mentions(surprises, own).items():
        if in_rows[name] < count:
            yield f"{in_rows[name]} rows for {count} surprises of {name}"


def complaints():
    all_headers = [header for family in headers.families() for header in family.headers]
    functions = {item.name for header in all_headers for item in header.functions()}
    known = functions | {item.name for header in all_headers for item in header.items}
    rows = ROW.findall((GUIDE / "surprises.md").read_text())
    for what, how in rows:
        names = set(NAME.findall(what))
        if not names & functions:
            yield f"surprises.md: no function in: {what}"
        for name in sorted((names | set(NAME.findall(how))) - known):
            yield f"surprises.md: there is no {name}"
    for header in all_headers:
        for complaint in row_complaints(header, rows, functions):
            yield f"surprises.md: {complaint}"
    if not any(told(header) for header in all_headers):
        yield "no header tells a surprise"

    for page in sorted(GUIDE.glob("*.md")):
        for levels in re.findall(r"[\w:,]*\*:[1-9]", page.read_text()):
            if "keltime:0," not in levels:
                yield f"{page.name}: {levels} lets the timers' handler trace"


if __name__ == "__main__":
    found = list(complaints())
    print("\n".join(found))
    sys.exit(1 if found else 0)
