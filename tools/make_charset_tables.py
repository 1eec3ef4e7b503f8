#!/usr/bin/env python3
"""Makes singlebytetables.h and big5hkscstable.h in src/platform/win32/iconv: charsets that Windows has no page for, as the
GNU C library of this machine has them. The names are those of src/base/charsetnames.h."""

import ctypes
import pathlib
import re
import struct
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAMES = ROOT / "src/base/charsetnames.h"
TARGET = ROOT / "src/platform/win32/iconv/singlebytetables.h"
BIG5_HKSCS_TARGET = ROOT / "src/platform/win32/iconv/big5hkscstable.h"

# Those that the system converts, or that have code of their own. Its ISO-8859-7 and -8 are older than the standards', and
# its KOI8-U is another.
ELSEWHERE = {
    "US-ASCII", "WINDOWS-1250", "WINDOWS-1251", "WINDOWS-1252", "WINDOWS-1253", "WINDOWS-1254", "WINDOWS-1255",
    "WINDOWS-1256", "WINDOWS-1257", "WINDOWS-1258", "WINDOWS-874", "CP874", "MACINTOSH", "KOI8-R", "IBM037",
    "IBM500", "CP875", "IBM1026", "IBM437", "CP737", "CP775", "IBM850", "IBM852", "IBM855", "IBM857", "IBM860",
    "IBM861", "IBM862", "IBM863", "IBM864", "IBM865", "IBM866", "IBM869", "MAC-CYRILLIC", "MAC-UK",
    "MAC-CENTRALEUROPE", "MAC-IS"} | {f"ISO-8859-{number}" for number in (1, 2, 3, 4, 5, 6, 9, 13, 15)}
# Of one byte each, but not alone: what follows a byte may be composed with it. The library does that itself for the
# one with the tones of Vietnam.
COMPOSED = {"TSCII"}
TONED = "TCVN5712-1"

LATIN = list(range(256))
NO_CHARACTER = 0xFFFF


class Iconv:
    library = ctypes.CDLL("libc.so.6", use_errno=True)
    library.iconv_open.restype = ctypes.c_void_p
    library.iconv.restype = ctypes.c_size_t
    failed = ctypes.c_size_t(-1).value

    def __init__(self, to, source):
        self.handle = ctypes.c_void_p(self.library.iconv_open(to.encode(), source.encode()))
        self.is_open = self.handle.value not in (None, self.failed)

    def __call__(self, text):
        """None for what is no text, or has no such characters."""
        source, room = ctypes.create_string_buffer(text, len(text)), ctypes.create_string_buffer(64)
        at, out = ctypes.c_void_p(ctypes.addressof(source)), ctypes.c_void_p(ctypes.addressof(room))
        left, free = ctypes.c_size_t(len(text)), ctypes.c_size_t(64)
        arguments = [ctypes.byref(argument) for argument in (at, left, out, free)]
        self.library.iconv(self.handle, None, None, None, None)
        if self.library.iconv(self.handle, *arguments) == self.failed:
            return None
        self.library.iconv(self.handle, None, None, *arguments[2:])
        return room.raw[:64 - free.value]


def read_names():
    """The names of each number, its own first."""
    names = {}
    for charset, name in re.findall(r'^    \{([\w:()]+), "([^"]+)"\},$', NAMES.read_text(), re.MULTILINE):
        names.setdefault(charset, []).append(name)
    return list(names.values())


def read_table(name):
    """The character of each byte, None for none; and the bytes that are read only, for a later one with the same character.
    None when the charset is not of one byte."""
    decode, encode = Iconv("UTF-32LE", name), Iconv(name, "UTF-32LE")
    if not decode.is_open or not encode.is_open or name in COMPOSED:
        return None
    for character in range(0x20, 0xFFFE, 7):
        if name != TONED and not 0xD800 <= character < 0xE000 and len(encode(struct.pack("<I", character)) or b"") > 1:
            return None
    table = []
    for byte in range(256):
        unit = decode(bytes([byte]))
        table.append(struct.unpack("<I", unit)[0] if unit is not None and len(unit) == 4 else None)
    only_read = []
    for byte, character in enumerate(table):
        written = None if character is None else encode(struct.pack("<I", character))[0]
        if character is not None and written > byte and table[written] == character:
            only_read.append(byte)
    return table, only_read


