"""Shows libTnRobotKernel's objects in gdb: smart pointers, values, groups, surfaces, memory blocks.

With the package libtnrobotkernel-dev gdb loads it by itself. From another place, in gdb or in ~/.gdbinit:

    source /usr/local/share/TnRobotKernel/gdb/tnrobot_gdb.py

Then "print", "info locals" and every front end that asks gdb show for example

    (gdb) print group
    $1 = TnRobotPtr<ITnRobotDataValueGroup> = {* = group of 2 values, 1 reference = {
        ["count"] = DATA_TYPE_INT 42, 2 references, ["name"] = DATA_TYPE_STRING "arm", 2 references}}

"print *pValue" does the same for a raw pointer to an interface; "print/r" shows what gdb shows
without the printers. The references of a pooled object include its pool's own one.

What an object holds is known to gdb only where the library has debug information (its debug build).
Without it, and without that of whole classes in the program, address, class and number of references
are shown:

    $1 = TnRobotPtr<ITnRobotDataValueGroup> to CTnRobotDataValueGroup, 1 reference = {get() = 0x55555556f2c0}

Nothing is ever
called in the program that is being debugged, and memory that cannot be read is said to be so:
core files and broken objects can be looked at too.
"""

import re
import struct

import gdb
import gdb.printing

# Bytes of a block that are shown, and entries of a group when "print elements" is unlimited.
SHOWN_BYTES = 16
SHOWN_CHARACTERS = 4096

# More than the name of any class has.
LONGEST_NAME = 1024

# Type of a value: name, format of its bytes for struct (None for texts and blocks).
VALUE_TYPES = {
    0: ("DATA_TYPE_NONE", None),
    1: ("DATA_TYPE_BOOL", "<?"),
    2: ("DATA_TYPE_SHORT", "<h"),
    3: ("DATA_TYPE_USHORT", "<H"),
    4: ("DATA_TYPE_INT", "<i"),
    5: ("DATA_TYPE_UINT", "<I"),
    6: ("DATA_TYPE_FLOAT", "<f"),
    7: ("DATA_TYPE_DOUBLE", "<d"),
    8: ("DATA_TYPE_LONGLONG", "<q"),
    9: ("DATA_TYPE_ULONGLONG", "<Q"),
    10: ("DATA_TYPE_STRING", None),
    11: ("DATA_TYPE_BLOCK", None),
    12: ("DATA_TYPE_CHAR", "<c"),
    13: ("DATA_TYPE_BYTE", "<B"),
}


def read(address, count):
    """Bytes of the program, or None where they cannot be read."""
    try:
        return bytes(gdb.selected_inferior().read_memory(int(address), int(count)))
    except (gdb.error, OverflowError, ValueError, MemoryError):
        return None


def character_limit():
    """How much of a text "print elements" asks for."""
    limit = gdb.parameter("print elements")
    return min(limit, SHOWN_CHARACTERS) if limit else SHOWN_CHARACTERS


def first_bytes(address, count):
    """The first bytes of a piece of memory, after a colon; nothing when there are none."""
    if address == 0 or count == 0:
        return ""
    data = read(address, min(count, SHOWN_BYTES))
    if data is None:
        return ": <memory cannot be read>"
    return ": " + " ".join("%02x" % byte for byte in data) + (" ..." if count > SHOWN_BYTES else "")


def contents(address, count):
    """The size of a piece of memory and its first bytes."""
    return plural(count, "byte") + first_bytes(address, count)


def quoted(data):
    """Bytes as a text in double quotes, everything but printable ASCII and UTF-8 escaped."""
    text = data.decode("utf-8", "backslashreplace")
    escapes = {'"': '\\"', "\\": "\\\\", "\n": "\\n", "\r": "\\r", "\t": "\\t"}
    return '"' + "".join(escapes.get(c, c if c.isprintable() else "\\x%02x" % ord(c)) for c in text) + '"'


def plural(count, noun):
    """A number and its noun."""
    return "%d %s%s" % (count, noun, "" if count == 1 else "s")


def most_derived(value):
    """The whole object that a base of it was found in."""
    return value.cast(value.dynamic_type)


def pointer_at(address):
    """The address that is stored at an address, or None."""
    data = read(address, 8)
    return None if data is None else struct.unpack("<Q", data)[0]


def text_at(address):
    """The characters of a class's name up to a zero, or None where there are none."""
    text = b""
    while len(text) < LONGEST_NAME:
        piece = read(address + len(text), 16)
        if piece is None:
            return None
        text += piece
        if b"\0" in piece:
            text = text.split(b"\0")[0]
            return text.decode("ascii") if re.match(rb"\*?\w+$", text) else None
    return None


