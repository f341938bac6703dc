#!/usr/bin/env python3
"""check_reference.py DOXYGEN DOXYFILE TAGFILE: the reference is written without a word
of complaint, every exported function has its entry in it, and so have its parameters, its
result, and what its family promises about threads, blocking and null. So has every class of
the C++ headers, and every public declaration in it that needs a word has one."""

import configparser
import re
import subprocess
import sys
import xml.etree.ElementTree as tree
from pathlib import Path

sys.dont_write_bytecode = True
for place in ("docs/reference", "docs/doxygen"):
    sys.path.insert(0, str(Path(__file__).resolve().parents[2] / place))
import cpp  # noqa: E402
import headers  # noqa: E402


def cpp_complaints(compounds):
    paths = sorted((headers.ROOT / "include/kelcore_hpp").glob("*.hpp"))
    if not paths:
        yield "no C++ headers"
    for path in paths:
        text = path.read_text()
        if path.name not in compounds:
            yield f"{path.name}: not in the reference"
        for name in cpp.classes(text):
            if f"kel::{name}".replace(" ", "") not in compounds:
                yield f"{path.name}: {name}: not in the reference"
        for declaration in cpp.undocumented(text):
            yield f"{path.name}: no comment: {declaration}"


# The first words of a comment that tells what there is, and not what is done.
THING = re.compile(r"(A|An|The|All|[01] (if|when)) ")
RELEASING = re.compile(r"KEL\w*(Destroy|Close|Delete|_delete|Free|UnLoad)")


def silent_on_result(header, item):
    """What a comment keeps from who gets the result of a function: what it is, whether it
    can be null, who releases it."""
    if item.kind not in ("function", "callback") or item.result in ("void", ""):
        return
    told = " ".join(block.text for block in item.blocks)
    returned = re.search(r"\b([Rr]eturns?|results are) ", told)
    if not returned and not THING.match(told):
        yield f"{item.name}: nothing about the result"
    if item.kind == "callback" or not item.result.endswith("*"):
        return
    if not re.search(r"\b[Nn]ull\b", told):
        yield f"{item.name}: nothing about a null result"
    declaration = re.search(r"^[^;*/]*\*%s\(" % item.name, header.path.read_text(), re.M)
    if "KEL_NODISCARD" in declaration[0] and not RELEASING.search(told):
        yield f"{item.name}: nothing about who releases it"


def complaints(doxygen, doxyfile, tagfile):
    run = subprocess.run([doxygen, doxyfile], capture_output=True, text=True)
    if run.returncode or run.stdout or run.stderr:
        yield f"{run.stdout}{run.stderr}doxygen: {run.returncode}"
        return
    compounds = {compound.find("name").text.replace(" ", ""): compound
                 for compound in tree.parse(tagfile).iter("compound")}
    yield from cpp_complaints(compounds)
    entries = {member.find("name").text for name, compound in compounds.items()
               if name.endswith(".h") for member in compound.iter("member")
               if member.get("kind") == "function"}
    exported = set(headers.exported())
    for name in sorted(exported ^ entries):
        yield f"{name}: {'not in the reference' if name in exported else 'not exported'}"

    for family in headers.families():
        for header in family.headers:
            for item in header.items:
                yield from silent_on_result(header, item)

    table = configparser.ConfigParser(interpolation=None)
    table.optionxform = str
    table.read(headers.ROOT / "docs/reference/parameters.ini")
    unused = {(section, name) for section in table.sections() for name in table[section]}
    for family in headers.families():
        if not family.examples:
            yield f"families.ini: no example of {family.key}"
        for header in family.headers:
            missing = set(headers.CONVENTIONS) - set(header.conventions)
            if missing and header.functions():
                yield f"{header.path.name}: nothing about {missing}"
            for item in header.items:
                for parameter in item.parameters:
                    told = [(section, parameter.name)
                            for section in (item.name, header.path.stem, "all")
                            if table.has_option(section, parameter.name)]
                    if told:
                        unused.discard(told[0])
                    elif parameter.name:
                        yield f"{item.name}: nothing about {parameter.name}"
    for section, name in sorted(unused):
        yield f"parameters.ini: nobody has [{section}] {name}"


if __name__ == "__main__":
    found = list(complaints(*sys.argv[1:]))
    print("\n".join(found))
    sys.exit(1 if found else 0)
