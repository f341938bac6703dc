"""Parts of tested programs, as documents show them: what stands in a file between
"/* --- NAME --- */" and "/* --- */". A part may be in several pieces."""

import re
import textwrap


def part(path, name):
    pieces = re.findall(r"^ *[/*]+ --- %s --- \*/\n(.*?)^ *[/*]+ --- \*/\n" % re.escape(name),
                        path.read_text(), re.S | re.M)
    if not pieces:
        raise ValueError(f"{path}: no part {name}")
    return "".join(textwrap.dedent(piece) for piece in pieces)
