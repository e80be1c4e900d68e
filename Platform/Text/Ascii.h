// ASCII characters, independent of the locale.
#pragma once

namespace zorvane::platform {

constexpr bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isAsciiDigit(char c) {
  return c >= '0' && c <= '9';
}

constexpr char asciiLowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace zorvane::platform
