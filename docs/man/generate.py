#!/usr/bin/env python3
"""Writes the manual pages of the families, section 3, and the overview kelcore.7, of the
comments in the headers; with --check it only tells which pages are not up to date."""

import re
import sys
from pathlib import Path

sys.dont_write_bytecode = True
MAN = Path(__file__).resolve().parent
sys.path.insert(0, str(MAN.parent / "reference"))
import headers  # noqa: E402

DATE = "November 21, 2026"  # of the last change that readers would notice
FAMILIES = headers.families()
NAMES = {item.name for family in FAMILIES for header in family.headers
         for item in header.items if item.name}
CODE = {"\\": "\\e", "-": "\\-", "'": "\\(aq", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti"}


def code(line):
    line = "".join(CODE.get(char, char) for char in line)
    return "\\&" + line if line.startswith((".", "\\(aq")) else line


COMPILING = [".Pp", "Compile with",
             ".Dl " + code("cc program.c $(pkg-config --cflags --libs kelcore)")]


def prose(text):
    """Text lines, one for each sentence."""
    parts = re.split(r"`([^`]*)`", text)
    for i, part in enumerate(parts):
        if i % 2:
            parts[i] = f"\\fI{code(part)}\\fP"
            continue
        part = part.replace("\\", "\\e").replace("^", "\\(ha").replace("~", "\\(ti")
        part = re.sub(r"(?<![\w])-(?=[\d-])", r"\\-", part)
        parts[i] = re.sub(r"\bKEL\w+\b",
                          lambda m: f"\\fB{m[0]}\\fP" if m[0] in NAMES else m[0], part)
    lines = re.split(r"(?<=[.;]) (?=[A-Z\\])", "".join(parts))
    return ["\\&" + line if line[0] in ".'" else line for line in lines]


def literal(lines):
    return [".Bd -literal -offset indent"] + [code(line) for line in lines] + [".Ed"]


def tagged(entries):
    lines = [".Bl -tag -width Ds"]
    for tag, text in entries:
        lines += [".It " + tag] + prose(text)
    return lines + [".El"]


def rendered(blocks):
    lines = []
    for block in blocks:
        if block.kind in ("code", "table"):
            lines += literal(block.lines)
        elif block.kind == "list":
            lines += [".Bl -bullet"]
            for entry in block.lines:
                lines += [".It"] + prose(entry)
            lines += [".El"]
        else:
            lines += ([".Pp"] if lines else []) + prose(block.text)
    return lines


def quoted(text):
    return '"' + text.replace('"', '""') + '"'


def argument(p):
    if p.name == "...":
        return p.type
    if "(*)" in p.type:
        return p.type.replace("(*)", f"(*{p.name})")
    return p.type + ("" if p.type.endswith("*") else " ") + p.name


def prototype(item):
    arguments = [argument(p) for p in item.parameters] or ["void"]
    return [f".Ft {quoted(item.result)}",
            f".Fn {item.name} " + " ".join(quoted(a) for a in arguments)]


def split_surprises(blocks):
    """The blocks, the short example, and the surprises."""
    text, example, surprises, telling = [], [], [], False
    for block in blocks:
        if block.kind == "text" and re.match(r"Surprises? worth knowing", block.text):
            telling = True
            told = block.text.partition(":")[2].strip()
            if told:
                surprises.append(headers.Block("text", [told[0].upper() + told[1:]]))
        elif telling:
            surprises.append(block)
        elif block.kind == "code":
            example.append(block)
        else:
            text.append(block)
    return text, example, surprises


def groups(header):
    """Functions and callbacks, those of one comment together."""
    found = []
    for item in header.items:
        if item.kind not in ("function", "callback"):
            continue
        if found and found[-1][0].blocks is item.blocks and found[-1][0].kind == item.kind:
            found[-1].append(item)
        else:
            found.append([item])
    return found


def parameters(family):
    texts = headers.parameter_texts()
    told = {}
    for header in family.headers:
        for item in header.items:
            for p in item.parameters:
                if p.name and p.name != "...":
                    told.setdefault(p.name, {}).setdefault(
                        texts(header, item.name, p.name), []).append(item.name)
    for name in sorted(told):
        most = max(told[name], key=lambda text: len(told[name][text]))
        text = most[0].upper() + most[1:]
        for other, functions in told[name].items():
            if other != most:
                text += f" In {', '.join(functions)}: {other}"
        yield f"Fa {name}", text


def constants(header):
    lines = []
    for item in header.items:
        if item.kind == "macro" or (item.kind in ("enum", "struct")):
            if lines and (item.kind != "macro" or not lines[-1].startswith("#")):
                lines.append("")
            lines += item.declaration.split("\n")
    return lines


def page(name, section, title, names, description):
    return [".\\\" Written by docs/man/generate.py: change the headers, not this.",
            f".Dd {DATE}", f".Dt {name.upper()} {section}", ".Os", ".Sh NAME"] + [
                f".Nm {n} ," for n in names[:-1]] + [f".Nm {names[-1]}", f".Nd {title}"
            ] + description


def see_also(family):
    names = sorted(f"kelcore_{key}" for key in family.see if key != "common")
    return [".Sh SEE ALSO"] + [f".Xr {n} 3 ," for n in names] + [".Xr kelcore 7"]


def family_page(family):
    name = f"kelcore_{family.key}"
    functions = [f.name for h in family.headers for f in h.functions()]
    lines = [".Sh SYNOPSIS"]
    for header in family.headers:
        lines += [f".In kelcore/{header.path.name}"]
        for item in header.functions():
            lines += prototype(item)
    lines += COMPILING
    examples, surprises, types = [], [], []
    lines += [".Sh DESCRIPTION"]
    for number, header in enumerate(family.headers):
        text, example, told = split_surprises(header.blocks)
        if len(family.headers) > 1:
            lines += [f".Ss {header.path.name}"]
        examples += example
        surprises += told
        types += ([""] if types and constants(header) else []) + constants(header)
        lines += rendered(text) + [".Bl -tag -width Ds -compact"]
        for group in groups(header):
            tags = [f".It Fn {i.name} " + " ".join(quoted(p.name) for p in i.parameters)
                    for i in group]
            lines += [".Pp"] + [tag.rstrip() for tag in tags] + rendered(group[0].blocks)
        lines += [".El"]
    entries = list(parameters(family))
    if entries:
        lines += [".Sh PARAMETERS"] + tagged(entries)
    if types:
        lines += [".Sh TYPES AND CONSTANTS"] + literal(types)
    lines += [".Sh THREADS, BLOCKING AND NULL"]
    lines += ["As far as the function itself does not say otherwise:"]
    for header in family.headers:
        if len(family.headers) > 1:
            lines += [f".Ss {header.path.name}"]
        lines += tagged((label, header.conventions[label]) for label in headers.CONVENTIONS)
    if examples:
        lines += [".Sh EXAMPLES"] + rendered(examples)
    if family.examples:
        where = ["examples/basics/" if (headers.ROOT / "examples/basics" / e).exists()
                 else "docs/guide/snippets/" for e in family.examples]
        lines += ([".Pp"] if examples else [".Sh EXAMPLES"]) + ["A whole program, in share/doc/kelcore of an installation:"]
        lines += [f".Pa {w}{e}" for w, e in zip(where, family.examples)]
    lines += see_also(family)
    if surprises:
        lines += [".Sh CAVEATS"] + rendered(surprises)
    title = family.headers[0].title
    title = family.title.lower() if len(family.headers) > 1 else title[0].lower() + title[1:]
    return page(name, 3, f"{title} (kelcore)", [name] + functions, lines)


def overview():
    areas = {}
    for family in FAMILIES:
        if family.key != "common":
            areas.setdefault(family.area, []).append(family)
    common = next(f for f in FAMILIES if f.key == "common").headers[0]
    lines = [".Sh SYNOPSIS", ".In kelcore/kelcore.h"] + COMPILING + [
             ".Sh DESCRIPTION",
             "The core runtime library of an embedded Linux media device, behind a plain C "
             "interface.",
             "It needs the C library and nothing else.",
             "The header includes those of all families; each can be included alone."]
    for area, members in areas.items():
        lines += [f".Ss {area}", ".Bl -tag -width kelcore_threadpool(3) -compact"]
        for family in members:
            lines += [f".It Xr kelcore_{family.key} 3", family.title.lower()
                      .replace("ipc", "messages between processes")]
        lines += [".El"]
    waits = next(i for i in common.items if i.name == "KEL_WAIT_FOREVER")
    codes = [i for i in common.items if re.match(r"KEL_(OK|ERR_)", i.name)]
    lines += [".Sh TIME-OUTS"] + rendered(waits.blocks)
    lines += [".Sh STATUS CODES"] + rendered(codes[0].blocks)
    lines += [".Bl -tag -width KEL_ERR_BUFFER_OVERFLOW -compact"]
    for item in codes:
        value = re.search(r"0x\w+(?=u)", item.declaration)[0]
        lines += [f".It Dv {item.name}", f"{value}: {item.trailing}"]
    lines += [".El", ".Sh EXAMPLES", "One thread hands a text to another one:"]
    lines += literal((headers.ROOT / "docs/guide/snippets/hello.c").read_text()
                     .replace("#include <kelcore", "#include <kelcore/kelcore")
                     .rstrip().split("\n"))
    lines += [".Sh SEE ALSO", ".Xr kelctl 1 ,", ".Xr kelstream 1"]
    return page("kelcore", 7, "core runtime library of a media device", ["kelcore"], lines)


def main():
    pages = {f"kelcore_{f.key}.3": family_page(f) for f in FAMILIES if f.key != "common"}
    pages["kelcore.7"] = overview()
    stale = []
    for name, lines in pages.items():
        path, text = MAN / name, "\n".join(lines) + "\n"
        if not path.exists() or path.read_text() != text:
            stale.append(name)
            if "--check" not in sys.argv[1:]:
                path.write_text(text)
    stale += [path.name for path in MAN.glob("kelcore*.[37]") if path.name not in pages]
    if "--check" in sys.argv[1:] and stale:
        sys.exit(f"not up to date: {' '.join(stale)}; docs/man/generate.py writes them")


if __name__ == "__main__":
    main()
