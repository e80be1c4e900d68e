#include "Platform/Text/UUID.h"

#include <array>

#include "Platform/Text/Hex.h"
#include "Platform/Text/RandomBytes.h"

namespace zorvane::platform {

std::string randomUUID() {
  std::array<std::uint8_t, 16> bytes;
  fillWithRandomBytes(bytes);
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the variant of RFC 4122
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    appendHex(text, {&bytes[i], 1}, kUpperHexDigits);
  }
  return text;
}

}  // namespace zorvane::platform
