#!/usr/bin/env python3
"""check_figures.py SOURCE_DIR BUILD_DIR: docs/reliability.md tells no more tests, cases and
assertions than there are, and not many fewer."""

import os
import re
import subprocess
import sys
from pathlib import Path

source, build = (Path(argument).resolve() for argument in sys.argv[1:])
told = (source / "docs/reliability.md").read_text()


def printed(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def entries():
    return int(re.search(r"Total Tests: (\d+)", printed("ctest", "--test-dir", build, "-N"))[1])


def cases():
    programs = [path for path in (build / "tests").rglob("*")
                if path.is_file() and os.access(path, os.X_OK)
                and (path.name.endswith("_test") or path.name.startswith("cpp_"))]
    return sum(len(re.findall(r"^  ", printed(path, "--gtest_list_tests"), re.M))
               for path in programs)


def assertions():
    texts = (path.read_text() for path in (source / "tests").rglob("*")
             if path.suffix in (".cpp", ".h", ".c", ".inc"))
    return sum(len(re.findall(r"\b(?:EXPECT|ASSERT)_[A-Z_]+\(", text)) for text in texts)


FIGURES = {r"([\d,]+) CTest entries": entries, r"([\d,]+) GoogleTest cases": cases,
           r"\| assertions \| ([\d,]+)": assertions}
wrong = 0
for pattern, count in FIGURES.items():
    told_figure = int(re.search(pattern, told)[1].replace(",", ""))
    figure = count()
    good = told_figure <= figure <= told_figure * 1.05
    wrong += not good
    print(f"{count.__name__}: {figure}, told {told_figure}{'' if good else ': WRONG'}")
sys.exit(1 if wrong else 0)
