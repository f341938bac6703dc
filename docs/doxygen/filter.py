#!/usr/bin/env python3
"""Doxygen's input filter: prints a public header with its plain comments turned into
Doxygen's, one for each declaration, in the group of its family, or of the C++ headers. Of
families.ini it makes the main page and the groups."""

import re
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "reference"))
import cpp  # noqa: E402
import headers  # noqa: E402

FAMILIES = headers.families()
ITEMS = {item.name for family in FAMILIES for header in family.headers
         for item in header.items if item.name}
CPP = headers.ROOT / "include/kelcore_hpp"
CPP_CLASSES = {name for path in CPP.glob("*.hpp") for name in cpp.classes(path.read_text())}


def linked(text):
    text = re.sub(r"\bkel\\::(\w+)\b",
                  lambda m: f'@ref kel::{m[1]} "kel::{m[1]}"' if m[1] in CPP_CLASSES else m[0], text)
    return re.sub(r"\bKEL\w+\b",
                  lambda m: f'@ref {m[0]} "{m[0]}"' if m[0] in ITEMS else m[0], text)


def escaped(text):
    text = re.sub(r"[\\@#%&<>]", lambda m: "\\" + m[0], text)
    return text.replace("--", r"\--").replace("::", r"\::")


def prose(text, links=True):
    parts = re.split(r"`([^`]*)`", text)
    for i, part in enumerate(parts):
        part = escaped(part)
        parts[i] = f"<tt>{part}</tt>" if i % 2 else linked(part) if links else part
    return "".join(parts)


def rendered(block, language="c"):
    if block.kind == "code":
        return ["@code{.%s}" % language] + block.lines + ["@endcode", ""]
    if block.kind == "table":
        return ["@verbatim"] + block.lines + ["@endverbatim", ""]
    if block.kind == "list":
        return ["<ul>"] + [f"<li>{prose(line)}</li>" for line in block.lines] + ["</ul>", ""]
    return [prose(block.text), ""]


def sentences(text):
    return re.split(r"(?<=[.]) (?=[A-Z`\"])", text)


SAID_OF_RESULT = re.compile(r"Returns? |Owned by |Null (when|on|for|as|gives)\b|Results are ")
IN_PASSING = re.compile(r"\b(?:returns? |results are (?=those ))(.*)")


def split_result(item):
    """The blocks without what they say of the result, and that as Doxygen text. Where no
    sentence begins with it, it is told in passing, or is what the comment begins with."""
    if item.result in ("void", ""):
        return item.blocks, []
    blocks, said, rest = [], [], []
    for number, block in enumerate(item.blocks):
        last = sentences(item.blocks[number - 1].text)[-1] if number else ""
        if block.kind == "table" and last.startswith("Return"):
            rest += rendered(block)
        elif block.kind != "text":
            blocks.append(block)
        else:
            kept = []
            for sentence in sentences(block.text):
                (said if SAID_OF_RESULT.match(sentence) else kept).append(sentence)
            if kept:
                blocks.append(headers.Block("text", [" ".join(kept)]))
    if not any(sentence.startswith("Return") for sentence in said):
        others = [s for block in blocks if block.kind == "text" for s in sentences(block.text)]
        passing = [found[1] for found in map(IN_PASSING.search, others) if found]
        said = [(passing or others)[0]] + said
    result = " ".join(re.sub("^Returns? ", "", sentence) for sentence in said)
    return blocks or item.blocks, [prose(result)] + rest


def comment(lines):
    return "/**\n" + "\n".join(lines).rstrip() + "\n*/"


def documented(header, item, parameters):
    blocks, result = split_result(item)
    lines = []
    if item.kind == "handle":
        lines += ["A handle. What it holds is private to the library.", ""]
    for block in blocks:
        lines += rendered(block)
    if item.trailing:
        lines = [prose(item.trailing[0].upper() + item.trailing[1:] + "."), ""]
    if item.kind in ("function", "callback"):
        for p in item.parameters:
            text = parameters(header, item.name, p.name)
            if p.name and text:
                lines.append(f"@param {p.name} {prose(text)}")
        if result:
            lines += ["@return " + result[0]] + result[1:]
    if item.kind == "function":
        for title in headers.CONVENTIONS:
            if title in header.conventions:
                lines += ["", f"@par {title}", prose(header.conventions[title])]
    return comment(lines)


def trailing(text):
    return "/**< " + prose(text[0].upper() + text[1:], False) + ". */"


def declared(item):
    text = headers.ATTRIBUTES.sub("", item.declaration)
    if item.kind in ("struct", "enum"):
        return re.sub(r"/\* (.*?) \*/",
                      lambda m: trailing(m[1]), text)
    return re.sub(r" */\*.*?\*/", "", text)


