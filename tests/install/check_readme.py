#!/usr/bin/env python3
"""check_readme.py README PREFIX [ARM64_PREFIX]: the README's programs, built by its own
commands, say what it says. What its installation commands would lay down is in the
prefixes."""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

readme, *prefixes = (Path(argument).resolve() for argument in sys.argv[1:])
text = readme.read_text()
section = text[text.index("\n## Your own program\n"):text.index("\n## Use it in your project\n")]
PROGRAM = re.compile(r"`(hello\.\w+)`:.*?```\w+\n(.*?)```\n", re.S)
COMMANDS = re.compile(r"(?:^    .*\n)+", re.M)
INSTALL = re.compile(r"^ *scripts/install\.sh( --arm64 sysroot)? *(#.*)?$")

with tempfile.TemporaryDirectory() as place:
    for name, program in PROGRAM.findall(section):
        (Path(place) / name).write_text(program)
    environment = {**os.environ,
                   "PKG_CONFIG_PATH": str(next(prefixes[0].rglob("pkgconfig"))),
                   "LD_LIBRARY_PATH": str(next(prefixes[0].rglob("libkelcore.so")).parent)}
    if len(prefixes) > 1:
        (Path(place) / "sysroot").symlink_to(prefixes[1])
    blocks = COMMANDS.findall(PROGRAM.sub("", section))
    if len(blocks) != 3:
        sys.exit(f"{len(blocks)} blocks of commands, not one for C, C++ and arm64")
    for commands in blocks:
        first, *rest = commands.splitlines()
        installs = INSTALL.match(first)
        if not installs or len(rest) >= 4:
            sys.exit(f"not an installation and at most three more commands:\n{commands}")
        if installs[1]:
            if len(prefixes) < 2:
                print("skipped: no compiler or emulator for arm64")
                continue
            # The emulator's programs have their libraries, and it has its own.
            del environment["LD_LIBRARY_PATH"]
        run = subprocess.run(["sh", "-ec", "\n".join(rest)], cwd=place, env=environment,
                             capture_output=True, text=True)
        if run.returncode or run.stdout != "hello 1\n":
            sys.exit(f"{commands}{run.returncode}\n{run.stdout}{run.stderr}")
        print("as told:", rest[0].strip())
