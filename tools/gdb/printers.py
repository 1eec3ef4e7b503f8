"""What GDB shows for the types of MoToolkit.

GDB loads this file by itself with the library MoBase (docs/debugger.md). It calls nothing in the program, so it serves
core files as well, and looks into standard containers by the printers of the C++ library.
"""

import datetime
import itertools
import re

import gdb
import gdb.printing
import gdb.types

# The charsets that Python reads; the others are shown byte by byte.
CODECS = {
    0: "cp1252", 77: "mac-roman", 128: "cp932", 129: "cp949", 130: "johab", 134: "gbk", 136: "big5", 137: "cp1252",
    161: "cp1253", 162: "cp1254", 163: "cp1258", 177: "cp1255", 178: "cp1256", 186: "cp1257", 204: "cp1251",
    222: "cp874", 238: "cp1250", 250: "utf-8", 251: "utf-16-le", 252: "utf-16-be", 253: "utf-32-le", 254: "utf-32-be",
    951: "big5hkscs", 1200: "utf-16-le", 1201: "utf-16-be", 20127: "ascii", 20866: "koi8-r", 21866: "koi8-u",
    50220: "iso2022-jp", 50225: "iso2022-kr", 51932: "euc-jp", 54936: "gb18030", 65000: "utf-7",
}
CODECS.update({28590 + n: f"iso8859-{n}" for n in range(1, 17) if n != 12})
CURRENT, WIDE = 1, 132

SHOWN_BYTES = 2000  # of a text
SHOWN_PARENTS = 16  # of an element
COUNTED = 1000  # elements, where the number stands nowhere


def charset_name(number):
    if number == CURRENT:
        return "current"
    try:
        return str(gdb.Value(number).cast(gdb.lookup_type("KELD::KELDCharset::Charset"))).rpartition("::")[2]
    except gdb.error:
        return str(number)


def codec(number):
    """The name by which Python knows a charset, None where it does not."""
    if number == CURRENT:
        return gdb.target_charset() if gdb.target_charset() != "ANSI_X3.4-1968" else "utf-8"
    if number == WIDE:
        number = 253 if gdb.lookup_type("wchar_t").sizeof == 4 else 251
    return CODECS.get(number)


def decoded(data, number):
    """The text of bytes in a charset. What is no such text stands as \\xB1."""
    name = codec(number)
    if name is None:
        return "".join(chr(byte) if byte < 0x80 else f"\\x{byte:02X}" for byte in data)
    try:
        return data.decode(name, errors="backslashreplace")
    except (LookupError, UnicodeError):
        return data.decode("ascii", errors="backslashreplace")


def quoted(text, isWhole=True):
    marks = {"\\": "\\\\", '"': '\\"', "\n": "\\n", "\r": "\\r", "\t": "\\t", "\0": "\\0"}
    return '"' + "".join(marks.get(c, c if c.isprintable() else f"\\u{ord(c):04X}") for c in text) + '"' + (
        "" if isWhole else "...")


def has_field(value, name):
    return gdb.types.has_field(value.type.strip_typedefs(), name)


