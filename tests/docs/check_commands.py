#!/usr/bin/env python3
"""check_commands.py SOURCE_DIR BUILD_DIR: the commands that the guide marks with
"<!-- run -->" do what they say, in a place that looks like a clone after the build."""

import re
import subprocess
import sys
import tempfile
from pathlib import Path

source, build = (Path(argument).resolve() for argument in sys.argv[1:])
MARKED = re.compile(r"<!-- run -->\n((?:    .*\n)+)")
ran = 0
for page in sorted((source / "docs/guide").glob("*.md")):
    for commands in MARKED.findall(page.read_text()):
        with tempfile.TemporaryDirectory() as place:
            for name in ("include", "docs", "examples"):
                (Path(place) / name).symlink_to(source / name)
            (Path(place) / "build").symlink_to(build)
            run = subprocess.run(["sh", "-ec", commands], cwd=place, capture_output=True,
                                 text=True)
        ran += 1
        if run.returncode or not run.stdout.startswith("hello"):
            sys.exit(f"{page.name}:\n{commands}{run.returncode}\n{run.stdout}{run.stderr}")
if not ran:
    sys.exit("nothing to run")
