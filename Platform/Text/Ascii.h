// Characters of ASCII, whatever the locale.
#pragma once

namespace zorvane::platform {

constexpr bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isAsciiDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace zorvane::platform
