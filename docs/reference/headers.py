"""Reads the public headers: their comments are plain text for those who program, and
the one source of the HTML reference and of the manual pages.

A header begins with a comment on its family. A comment in front of declarations is about
all of them up to the next blank line. Within a comment:

    `name`                  code
    "  - text"              a list item, continued by deeper lines
    "    text"              an example, after an empty line
    "  a  b"                a table kept as it is, in columns of two blanks or more
    "Threads: text"         also Blocking and Null, in a family's comment: true for
                            each of its functions that does not say otherwise
"""

import configparser
import re
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
CONVENTIONS = ("Threads", "Blocking", "Null")


@dataclass
class Block:
    kind: str  # text, list, code, table
    lines: list  # of list: one text per item

    @property
    def text(self):
        return " ".join(line.strip() for line in self.lines)


@dataclass
class Parameter:
    type: str
    name: str


@dataclass
class Item:
    kind: str  # function, callback, handle, struct, enum, macro
    name: str
    declaration: str
    blocks: list
    result: str = ""
    parameters: list = field(default_factory=list)
    trailing: str = ""


@dataclass
class Header:
    path: Path
    title: str
    blocks: list
    conventions: dict
    items: list

    def functions(self):
        return [item for item in self.items if item.kind == "function"]


def comment_lines(text):
    """What a comment says, line by line, without its frame."""
    lines = text.strip()[2:-2].split("\n")
    return [re.sub(r"^ \* ?", "", line).rstrip() if i else line.strip()
            for i, line in enumerate(lines)]


def blocks_of(lines):
    """Paragraphs, lists, examples and tables of a comment."""
    blocks, after_gap = [], True
    for line in lines:
        indent = len(line) - len(line.lstrip())
        last = blocks[-1] if blocks else None
        if not line:
            if last and last.kind == "code":
                last.lines.append("")
            after_gap = True
            continue
        if indent >= 4 and (after_gap or last.kind == "code") and last and last.kind != "list":
            if last.kind == "code":
                last.lines.append(line)
            else:
                blocks.append(Block("code", [line]))
        elif re.match(r" *- ", line):
            item = line.strip()[2:]
            if last and last.kind == "list":
                last.lines.append(item)
            else:
                blocks.append(Block("list", [item]))
        elif last and last.kind == "list" and indent and not after_gap:
            last.lines[-1] += " " + line.strip()
        elif re.match(r"`\w+`: ", line):
            if last and last.kind == "list":
                last.lines.append(line)
            else:
                blocks.append(Block("list", [line]))
        elif indent >= 2 and re.search(r"\S  +\S", line):
            if last and last.kind == "table":
                last.lines.append(line)
            else:
                blocks.append(Block("table", [line]))
        elif after_gap or not last or last.kind != "text" or re.match(
                r"(%s): " % "|".join(CONVENTIONS), line):
            blocks.append(Block("text", [line]))
        else:
            last.lines.append(line)
        after_gap = False
    for block in blocks:
        while block.lines and not block.lines[-1]:
            block.lines.pop()
        if block.kind in ("code", "table"):
            margin = min(len(l) - len(l.lstrip()) for l in block.lines if l)
            block.lines = [l[margin:] for l in block.lines]
    return blocks


ATTRIBUTES = re.compile(r"\b(KEL_API|KEL_NODISCARD|KEL_NORETURN)\b *|"
                        r" *\bKEL_PRINTF\(\d, \d\)")


def split_commas(text):
    """Parameters, the commas of function pointers kept together."""
    parts, depth = [""], 0
    for char in text:
        depth += {"(": 1, ")": -1}.get(char, 0)
        if char == "," and not depth:
            parts.append("")
        else:
            parts[-1] += char
    return [part.strip() for part in parts if part.strip() not in ("", "void")]


def parameter(text):
    if text == "...":
        return Parameter("...", "...")
    pointer = re.fullmatch(r"(.*\(\*)(\w+)(\)\(.*\))", text)
    if pointer:
        return Parameter(pointer[1] + pointer[3], pointer[2])
    plain = re.fullmatch(r"(.*[ *])(\w+)", text)
    return Parameter(plain[1].strip(), plain[2]) if plain else Parameter(text, "")