def string_bytes(value, unit=1):
    """The bytes of a std::basic_string, and its length in units; of libstdc++ and of libc++."""
    if has_field(value, "_M_string_length"):
        data, length = value["_M_dataplus"]["_M_p"], int(value["_M_string_length"])
    else:
        data, length = libcxx_string(value)
    count = min(length * unit, SHOWN_BYTES // unit * unit)
    if count == 0:
        return b"", length
    return bytes(gdb.selected_inferior().read_memory(int(data), count)), length


def libcxx_string(value):
    rep = value["__r_"]["__value_"]
    if not has_field(rep, "__l"):
        rep = rep[rep.type.fields()[0]]
    short = rep["__s"]
    if int(short["__is_long_"]):
        return rep["__l"]["__data_"], int(rep["__l"]["__size_"])
    return short["__data_"].address, int(short["__size_"])


def pointer_of(value):
    """What a std::unique_ptr points to: the first pointer in it, however deep its parts lie. None where there is none."""
    if value.type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
        return value
    if value.type.strip_typedefs().code != gdb.TYPE_CODE_STRUCT:
        return None
    for field in value.type.strip_typedefs().fields():
        if hasattr(field, "bitpos"):  # no static member
            found = pointer_of(value[field])
            if found is not None:
                return found
    return None


def text_of(value):
    """A KeldMBString's text, as one would write it, and its charset's number."""
    number = int(value["m_charset"])
    data, length = string_bytes(value["m_text"])
    return quoted(decoded(data, number), len(data) == length), number


class TextPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        text, number = text_of(self.value)
        return f"{text} ({charset_name(number)})"


class WideTextPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        unit = gdb.lookup_type("wchar_t").sizeof
        data, length = string_bytes(self.value["m_text"], unit)
        codec_name = "utf-32-le" if unit == 4 else "utf-16-le"
        return "L" + quoted(data.decode(codec_name, errors="backslashreplace"), len(data) == length * unit)


class ContainerPrinter:
    """Shows the elements that the printer of a standard container gives, one by one: before it is initialised, a
    container may seem to have any number of them."""

    def __init__(self, name, items, hint="array"):
        self.name = name
        self.items = items
        self.hint = hint
        self.inner = gdb.default_visualizer(items) if items is not None else None

    def to_string(self):
        if self.items is None:
            return f"{self.name} of 0"
        if self.inner is None:
            return f"{self.name}, which needs the printers of the C++ library"
        return f"{self.name} of {self.count()}"

    def count(self):
        told = re.search(r"(?:length|with|size=) ?(\d+)", str(self.inner.to_string()))
        if told:
            return told[1]
        count = sum(1 for _ in itertools.islice(self.inner.children(), COUNTED + 1))
        return str(count) if count <= COUNTED else f"more than {COUNTED}"

    def children(self):
        return self.inner.children() if self.inner is not None else iter(())

    def display_hint(self):
        return self.hint


def array_printer(value):
    return ContainerPrinter("KeldArray", value["m_items"])


def list_printer(value):
    pointer = pointer_of(value["m_items"])
    return ContainerPrinter("KeldList", pointer.dereference() if int(pointer) != 0 else None)


def dict_printer(value):
    return ContainerPrinter("KeldDict", value["m_entries"], "map")


class HashPrinter(ContainerPrinter):
    """The list's elements are pairs: their halves become a map's keys and values."""

    def __init__(self, value):
        super().__init__("QzHash", value["m_entries"], "map")

    def children(self):
        for name, entry in super().children():
            yield f"{name}.first", entry["first"]
            yield f"{name}.second", entry["second"]


class TimePrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        seconds = int(self.value["m_seconds"])
        try:
            time = datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=seconds)
            return time.strftime("%Y-%m-%d %H:%M:%S UTC")
        except OverflowError:
            return f"{seconds} s since 1970-01-01 UTC"


