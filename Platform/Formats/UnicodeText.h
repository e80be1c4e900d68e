// Unicode characters and UTF-16 units as UTF-8.
#pragma once

#include <cstdint>
#include <string>

namespace zorvane::platform {

inline bool isSurrogate(std::uint32_t character) {
  return character >= 0xD800 && character <= 0xDFFF;
}

// A surrogate, or a number above U+10FFFF, becomes U+FFFD.
inline void appendUtf8(std::uint32_t character, std::string& out) {
  if (isSurrogate(character) || character > 0x10FFFF) character = 0xFFFD;
  const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (character < 0x80) {
    put(character);
  } else if (character < 0x800) {
    put(0xC0 | (character >> 6));
    put(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    put(0xE0 | (character >> 12));
    put(0x80 | ((character >> 6) & 0x3F));
    put(0x80 | (character & 0x3F));
  } else {
    put(0xF0 | (character >> 18));
    put(0x80 | ((character >> 12) & 0x3F));
    put(0x80 | ((character >> 6) & 0x3F));
    put(0x80 | (character & 0x3F));
  }
}

// Appends count UTF-16 units, which unit(i) reads. An unpaired surrogate becomes U+FFFD.
template <typename Unit>
void appendUtf16(std::size_t count, Unit unit, std::string& out) {
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t character = unit(i);
    if (character >= 0xD800 && character <= 0xDBFF && i + 1 < count) {
      const std::uint32_t low = unit(i + 1);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    appendUtf8(character, out);
  }
}

}  // namespace zorvane::platform
