#!/usr/bin/env python3
"""Compares the code in the guide, and in docs/cpp.md, with the programs that tests build
and run, the figures with those of docs/performance.md, and the links with what is there.
With --write it puts the programs' text and the figures into the pages.

A block of code follows "<!-- snippets/FILE -->" or "<!-- snippets/FILE: PART -->". Other
programs than the guide's are shown in the same way: a file is named from the page's
directory. A figure is followed by "<!-- JOB -->"."""

import re
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "reference"))
import parts  # noqa: E402

GUIDE = Path(__file__).resolve().parent
DOCS = GUIDE.parent
PERFORMANCE = DOCS / "performance.md"
FIGURE = re.compile(r"\w[\w.]*(?: [num]s)?<!-- (\w+) -->")
SHOWN = re.compile(r"<!-- ([\w./]+)(?:: ([\w ]+))? -->\n```(\w+)\n(.*?)```\n", re.S)


def code(path, part):
    return parts.part(path, part) if part else path.read_text()


def figures():
    """The times of the jobs, to two digits, as text."""
    rows = re.findall(r"^\| (\w+) \| ([\d.]+) ([num]s) \|", PERFORMANCE.read_text(), re.M)
    return {job: f"{float(f'{float(time):.2g}'):g} {unit}" for job, time, unit in rows}


def anchors(path):
    titles = re.findall(r"^#+ (.*)$", path.read_text(), re.M)
    return {re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-") for title in titles}


def complaints(write):
    used, times = set(), figures()
    for page in sorted(GUIDE.glob("*.md")) + [DOCS / "cpp.md"]:
        text = page.read_text()
        used |= {(page.parent / found[1]).resolve() for found in SHOWN.finditer(text)}
        as_it_is = SHOWN.sub(lambda m: text[m.start():m.start(4)] +
                             code(page.parent / m[1], m[2]) + "```\n", text)
        as_it_is = FIGURE.sub(lambda m: f"{times.get(m[1], 'no')}<!-- {m[1]} -->", as_it_is)
        if write:
            page.write_text(as_it_is)
        elif text != as_it_is:
            yield f"{page.name}: not what the snippets or the figures are; " \
                  f"{Path(__file__).name} --write"
        for job in FIGURE.findall(text):
            if job not in times:
                yield f"{page.name}: docs/performance.md has no {job}"
        if len(re.findall(r"^```\w", text, re.M)) != len(SHOWN.findall(text)):
            yield f"{page.name}: code that no snippet has"
    for path in sorted((GUIDE / "snippets").glob("*.c*")):
        if path not in used:
            yield f"snippets/{path.name}: not shown"

    index = (DOCS / "README.md").read_text()
    for page in sorted(DOCS.rglob("*.md")):
        name = page.relative_to(DOCS)
        if page.name != "README.md" and f"]({name})" not in index:
            yield f"docs/README.md: nothing about {name}"
        for target, _, anchor in re.findall(r"\]\(([^):#]*)(#([\w-]+))?\)", page.read_text()):
            there = page if not target else page.parent / target
            if not there.exists():
                yield f"{name}: {target} is not there"
            elif anchor and anchor not in anchors(there):
                yield f"{name}: {target} has no #{anchor}"


if __name__ == "__main__":
    found = list(complaints("--write" in sys.argv[1:]))
    print("\n".join(found))
    sys.exit(1 if found else 0)
