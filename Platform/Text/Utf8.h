// UTF-8: validity, and conversion from and to characters and UTF-16 units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zorvane::platform {

bool isASCII(std::string_view text) noexcept;
bool isValidUtf8(std::string_view text) noexcept;
// The text with U+FFFD for each invalid sequence: one for a truncated character, one for any other bad byte.
std::string validUtf8(std::string text);

// The character that starts at text[position] of valid UTF-8; moves position behind it.
std::uint32_t nextCharacter(std::string_view text, std::size_t& position) noexcept;

inline bool isSurrogate(std::uint32_t character) {
  return character >= 0xD800 && character <= 0xDFFF;
}

// A surrogate, or a number above U+10FFFF, becomes U+FFFD.
void appendUtf8(std::uint32_t character, std::string& out);

// Converts UTF-16: appends count units, which unit(i) reads. An unpaired surrogate becomes U+FFFD.
template <typename Unit>
void appendUtf16AsUtf8(std::size_t count, Unit unit, std::string& out) {
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
