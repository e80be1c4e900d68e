#include "Platform/Text/Hex.h"

#include <cstddef>

namespace zorvane::platform {

void appendHex(std::string& text, std::span<const std::uint8_t> bytes, std::string_view digits) {
  const std::size_t start = text.size();
  text.resize(start + 2 * bytes.size());
  char* digit = text.data() + start;
  for (const std::uint8_t byte : bytes) {
    *digit++ = digits[byte >> 4];
    *digit++ = digits[byte & 15];
  }
}

}  // namespace zorvane::platform