def print_header(path):
    family = next(f for f in FAMILIES if any(h.path.name == path.name for h in f.headers))
    header = next(h for h in family.headers if h.path.name == path.name)
    parameters = headers.parameter_texts()
    includes = re.findall(r"^#include .*$", path.read_text(), re.M)
    head = [f"@file {path.name}", f"@brief {prose(header.title)}.",
            f"Family: @ref {family.key}."]
    print(comment(head))
    print("\n".join(includes))
    lines = [f"@addtogroup {family.key}", "@{", f"@par {path.name}", ""]
    for block in header.blocks:
        lines += rendered(block)
    # Doxygen reads the headers by name: behind the last one of the family.
    if path.name == max(h.path.name for h in family.headers):
        if family.see:
            lines += ["@par Neighbours", ", ".join(f"@ref {key}" for key in family.see), ""]
        for example in family.examples:
            lines += [f"@par Example: {example}", f"@include {example}", ""]
    print(comment(lines))
    for item in header.items:
        print(documented(header, item, parameters))
        print(declared(item), end="\n\n")
    print("/** @} */")


def cpp_prose(lines):
    """A comment of a C++ header, whose commands are Doxygen's already."""
    told = []
    for part in re.split(r"(?=@(?:tparam|throws)\b)", "\n".join(lines)):
        command = re.match(r"@tparam +\S+ *|@throws +\S+ *", part)
        blocks = headers.blocks_of(part[command.end() if command else 0:].split("\n"))
        text = [line for block in blocks for line in rendered(block, "cpp")]
        if command:
            text[0] = command[0] + text[0]
        told += text
    return told


def print_cpp_header(path):
    text = path.read_text()
    about = cpp_prose(cpp.file_comment(text))
    print(comment([f"@file kelcore_hpp/{path.name}"] + about))
    for told, head, lines in cpp.items(text):
        if lines == ["}  // namespace kel"]:
            print("/** @} */")
        if told or head:
            own = told and not told[0].startswith("@")
            print(comment(([] if own else about) + cpp_prose(told or [])))
        elif told is None and "///<" not in lines[0]:
            continue
        print("\n".join(re.sub(r"///< (.*)", lambda m: trailing(m[1]), line) for line in lines))
        if lines == ["namespace kel {"]:
            print(comment(["@addtogroup cpp", "@{"]))


MAIN = r"""@mainpage
The core runtime library of an embedded Linux media device, behind a plain C interface:
@code{.c}
#include <kelcore/kelcore.h>
@endcode
Programs include that header, or those of the families they use, as in
<tt>kelcore/kelcore_queue.h</tt>, and compile with
<tt>$(pkg-config \--cflags \--libs kelcore)</tt>. Time-outs are milliseconds; results are 0
or a handle when all is well, and each function tells the rest. What is said under Threads,
Blocking and Null is true of the family, as far as the function itself does not say
otherwise.

C++17 programs have owners, time-outs and containers over the same calls: @ref cpp.
"""

CPP_GROUP = """@defgroup cpp The C++ headers
Owners that release once, <tt>std\\::chrono</tt> time-outs, typed containers, failures as
<tt>std\\::error_code</tt>; headers only, over the C calls:
@code{.cpp}
#include <kelcore/kelcore.hpp>
@endcode
The namespace is <tt>kel</tt>. Each class tells where it differs from the C calls.
"""
CPP_EXAMPLES = ("hello_cpp.cpp", "jobs_and_results.cpp", "frames_for_two.cpp",
                "containers_in_regions.cpp")


def print_groups():
    lines = MAIN.split("\n")
    areas = {}
    for family in FAMILIES:
        areas.setdefault(family.area, []).append(family)
    for area, members in areas.items():
        lines += [f"@par {area}", ", ".join(f"@ref {f.key}" for f in members), ""]
    print(comment(lines))
    for number, (area, members) in enumerate(areas.items()):
        print(comment([f"@defgroup area{number} {area}",
                       "Families: " + ", ".join(f"@ref {f.key}" for f in members) + "."]))
        for family in members:
            print(comment([f"@defgroup {family.key} {family.title}",
                           f"@ingroup area{number}"]))
    lines = CPP_GROUP.split("\n")
    for example in CPP_EXAMPLES:
        lines += [f"@par Example: {example}", f"@include {example}", ""]
    print(comment(lines))


def main():
    path = Path(sys.argv[1])
    if path.suffix == ".ini":
        print_groups()
    elif path.suffix == ".hpp":
        print_cpp_header(path)
    else:
        print_header(path)


if __name__ == "__main__":
    main()
