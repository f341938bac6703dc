#!/usr/bin/env python3
"""check_documents.py DOCUMENTS PREFIX CC CXX: in the installed documents no link leads to
nowhere, and each installed program builds as they say, also as a CMake project."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

documents, prefix = (Path(argument).resolve() for argument in sys.argv[1:3])
c, cxx = sys.argv[3:]
pages = list(documents.rglob("*.md"))
links = 0
for page in pages:
    for found in re.findall(r'\]\(([^)]*)\)|src="([^"]*)"', page.read_text()):
        target = (found[0] or found[1]).split("#")[0]
        if "://" not in target:
            links += 1
            if not (page.parent / target).exists():
                sys.exit(f"{page}: there is no {target}")
if links < 20:
    sys.exit(f"{links} links in {len(pages)} documents")

library = next(prefix.rglob("libkelcore.so")).parent
flags = subprocess.run(["pkg-config", "--cflags", "--libs", "kelcore"], text=True, check=True,
                       env={**os.environ, "PKG_CONFIG_PATH": str(library / "pkgconfig")},
                       stdout=subprocess.PIPE).stdout.split()
flags += ["-I", str(documents / "examples/basics"), f"-Wl,-rpath,{library}"]
programs = [path for path in sorted(documents.rglob("*.c*")) if path.suffix in (".c", ".cpp")]
with tempfile.TemporaryDirectory() as place:
    for path in programs:
        compiler = [c] if path.suffix == ".c" else [cxx, "-std=c++17"]
        if path.stem == "doubling_plugin":
            compiler += ["-shared", "-fPIC"]
        subprocess.run([*compiler, str(path), *flags, "-o", f"{place}/{path.stem}"], check=True)
    told = subprocess.run([f"{place}/lists"], capture_output=True, text=True, check=True).stdout
    if not told.startswith("news sport film"):
        sys.exit(f"lists printed\n{told}")
    # The project that the guide shows, with the program that it shows.
    snippets = documents / "docs/guide/snippets"
    shutil.copy(snippets / "find_package.cmake", f"{place}/CMakeLists.txt")
    shutil.copy(snippets / "hello.c", place)
    for command in (["cmake", "-S", place, "-B", f"{place}/build", f"-DCMAKE_C_COMPILER={c}",
                     f"-DCMAKE_PREFIX_PATH={prefix}"],
                    ["cmake", "--build", f"{place}/build"]):
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    told = subprocess.run([f"{place}/build/hello"], capture_output=True, text=True,
                          check=True).stdout
    if told != "hello 1\n":
        sys.exit(f"hello printed\n{told}")
if len(programs) < 30:
    sys.exit(f"{len(programs)} programs")
print(f"{links} links, {len(programs)} programs")
