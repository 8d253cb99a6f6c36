#!/usr/bin/env python3
"""Writes src/base/CodePageTables.cpp from Python's codecs. Usage: gen_codepages.py > FILE"""

import sys

PAGES = [
    (437, "cp437"), (850, "cp850"), (852, "cp852"), (855, "cp855"), (858, "cp858"),
    (866, "cp866"), (874, "cp874"), (1250, "cp1250"), (1251, "cp1251"), (1252, "cp1252"),
    (1253, "cp1253"), (1254, "cp1254"), (1255, "cp1255"), (1256, "cp1256"), (1257, "cp1257"),
    (1258, "cp1258"), (20866, "koi8_r"), (21866, "koi8_u"), (28591, "latin_1"),
    (28592, "iso8859_2"), (28593, "iso8859_3"), (28594, "iso8859_4"), (28595, "iso8859_5"),
    (28596, "iso8859_6"), (28597, "iso8859_7"), (28598, "iso8859_8"), (28599, "iso8859_9"),
    (28603, "iso8859_13"), (28605, "iso8859_15"),
]

HEAD = """\
// Made by tools/gen_codepages.py: not edited by hand.
#include "base/CodePageTables.h"

namespace tv {
namespace {

// Ordered by page number.
// clang-format off
constexpr CodePageTable kTables[] = {
"""

TAIL = """\
};
// clang-format on

}  // namespace

std::span<const CodePageTable> codePageTables() {
    return kTables;
}

}  // namespace tv
"""


def rows(values, form, per_line):
    for i in range(0, len(values), per_line):
        yield ", ".join(form % v for v in values[i:i + per_line])


def table(page, codec):
    high = []
    for byte in range(128, 256):
        try:
            code = ord(bytes([byte]).decode(codec))
        except UnicodeDecodeError:
            code = 0
        assert code == 0 or 0x80 <= code <= 0xFFFF
        high.append(code)
    for byte in range(128):
        assert bytes([byte]).decode(codec) == chr(byte)
    order = sorted((i for i in range(128) if high[i]), key=lambda i: high[i])
    count = len(order)
    order += [0] * (128 - count)
    codes = ",\n      ".join(rows(high, "0x%04X", 12))
    index = ",\n      ".join(rows(order, "%d", 18))
    return "    {%d, %d,\n     {%s},\n     {%s}},\n" % (page, count, codes, index)


def main():
    sys.stdout.write(HEAD)
    for page, codec in sorted(PAGES):
        sys.stdout.write(table(page, codec))
    sys.stdout.write(TAIL)


main()