def runs(table, base):
    """(first byte, count, first character) of where it differs from the base: bytes and characters that count up."""
    found, byte = [], 0
    while byte < 256:
        if table[byte] == base[byte]:
            byte += 1
            continue
        end = byte + 1
        while end < 256 and end - byte < 256 and table[end] == (table[byte] and table[byte] + end - byte):
            end += 1
        found.append((byte, end - byte, NO_CHARACTER if table[byte] is None else table[byte]))
        byte = end
    return found


def packed(rows):
    return "\n    ".join(textwrap.wrap(", ".join(row.replace(" ", "~") for row in rows), 116, break_on_hyphens=False)).replace("~", " ")


def make_big5_hkscs():
    """What has one character, outside the ideographs of plain Big5."""
    decode = Iconv("UTF-32LE", "BIG5-HKSCS")
    found, characters, place = [], [], 0
    last = None
    for lead in range(0x81, 0xFF):
        for trail in [*range(0x40, 0x7F), *range(0xA1, 0xFF)]:
            code = lead << 8 | trail
            place += 1
            unit = decode(bytes([lead, trail]))
            if unit is None or len(unit) != 4 or 0xA440 <= code <= 0xC67E or 0xC940 <= code <= 0xF9D5:
                continue
            if last != place - 1:
                found.append([code, 0])
            found[-1][1] += 1
            last = place
            characters.append(struct.unpack("<I", unit)[0])
    runs_of_codes = packed(f"{{0x{code:04X}, {count}}}" for code, count in found)
    BIG5_HKSCS_TARGET.write_text(f"""// Made by tools/make_charset_tables.py.
#pragma once

#include <cstdint>

namespace Platform {{

// clang-format off

/// Codes that follow each other, from the first on; their characters stand in order.
struct HkscsRun {{
    std::uint16_t first;
    std::uint16_t count;
}};
constexpr HkscsRun HkscsRuns[] = {{
    {runs_of_codes}}};

constexpr char32_t HkscsCharacters[] = {{
    {packed(f"0x{character:X}" for character in characters)}}};

// clang-format on

}} // namespace Platform
""")
    print(f"BIG5-HKSCS: {len(characters)} characters, {len(found)} runs")


def make_single_bytes():
    tables, names = [], {}
    for group in read_names():
        if group[0] in ELSEWHERE:
            continue
        read = read_table(group[0])
        if read is None:
            continue
        for name in group:
            names[name] = len(tables)
        tables.append(read)
    lines, rows, only_read, count = [], [], [], 0
    for index, (table, skipped) in enumerate(tables):
        bases = [(len(runs(table, LATIN)), -1)] + [(len(runs(table, base)), i) for i, (base, _) in enumerate(tables[:index])]
        found, base = min(bases)
        rows.append(f"{{{count}, {base}}}")
        only_read += [f"{{{index}, 0x{byte:02X}}}" for byte in skipped]
        for first, length, character in runs(table, tables[base][0] if base >= 0 else LATIN):
            lines.append(f"0x{first:02X}{length - 1:02X}{character:04X}")
        count += found
    rows.append(f"{{{count}, -1}}")
    entries = [f'{{"{name}", {index}}}' for name, index in sorted(names.items())]
    TARGET.write_text(f"""// Made by tools/make_charset_tables.py.
#pragma once

#include <cstdint>
#include <string_view>

namespace Platform {{

// clang-format off

/// A run of bytes whose characters count up, or that have none (0xFFFF): the first byte, how many follow it, and the
/// first character.
constexpr std::uint32_t TableRuns[] = {{
    {packed(lines)}}};

/// A charset differs from another before it, or from Latin-1 (-1), by the runs up to those of the next.
struct TableRow {{
    std::uint16_t firstRun;
    std::int16_t base;
}};
constexpr TableRow TableRows[] = {{
    {packed(rows)}}};
constexpr int TcvnRow = {names[TONED]}; // whose letters are composed with the tones behind them

/// A byte that is read, but another with the same character is written. Else that is the least one.
struct ReadOnlyByte {{
    std::uint8_t row;
    std::uint8_t byte;
}};
constexpr ReadOnlyByte ReadOnlyBytes[] = {{
    {packed(only_read)}}};

struct TableName {{
    std::string_view name;
    std::uint8_t row;
}};
constexpr TableName TableNames[] = {{
    {packed(entries)}}};

// clang-format on

}} // namespace Platform
""")
    print(f"{len(tables)} charsets, {len(names)} names, {count} runs")


if __name__ == "__main__":
    make_single_bytes()
    make_big5_hkscs()