def dynamic_class(address):
    """The class of the object at an address, as its own run-time type information names it, or None.

    That information is in the program's memory: it needs no symbols, and no type that gdb knows.
    """
    table = pointer_at(address)
    info = pointer_at(table - 8) if table else None
    name = pointer_at(info + 8) if info else None
    mangled = text_at(name) if name else None
    if mangled is None:
        return None
    # A star marks names that are compared by their address only.
    text = gdb.execute("demangle -l c++ -- _ZTS" + mangled.lstrip("*"), to_string=True)
    match = re.match(r"typeinfo name for (.+)", text)
    return match.group(1) if match else None


def class_name(value):
    """The object's class, or the one it was declared as where it is no object."""
    return dynamic_class(int(value.address)) or str(value.type.strip_typedefs().unqualified())


def counted_offset(kind):
    """Where a type has its ITnUnknown; None when it has none, or none that gdb knows of."""
    kind = kind.strip_typedefs().unqualified()
    name = kind.tag or ""
    fields = kind.fields()
    # An interface that is only declared: all begin with it but those of saving and of parents.
    if name == "ITnUnknown" or (not fields and re.match("ITn(?!.*(Serialize|Parent)$)[A-Z]", name)):
        return 0
    for base in (field for field in fields if field.is_base_class):
        offset = counted_offset(base.type)
        if offset is not None:
            return base.bitpos // 8 + offset
    return None


def references(value):
    """How many references an object has. They are counted behind the pointer to its operations."""
    offset = counted_offset(value.type)
    if offset is None:
        return "references unknown"
    data = read(int(value.address) + offset + 8, 4)
    if data is None:
        raise gdb.error("no memory")
    return plural(struct.unpack("<i", data)[0], "reference")


def has_fields(value, *names):
    """Whether the debug information has these members."""
    return all(name in {f.name for f in value.type.strip_typedefs().fields()} for name in names)


class Printer:
    """One object: describe() for what it is, entries() for what it holds."""

    needed = ()

    def __init__(self, value):
        self.value = value
        try:
            self.value = most_derived(value)
        except gdb.error:
            pass  # a broken object is shown as what it was declared as

    def to_string(self):
        """What gdb shows in front of the members."""
        try:
            if has_fields(self.value, *self.needed):
                return "%s, %s" % (self.describe(), references(self.value))
            return "%s, %s" % (class_name(self.value), references(self.value))
        except gdb.error:
            return "<memory cannot be read>"


class ValuePrinter(Printer):
    """A data value."""

    needed = ("m_eType", "m_pData", "m_nLength")

    def describe(self):
        """Its type and content."""
        number = int(self.value["m_eType"])
        name, layout = VALUE_TYPES.get(number, ("type %d" % number, None))
        data, length = int(self.value["m_pData"]), int(self.value["m_nLength"])
        if name == "DATA_TYPE_BLOCK":
            return "%s of %s" % (name, contents(data, length))
        if data == 0:
            return name
        if layout:
            return "%s %s" % (name, self.scalar(layout, data))
        return "%s %s" % (name, self.text(data, length)) if name == "DATA_TYPE_STRING" else name

    @staticmethod
    def scalar(layout, address):
        """A number, character or truth value."""
        data = read(address, struct.calcsize(layout))
        if data is None:
            return "<memory cannot be read>"
        number = struct.unpack(layout, data)[0]
        if isinstance(number, bytes):
            return "'%s'" % quoted(number)[1:-1]
        if isinstance(number, bool):
            return "true" if number else "false"
        return "%.9g" % number if layout == "<f" else repr(number)

    @staticmethod
    def text(address, length):
        """A text up to its terminating zero."""
        limit = character_limit()
        data = read(address, min(length, limit + 1))
        if data is None:
            return "<memory cannot be read>"
        data = data.split(b"\0")[0]
        return quoted(data[:limit]) + ("..." if len(data) > limit else "")


