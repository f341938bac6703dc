"""Shows the library's containers in gdb as what they hold.

    (gdb) print queue
    $1 = queue "greetings", 2 of 8 = {[0] = 0x4052a0 number 1, [1] = 0x4052c0 number 2}

print/r shows the bare pointer. Loaded by itself with libkelcore.so, where gdb trusts the
place (add-auto-load-safe-path); for a program with the static library: source
kelcore_gdb.py. What is inside a handle is known only where the library has debug
information. All memory is the program's, which may have damaged it: nothing is trusted.
"""

import gdb
import gdb.printing

MOST_BYTES = 16  # of a buffer, shown


class Damaged(Exception):
    pass


def number(value):
    return int(value)


def address(pointer):
    return f"{number(pointer):#x}"


def text(pointer):
    """A C string of the program, quoted; what of it can be read."""
    if number(pointer) == 0:
        return "(null)"
    try:
        # A name is short; a length keeps a lost terminator from being searched for.
        return '"' + pointer.string(errors="replace").replace('"', '\\"')[:200] + '"'
    except gdb.MemoryError:
        return f"{address(pointer)} (unreadable)"


def read_bytes(start, count):
    if count == 0:
        return b""
    try:
        return bytes(gdb.selected_inferior().read_memory(start, count))
    except gdb.MemoryError as error:
        raise Damaged(f"its bytes at {start:#x} are unreadable") from error


def shown_bytes(head, total):
    if total == 0:
        return ""
    return ": " + head.hex(" ") + (" ..." if total > len(head) else "")


class Printer:
    """One handle. `record` is the dereferenced structure."""

    def __init__(self, record):
        self.record = record

    def __getitem__(self, field):
        return self.record[field]

    def count(self, field):
        return number(self.record[field])

    def to_string(self):
        try:
            return self.title()
        except (Damaged, gdb.MemoryError) as error:
            return f"{self.name} (damaged: {error})"

    def children(self):
        try:
            yield from self.elements()
        except (Damaged, gdb.MemoryError) as error:
            yield "(damaged)", str(error)

    def elements(self):
        return iter(())


class Elements(Printer):
    def elements(self):
        for index, element in enumerate(self.values()):
            yield f"[{index}]", element


class List(Elements):
    name = "list"

    def title(self):
        return f"list of {self.count('count')}"

    def nodes(self):
        """Follows as many links as the count says, and looks back at each."""
        node, before = self["head"], 0
        for index in range(self.count("count")):
            if number(node) == 0:
                raise Damaged(f"ends after {index} of {self.count('count')} nodes")
            if number(node["prev"]) != before:
                raise Damaged(f"node {index} at {address(node)} does not lead back")
            yield node
            before, node = number(node), node["next"]

    def values(self):
        for node in self.nodes():
            yield node["data"]


class LockedList(List):
    name = "locked list"

    def title(self):
        lock = "" if number(self["lock"]) else ", without a lock"
        return f"locked list of {self.count('count')}{lock}"


class Queue(Elements):
    name = "queue"

    def title(self):
        parts = [f"queue {text(self['name'])}", str(self.count("count"))]
        parts[1] += f" of {self.count('maxnode')}" if self.count("maxnode") else ", unbounded"
        if self.count("waiting"):
            parts.append("somebody waits")
        if self.count("release"):
            parts.append("released")
        return ", ".join(parts)

    def values(self):
        for entry in self.bounded() if self.count("maxnode") else self.unbounded():
            yield f"{address(entry['data'])} number {number(entry['param'])}"

    def bounded(self):
        if number(self["busy_nodes"]) == 0:
            return
        pointer = self["entries"].type
        for node in List(self["busy_nodes"].dereference()).nodes():
            yield node["data"].cast(pointer)

    def unbounded(self):
        # The count tells the end: a link behind it may lead to a freed entry.
        entry = self["head"]
        for index in range(self.count("count")):
            if number(entry) == 0:
                raise Damaged(f"ends after {index} of {self.count('count')} entries")
            yield entry
            entry = entry["next"]


class HashTable(Printer):
    name = "hash table"

    def title(self):
        kind = "expandable " if self.count("expandable") else ""
        return f"{kind}hash table, {self.count('count')} of {self.count('size')} slots"

    def display_hint(self):
        return "map"

    def elements(self):
        table, found = self["table"], 0
        for index in range(self.count("size")):
            slot = (table + index).dereference()
            if number(slot["used"]):
                found += 1
                yield f"key {index}", text(slot["key"])
                yield f"value {index}", slot["value"]
        if found != self.count("count"):
            yield "(damaged)", "count"
            yield "used", f"{found} slots"


class Ring(Printer):
    name = "ring"

    def title(self):
        size, unread, start = self.count("size"), self.count("len"), self.count("rd")
        # The buffer is twice as long as what it holds.
        if unread > size or start + unread > 2 * size:
            raise Damaged(f"{unread} bytes at {start} of {size}")
        head = read_bytes(number(self["buf"]) + start, min(unread, MOST_BYTES))
        return f"ring, {unread} of {size} bytes{shown_bytes(head, unread)}"


