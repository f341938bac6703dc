"""Reads the C++ headers for the reference: what is public in them, with its comments.

A comment in front of declarations is about all of them up to the next blank line, as in the
C headers; but constructors, operators and the like, which everybody knows, have one only
when it stands right in front of them. A class without a comment is what the comment of its
header is about."""

import re

COMMENT = re.compile(r" *///(?!<) ?(.*)")
HEAD = re.compile(r"(?:class|struct)(?: \[\[nodiscard\]\])? (\w+(?:<[^>]*>)?)[^;()]*\{$")
# What may do without a comment.
KNOWN = re.compile(r"static_assert|using |friend |class \w+;|struct std::|.*\boperator\b|"
                   r"((constexpr|explicit) )*~?\w+\(")


def code_of(line):
    """The line without comments, strings and characters."""
    line = re.sub(r'"(\\.|[^"])*"|\'(\\.|[^\'])*\'', "0", line)
    return re.sub(r"//.*", "", line).rstrip()


def depth(code):
    return sum(code.count(c) for c in "({[") - sum(code.count(c) for c in ")}]")


def without_template(code):
    """What follows template <...>."""
    code = code.strip()
    while code.startswith("template <"):
        at, angles = len("template <"), 1
        while angles and at < len(code):
            angles += {"<": 1, ">": -1}.get(code[at], 0)
            at += 1
        code = code[at:].strip()
    return code


def declaration(lines, at):
    """The line behind the declaration that begins at `at`, and its class when it is the
    head of one: what is inside comes next."""
    code = ""
    while True:
        code += code_of(lines[at]) + " "
        at += 1
        if depth(code) == 0 and code.strip()[-1:] in (";", "}"):
            return at, None
        head = HEAD.match(without_template(code))
        if head and depth(code) == 1:
            return at, head[1]


def behind(lines, at, end):
    """The first line from `at` on that `end` matches."""
    while not re.match(end, lines[at]):
        at += 1
    return at


def known(lines):
    code = " ".join(code_of(line).strip() for line in lines)
    return KNOWN.match(without_template(code)) is not None


def indent(line):
    return len(line) - len(line.lstrip())


def behind_private(lines, at, margin):
    """As far as the class with that margin reaches, or to what is public in it."""
    return behind(lines, at, r" {%d}};| {%d}public:" % (margin, margin + 1))


def items(text):
    """(comment's lines or None, class or None, declaration's lines) in their order. What
    frames them, namespaces and ends of classes, has a comment of its own, []."""
    lines, at, comment = text.split("\n"), 0, None
    while at < len(lines):
        line = lines[at].strip()
        if COMMENT.match(lines[at]):
            comment = []
            while at < len(lines) and COMMENT.match(lines[at]):
                comment.append(COMMENT.match(lines[at])[1].rstrip())
                at += 1
        elif line.startswith("namespace detail"):
            at = behind(lines, at, r"}  // namespace detail") + 1
        elif line in ("private:", "protected:"):
            at = behind_private(lines, at, indent(lines[at]) - 1)
        elif line.startswith(("namespace ", "}", "public:")):
            yield [], None, [lines[at]]
            at, comment = at + 1, None
        elif not line or line.startswith(("#", "//")):
            at, comment = at + 1, None if not line else comment
        else:
            begin = at
            at, head = declaration(lines, at)
            first = COMMENT.match(lines[begin - 1]) is not None
            yield comment if first or not known(lines[begin:at]) else None, head, lines[begin:at]
            if head:
                comment = None
                if not re.search(r"\bstruct\b", lines[at - 1]):
                    at = behind_private(lines, at, indent(lines[begin]))


def file_comment(text):
    """The lines of the header's own comment."""
    lines = []
    for line in text.split("\n"):
        found = COMMENT.match(line)
        if not found:
            return lines[1:]  # without @file
        lines.append(found[1].rstrip())


def classes(text):
    """The public classes and structures of a header, nested ones apart."""
    return [head for _, head, lines in items(text) if head and not lines[0].startswith(" ")]


def undocumented(text):
    """The declarations that should have a comment and have none."""
    title = " ".join(file_comment(text))
    for comment, head, lines in items(text):
        told = comment is not None or "///<" in lines[0] or known(lines)
        if not told and not (head and f"kel::{head}" in title):
            yield lines[0].strip()
