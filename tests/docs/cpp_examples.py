#!/usr/bin/env python3
"""cpp_examples.py COMPILER: the examples at the beginning of the C++ headers compile, each
with what tests/docs/cpp_examples.hpp gives it of the reader's own program."""

import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
HELP = ROOT / "tests/docs/cpp_examples.hpp"
WITHOUT = {"owner.hpp", "span.hpp"}  # what the other headers share
FUNCTION = re.compile(r"void \w+\(")


def example(path):
    """The first block of code, as statements; whole functions stand before."""
    lines = re.match(r"(?:///(?!     ).*\n|///\n)*((?:///     .*\n)+)", path.read_text())
    if not lines:
        return None
    code = [line[8:] for line in lines[1].splitlines()]
    code = [re.sub(r"\) \.\.\.", ") {}", line) for line in code if line.strip() != "..."]
    functions = [line for line in code if FUNCTION.match(line)]
    return functions, [line for line in code if not FUNCTION.match(line)]


def program():
    lines = [f'#include "{HELP}"']
    for path in sorted((ROOT / "include/kelcore_hpp").glob("*.hpp")):
        found = example(path)
        if (found is None) != (path.name in WITHOUT):
            sys.exit(f"{path.name}: {'no' if found is None else 'an'} example")
        if found:
            functions, statements = found
            lines += [f"namespace {path.stem}_hpp {{", *functions, f'#line 1 "{path.name}"',
                      "[[maybe_unused]] std::error_code example() {", *statements,
                      "return {};", "}", "}"]
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    run = subprocess.run([sys.argv[1], "-std=c++17", "-Wall", "-Wextra", "-Werror",
                          "-Wno-unused-variable", "-Wno-unused-but-set-variable",
                          f"-I{ROOT}/include", "-fsyntax-only", "-x", "c++", "-"],
                         input=program(), text=True)
    sys.exit(run.returncode)
