#!/usr/bin/env python3
"""Each row of the page of surprises names a function that there is, each header has a row
for each surprise that it tells in its opening comment, and no text of trace levels in the
guide lets the timers' handler trace."""

import re
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "docs/reference"))
import headers  # noqa: E402

GUIDE = headers.ROOT / "docs/guide"
ROW = re.compile(r"^\| (?!---|what surprises)(.*?) \| (.*?) \|$", re.M)
NAME = re.compile(r"\bKEL\w*\w\b")


def told(header):
    """How many surprises the header's opening comment tells."""
    for number, block in enumerate(header.blocks):
        if block.kind == "text" and re.match(r"Surprises? worth knowing", block.text):
            after = header.blocks[number + 1:number + 2]
            return len(after[0].lines) if after and after[0].kind == "list" else 1
    return 0


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
        own = {item.name for item in header.functions()}
        found = sum(1 for what, _ in rows if own & set(NAME.findall(what)))
        if found < told(header):
            yield f"surprises.md: {found} rows for {told(header)} surprises of {header.path.name}"
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
