#!/usr/bin/env python3
"""Writes Platform/Text/CaseMappingTable.h: Unicode's simple lower-case mapping as ranges, from Python's own tables."""

import pathlib
import sys
import unicodedata


def lower(code):
    text = chr(code).lower()
    # The one character whose full mapping is longer than its simple one.
    return ord("i") if code == 0x130 else ord(text) if len(text) == 1 else sys.exit(f"U+{code:04X} is not simple")


def ranges(plane):
    """[first, last, distance]: a distance of 1 stands for every second character (upper and lower case alternate)."""
    found = []
    for code in range(plane << 16, (plane + 1) << 16):
        if 0xD800 <= code <= 0xDFFF or code < 0x80:
            continue
        distance = lower(code) - code
        if distance == 0:
            continue
        assert lower(code) >> 16 == plane and (code & 0xFFFF) != 0xFFFF
        step = 2 if distance == 1 else 1
        if found and found[-1][2] == distance and found[-1][1] + step == code:
            found[-1][1] = code
        else:
            found.append([code, code, distance])
    return found


def table(name, plane):
    rows = [f"{{0x{a & 0xFFFF:04X}, 0x{b & 0xFFFF:04X}, 0x{d & 0xFFFF:04X}}}" for a, b, d in ranges(plane)]
    lines = [", ".join(rows[i:i + 4]) for i in range(0, len(rows), 4)]
    return f"inline constexpr CaseRange {name}[] = {{\n    " + ",\n    ".join(lines) + "};\n"


def main():
    assert all(lower(code) == code for code in range(0x20000, 0x110000)), "a mapping beyond the tables"
    out = pathlib.Path(__file__).resolve().parent.parent / "Platform/Text/CaseMappingTable.h"
    out.write_text(f"""\
// Made by scripts/generate-case-mapping.py from Unicode {unicodedata.unidata_version}; not edited by hand.
#pragma once

#include <cstdint>

namespace zorvane::platform {{

// The characters from first to last have their lower case that far behind, modulo 2^16. Where it is 1, only each second
// character counts, beginning with the first.
struct CaseRange {{
  std::uint16_t first;
  std::uint16_t last;
  std::uint16_t distance;
}};

// U+0080 to U+FFFF, and U+10000 to U+1FFFF by their low 16 bits. No other character has a lower case.
// clang-format off
{table("kLowerCasePlane0", 0)}{table("kLowerCasePlane1", 1)}// clang-format on

}}  // namespace zorvane::platform
""")


if __name__ == "__main__":
    main()
