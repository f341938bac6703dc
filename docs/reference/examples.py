#!/usr/bin/env python3
"""Compares the examples in the headers' opening comments, which the manual pages and the
HTML reference show, too, with the programs in docs/reference/examples, which tests build
and run. With --write it puts the programs' text into the headers."""

import re
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
import headers  # noqa: E402
import parts  # noqa: E402

PROGRAMS = Path(__file__).resolve().parent / "examples"
EXAMPLE = re.compile(r"^ \*\n((?: \*     .*\n)(?: \*\n(?= \*     )| \*     .*\n)*) \*\n", re.M)
LONGEST = 96


def example(header):
    """The program's part as lines of the header's comment, which no comment may be in."""
    lines = []
    for line in parts.part(PROGRAMS / f"{header.stem}.c", "example").splitlines():
        line = re.sub(r"/\* (.*?) \*/$", r"// \1", line)
        if "*/" in line:
            raise ValueError(f"{header.stem}.c: a comment within a line: {line}")
        lines.append(f" *     {line}".rstrip())
    return "".join(line + "\n" for line in lines)


def shown(text):
    """The one example in a header's opening comment: its place in the text, or None."""
    opening = text[:text.index("*/")]
    found = list(EXAMPLE.finditer(opening))
    if len(found) > 1:
        raise ValueError("more than one example")
    return found[0].span(1) if found else None


def complaints(write):
    programs = {path.stem for path in PROGRAMS.glob("*.c")}
    for family in headers.families():
        for header in (header.path for header in family.headers if header.functions()):
            if header.stem not in programs:
                yield f"{header.name}: no program docs/reference/examples/{header.stem}.c"
                continue
            programs.remove(header.stem)
            text, tested = header.read_text(), example(header)
            place = shown(text)
            if not place:
                yield f"{header.name}: shows no example"
                continue
            as_it_is = text[:place[0]] + tested + text[place[1]:]
            if write:
                header.write_text(as_it_is)
            elif text != as_it_is:
                yield f"{header.name}: not its program's example; {Path(__file__).name} --write"
            yield from (f"{header.name}: the example is too wide: {line}"
                        for line in tested.splitlines() if len(line) > LONGEST)
    yield from (f"docs/reference/examples/{name}.c: no header" for name in sorted(programs))


if __name__ == "__main__":
    found = list(complaints("--write" in sys.argv[1:]))
    print("\n".join(found))
    sys.exit(1 if found else 0)