class MarkupPrinter:
    """An XML document: where it stands."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        main = int(self.value["m_iPos"])
        parent = int(self.value["m_iPosParent"])
        if main != 0:
            return f"QzMarkup at {self.path(main)}"
        return f"QzMarkup in {self.path(parent)}, before its first element" if parent != 0 else "QzMarkup at its start"

    def children(self):
        pieces = self.pieces()
        child = int(self.value["m_iPosChild"])
        if child != 0:
            yield "child", quoted(self.tag_name(child))
        yield "encoding", charset_name(int(self.value["m_encoding"]))
        error, _ = text_of(self.value["m_strError"])
        if error != '""':
            yield "error", error
        data = self.read(0, min(SHOWN_BYTES, pieces["length"]))
        yield "text", quoted(decoded(data, CURRENT), len(data) == pieces["length"])

    def pieces(self):
        """The two runs of the text: what stands before its gap and what stands behind it."""
        pointer = pointer_of(self.value["m_text"])
        try:
            text = pointer.dereference()
            if has_field(text, "m_front"):
                return self.known_pieces(text)
        except gdb.error:
            pass
        return self.laid_out_pieces(int(pointer))

    @staticmethod
    def known_pieces(text):
        front = text["m_text"]
        return {"front": string_address(front["m_text"]), "frontLength": int(text["m_front"]),
                "tail": int(text["m_tail"]), "length": int(text["m_length"])}

    @staticmethod
    def laid_out_pieces(address):
        """The same without debug information of the library: MarkupText is a KeldMBString, the ints `front`, `length`
        and `room`, a pointer, an int, and the pointer to the tail."""
        string = gdb.lookup_type("KELD::KeldMBString")
        integer = gdb.lookup_type("int")
        word = gdb.lookup_type("char").pointer()

        def aligned(offset):
            return (offset + word.sizeof - 1) // word.sizeof * word.sizeof

        def at(offset, type_):
            return gdb.Value(address + offset).cast(type_.pointer()).dereference()

        numbers = string.sizeof
        tail = aligned(aligned(numbers + 3 * integer.sizeof) + word.sizeof + integer.sizeof)
        return {"front": string_address(at(0, string)["m_text"]), "frontLength": int(at(numbers, integer)),
                "tail": int(at(tail, word)), "length": int(at(numbers + integer.sizeof, integer))}

    def read(self, left, right):
        """The bytes from `left` to before `right`."""
        pieces = self.pieces()
        left, right = max(left, 0), min(right, pieces["length"])
        front = pieces["frontLength"]
        memory = gdb.selected_inferior().read_memory
        data = b""
        if left < min(right, front):
            data = bytes(memory(pieces["front"] + left, min(right, front) - left))
        if max(left, front) < right:
            data += bytes(memory(pieces["tail"] + max(left, front) - front, right - max(left, front)))
        return data

    def element(self, index):
        """Its record: they lie in segments."""
        segments = self.value["m_segments"]
        segment_bits = 16
        segments = segments["_M_impl"]["_M_start"] if has_field(segments, "_M_impl") else segments["__begin_"]
        segment = pointer_of((segments + (index >> segment_bits)).dereference())
        return segment[index & ((1 << segment_bits) - 1)]

    def tag_name(self, index):
        start = int(self.element(index)["nStartL"])
        if start < 0:
            start += self.pieces()["length"]  # behind the last edit offsets are told from the end
        tag = self.read(start + 1, start + 1 + 200)
        end = next((i for i, byte in enumerate(tag) if byte in b" \t\r\n/>"), len(tag))
        return decoded(tag[:end], CURRENT)

    def path(self, index):
        names = []
        while index > 0 and len(names) < SHOWN_PARENTS:
            names.insert(0, self.tag_name(index))
            index = int(self.element(index)["iElemParent"])
        return ("..." if index > 0 else "") + "/" + "/".join(names)


def string_address(value):
    if has_field(value, "_M_dataplus"):
        return int(value["_M_dataplus"]["_M_p"])
    return int(libcxx_string(value)[0])


def printers():
    found = gdb.printing.RegexpCollectionPrettyPrinter("motoolkit")
    found.add_printer("KeldMBString", "^(KELD::KeldMBString|Qzc::QzStringEx)$", TextPrinter)
    found.add_printer("QzStringW", "^Qzc::QzStringW$", WideTextPrinter)
    found.add_printer("KeldArray", "^KELD::KeldArray<.*>$", array_printer)
    found.add_printer("KeldList", "^KELD::KeldList<.*>$", list_printer)
    found.add_printer("KeldDict", "^KELD::KeldDict<.*>$", dict_printer)
    found.add_printer("QzHash", "^Qzc::QzHash<.*>$", HashPrinter)
    found.add_printer("KeldTime", "^KELD::KeldTime$", TimePrinter)
    found.add_printer("QzMarkup", "^Qzc::QzMarkup$", MarkupPrinter)
    return found


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