class GroupPrinter(Printer):
    """A value group; its members are its entries, in the order of their names."""

    needed = ("m_values",)

    def row(self):
        """Where the entries begin and end."""
        row = self.value["m_values"]["m_entries"]["_M_impl"]
        return row["_M_start"], row["_M_finish"]

    def describe(self):
        """How many entries it has."""
        first, end = self.row()
        return "group of " + plural(int(end - first), "value")

    # A group may be broken: what can be read is shown.
    def items(self):
        """Names and values as far as they can be read."""
        entry, end = self.row()
        try:
            while entry < end:
                yield bytes_of_string(entry["m_strName"]), entry["m_value"]["m_p"]
                entry += 1
        except gdb.error:
            pass

    def children(self):
        """The entries: name and value."""
        if not has_fields(self.value, *self.needed):
            return
        for name, pointer in sorted(self.items(), key=lambda entry: entry[0]):
            yield "[%s]" % quoted(name), pointer.dereference() if int(pointer) else pointer


def bytes_of_string(text):
    """The bytes of a std::string."""
    return read(text["_M_dataplus"]["_M_p"], min(int(text["_M_string_length"]), character_limit())) or b""


class SurfacePrinter(Printer):
    """A surface."""

    needed = ("m_desc", "m_block", "m_nTimeStamp")

    def describe(self):
        """Its geometry, format, origin and time stamp."""
        desc = self.value["m_desc"]
        text = "surface %d x %d, pitch %d, %s, origin (%d, %d), time stamp %d" % (
            int(desc["nWidth"]), int(desc["nHeight"]), int(desc["nPitch"]), desc["eImageType"],
            int(desc["oriPos"]["x"]), int(desc["oriPos"]["y"]), int(self.value["m_nTimeStamp"]))
        return text + ("" if int(self.value["m_block"]["m_p"]) else ", no pixels")

    def children(self):
        """The block with the pixels."""
        if has_fields(self.value, *self.needed) and int(self.value["m_block"]["m_p"]):
            yield "pixels", self.value["m_block"]["m_p"].dereference()


class BlockPrinter(Printer):
    """A memory block of a pool, or a view of somebody else's memory."""

    needed = ("m_pData",)

    def describe(self):
        """Its size and first bytes."""
        data = int(self.value["m_pData"])
        if has_fields(self.value, "m_nUsedSize", "m_nCapacity"):
            used, capacity = int(self.value["m_nUsedSize"]), int(self.value["m_nCapacity"])
            return "block of %s, capacity %d%s" % (plural(used, "byte"), capacity, first_bytes(data, used))
        if has_fields(self.value, "m_nSize"):
            return "view of " + contents(data, int(self.value["m_nSize"]))
        return class_name(self.value)


class PointerPrinter:
    """TnRobotPtr: empty, or the object it holds; of one that cannot be shown its class and address."""

    def __init__(self, value):
        self.value = value

    def object(self):
        """The object, or None."""
        pointer = self.value["m_p"]
        return pointer.dereference() if int(pointer) else None

    @staticmethod
    def is_shown(held):
        """Whether a printer can say what the object holds."""
        printer = object_printer(held)
        return printer is not None and has_fields(printer(held).value, *printer.needed)

    def to_string(self):
        """The pointer's own type, and the object's class where nothing else tells it."""
        name = "TnRobotPtr<%s>" % self.value.type.strip_typedefs().template_argument(0)
        held = self.object()
        if held is None:
            return name + " (empty)"
        if self.is_shown(held):
            return name
        try:
            return "%s to %s, %s" % (name, class_name(held), references(held))
        except gdb.error:
            return name

    def children(self):
        """The object or its address."""
        held = self.object()
        if held is None:
            return
        if self.is_shown(held):
            yield "*", held
        else:
            yield "get()", self.value["m_p"]


PRINTERS = (
    (re.compile(r"^[IC]TnRobotDataValue$"), ValuePrinter),
    (re.compile(r"^[IC]TnRobotDataValueGroup$"), GroupPrinter),
    (re.compile(r"^[IC]TnRobotSurface$"), SurfacePrinter),
    (re.compile(r"^(ITnRobotMemoryBlock|CTnRobotMemoryBlock|CTnRobotProtocolMemBlock)$"), BlockPrinter),
    (re.compile(r"^TnRobotPtr<.*>$"), PointerPrinter),
)


def object_printer(value):
    """The printer class of a value's type, or None."""
    name = value.type.strip_typedefs().unqualified().tag
    return next((printer for pattern, printer in PRINTERS if name and pattern.match(name)), None)


class TnRobotPrinters(gdb.printing.PrettyPrinter):
    """All of the above, for gdb's "info pretty-printer"."""

    def __call__(self, value):
        printer = object_printer(value)
        return printer(value) if printer is not None else None


gdb.printing.register_pretty_printer(None, TnRobotPrinters("libTnRobotKernel"), replace=True)