def item_of(text, blocks):
    """One declaration as an item; None for what is no one's business."""
    macro = re.match(r"#define (\w+)(\(.*?\))? *(.*?)(?: */\* (.*) \*/)?$", text)
    if macro:
        if not macro[3] or macro[3].startswith("__attribute__") or "DECLS" in macro[1]:
            return None
        return Item("macro", macro[1], text, blocks, trailing=macro[4] or "")
    if text.startswith("#") or "_DECLS" in text:
        return None
    body = re.search(r"\{\n(.*)\n\}", text, re.S)
    if body:
        kind = "enum" if text.startswith("enum") else "struct"
        name = re.search(r"(\w*);$", text)[1]
        return Item(kind, name, text, blocks)
    text = re.sub(r"\s+", " ", ATTRIBUTES.sub("", text)).strip()
    handle = re.fullmatch(r"typedef struct (\w+) \1;", text)
    if handle:
        return Item("handle", handle[1], text, blocks)
    call = re.fullmatch(r"(.*[ *])(\w+)\((.*)\);", text)
    callback = re.fullmatch(r"typedef (.*)\(\*(\w+)\)\((.*)\);", text)
    kind, call = ("callback", callback) if callback else ("function", call)
    if not call:
        raise ValueError("not understood: " + text)
    return Item(kind, call[2], text, blocks, call[1].strip(),
                [parameter(p) for p in split_commas(call[3])])


def declarations(text):
    """The declarations of a piece without blank lines outside of braces."""
    current = ""
    for line in text.split("\n"):
        current += ("\n" if current else "") + line
        code = re.sub(r"/\*.*?\*/", "", current).rstrip()
        if (current.startswith("#") and not current.endswith("\\")) or (
                code.endswith((";", "_DECLS")) and code.count("{") == code.count("}")):
            yield current
            current = ""


def pieces(text):
    """(comment's blocks, declarations) for each run of lines without a gap, or up to the
    next comment."""
    lines, comment, code = text.split("\n"), [], []
    while lines:
        line = lines.pop(0)
        if not line or line.startswith("/*"):
            yield comment, code
            comment, code = [], []
        if line.startswith("/*"):
            told = [line]
            while "*/" not in told[-1]:
                told.append(lines.pop(0))
            comment = blocks_of(comment_lines("\n".join(told)))
        elif line:
            code.append(line)
    yield comment, code


def read(path):
    text = path.read_text()
    head = re.match(r"/\*.*?\*/\n", text, re.S)
    blocks, conventions = [], {}
    for block in blocks_of(comment_lines(head[0])):
        label = re.match(r"(%s): " % "|".join(CONVENTIONS), block.lines[0])
        if block.kind == "text" and label:
            said = block.text[label.end():]
            conventions[label[1]] = said[0].upper() + said[1:]
        else:
            blocks.append(block)
    items = [item_of(declaration, comment) for comment, code in pieces(text[head.end():])
             for declaration in declarations("\n".join(code))]
    title = re.split(r"[:.] ?", blocks[0].text)[0]
    return Header(path, title, blocks, conventions, [item for item in items if item])


@dataclass
class Family:
    key: str
    title: str
    area: str
    headers: list
    examples: list
    see: list


def families():
    """The families in their order, as docs/reference/families.ini has them."""
    table = configparser.ConfigParser(interpolation=None)
    table.read(ROOT / "docs/reference/families.ini")
    return [Family(key, s["title"], s["area"],
                   [read(ROOT / "include" / name) for name in s["headers"].split()],
                   s.get("examples", "").split(), s.get("see", "").split())
            for key, s in table.items() if key != "DEFAULT"]


def parameter_texts():
    """What docs/reference/parameters.ini tells of parameters, by header or for all."""
    table = configparser.ConfigParser(interpolation=None)
    table.optionxform = str
    table.read(ROOT / "docs/reference/parameters.ini")

    def text(header, function, name):
        for section in (function, header.path.stem, "all"):
            if table.has_option(section, name):
                return table[section][name]
        return ""
    return text


def exported():
    names = (ROOT / "src/exports.txt").read_text().split("\n")
    return [line.split()[0] for line in names if line and not line.startswith("#")]
