#include "Platform/Text/CaseMapping.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "Platform/Text/Ascii.h"
#include "Platform/Text/CaseMappingTable.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

std::uint32_t lowerCase(std::uint32_t character) {
  if (character > 0x1FFFF) return character;
  const std::span<const CaseRange> ranges =
      character > 0xFFFF ? std::span<const CaseRange>(kLowerCasePlane1) : std::span<const CaseRange>(kLowerCasePlane0);
  const auto low = static_cast<std::uint16_t>(character);
  const auto range = std::lower_bound(ranges.begin(), ranges.end(), low,
                                      [](const CaseRange& r, std::uint16_t code) { return r.last < code; });
  if (range == ranges.end() || low < range->first) return character;
  if (range->distance == 1 && (low - range->first) % 2 != 0) return character;
  return (character & ~std::uint32_t{0xFFFF}) | static_cast<std::uint16_t>(low + range->distance);
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      result += asciiLowerCase(text[i++]);
    } else {
      appendUtf8(lowerCase(nextCharacter(text, i)), result);
    }
  }
  return result;
}

}  // namespace zorvane::platform