class Circular(Printer):
    name = "circular buffer"

    def title(self):
        size, fill, start = self.count("size"), self.count("fill"), self.count("rd")
        if fill > size or start > size:
            raise Damaged(f"{fill} bytes at {start} of {size}")
        most = min(fill, MOST_BYTES)
        first = min(most, size - start)
        area = number(self["buf"])
        head = read_bytes(area + start, first) + read_bytes(area, most - first)
        return f"circular buffer, {fill} of {size} bytes{shown_bytes(head, fill)}"


class RegionHeap(Elements):
    name = "region heap"

    def title(self):
        return f"region heap, {self.count('free')} of {self.count('total')} bytes free"

    def values(self):
        first, end = number(self["start"]), number(self["end"])
        pointer = self["cursor"].type
        header_bytes = pointer.target().sizeof
        block, before = self["start"].cast(pointer), 0
        # The last header leads to the first one, after a reset to the end.
        while not (before and number(block) in (first, end)):
            place = number(block)
            if not first <= place <= end - header_bytes:
                raise Damaged(f"the header at {place:#x} lies outside")
            for field in ("size", "prev", "next", "allocated"):
                if number(block[field]) != number(block["copy_" + field]):
                    raise Damaged(f"the header at {place:#x} was written over ({field})")
            if place <= before:
                raise Damaged(f"the header at {place:#x} leads back")
            used = number(block["allocated"])
            state = f"used {used}" if used else "free"
            yield f"{place + header_bytes:#x} {state}, {number(block['size'])} in all"
            before, block = place, block["next"]


class MediaPool(Printer):
    name = "media pool"

    def title(self):
        shared = self["shared"]
        return (
            f"media pool handle, stream {self.count('index')}, "
            f"{number(shared['filled'])} of {self.count('number')} frames held, "
            f"{self.unread()} unread here, {number(shared['references'])} handles"
        )

    def unread(self):
        frames = self.count("number")
        write, read = number(self["shared"]["write_index"]), self.count("read_index")
        if frames == 0 or write >= frames or read >= frames:
            raise Damaged(f"writes at {write}, reads at {read} of {frames}")
        return (write - read) % frames

    def elements(self):
        index = self.count("read_index")
        for _ in range(self.unread()):
            node = self["nodes"] + index
            yield f"[{index}]", (
                f"{address(node['data'])} size {number(node['size'])}, "
                f"time {number(node['time_stamp'])}, {number(node['readers'])} readers"
            )
            index = (index + 1) % self.count("number")


PRINTERS = {
    "KEL_NLIST": List,
    "KEL_LIST": LockedList,
    "KEL_QUEUE": Queue,
    "KEL_HASHMAP": HashTable,
    "KEL_RING": Ring,
    "KEL_CIRCULAR": Circular,
    "KEL_VMEM": RegionHeap,
    "KEL_BUF": MediaPool,
}


class Note:
    """Stands in for a handle that cannot be looked into."""

    def __init__(self, note):
        self.note = note

    def to_string(self):
        return self.note


def known_structure(name):
    """The structure's full type: the program itself may know its name only."""
    for candidate in (f"struct {name}", name):
        try:
            found = gdb.lookup_type(candidate).strip_typedefs()
            if found.code == gdb.TYPE_CODE_STRUCT and found.fields():
                return found
        except gdb.error:
            pass
    return None


class Handles(gdb.printing.PrettyPrinter):
    """Structures and pointers to them: programs hold pointers."""

    def __init__(self):
        super().__init__("kelcore", [gdb.printing.SubPrettyPrinter(name) for name in PRINTERS])

    def __call__(self, value):
        plain = value.type.strip_typedefs().unqualified()
        pointer = plain.code == gdb.TYPE_CODE_PTR
        structure = plain.target().strip_typedefs().unqualified() if pointer else plain
        kind = PRINTERS.get(structure.tag or structure.name)
        if kind is None or structure.code != gdb.TYPE_CODE_STRUCT:
            return None
        name = structure.tag or structure.name
        if not all(sub.enabled for sub in self.subprinters if sub.name == name):
            return None
        if pointer and number(value) == 0:
            return Note("null")
        full = known_structure(name)
        if full is None:
            return Note(
                f"{address(value)} {kind.name} (libkelcore.so has no debug information)"
                if pointer
                else f"{kind.name} (libkelcore.so has no debug information)"
            )
        if not pointer:
            return kind(value)
        record = value.cast(full.pointer()).dereference()
        try:
            record.fetch_lazy()
        except gdb.MemoryError:
            return Note(f"{address(value)} {kind.name} (unreadable)")
        return kind(record)


gdb.printing.register_pretty_printer(gdb.current_objfile(), Handles(), replace=True)
