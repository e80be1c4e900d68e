#include "Platform/Text/CaseMapping.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "Platform/Text/CaseMappingTable.h"

namespace zorvane::platform {
namespace {

char32_t lowerCase(char32_t character) {
  if (character > 0x1FFFF) return character;
  const std::span<const CaseRange> ranges =
      character > 0xFFFF ? std::span<const CaseRange>(kLowerCasePlane1) : std::span<const CaseRange>(kLowerCasePlane0);
  const auto low = static_cast<std::uint16_t>(character);
  const auto range = std::lower_bound(ranges.begin(), ranges.end(), low,
                                      [](const CaseRange& r, std::uint16_t code) { return r.last < code; });
  if (range == ranges.end() || low < range->first) return character;
  if (range->distance == 1 && (low - range->first) % 2 != 0) return character;
  return (character & ~char32_t{0xFFFF}) | static_cast<std::uint16_t>(low + range->distance);
}

void appendUtf8(std::string& text, char32_t c) {
  const auto continuation = [&](int shift) { text += static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | (c >> 6));
    continuation(0);
  } else if (c < 0x10000) {
    text += static_cast<char>(0xE0 | (c >> 12));
    continuation(6);
    continuation(0);
  } else {
    text += static_cast<char>(0xF0 | (c >> 18));
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      result += static_cast<char>(lead >= 'A' && lead <= 'Z' ? lead + ('a' - 'A') : lead);
      ++i;
      continue;
    }
    const std::size_t length = std::min<std::size_t>(lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4, text.size() - i);
    char32_t character = lead & (0xFFU >> (length + 1));
    for (std::size_t k = 1; k < length; ++k) {
      character = (character << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3FU);
    }
    appendUtf8(result, lowerCase(character));
    i += length;
  }
  return result;
}

}  // namespace zorvane::platform
