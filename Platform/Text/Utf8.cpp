#include "Platform/Text/Utf8.h"

#include <cstring>

namespace zorvane::platform {
namespace {

struct Sequence {
  std::size_t length;
  bool valid;
};

// The character at the start of the text. If it is malformed, length counts the bytes that could begin one, at least 1.
Sequence firstSequence(std::string_view text) noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // The range of the second byte, without overlong forms, surrogates and anything above U+10FFFF.
  unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  std::size_t read = 1;
  while (read < length && read < text.size() && byte(read) >= low && byte(read) <= high) {
    low = 0x80;
    high = 0xBF;
    ++read;
  }
  return {read, read == length};
}

// The position of the first byte that is not ASCII, from `position` on, or the end.
std::size_t asciiPrefix(std::string_view text, std::size_t position) noexcept {
  const auto isNext = [&](auto block) {
    if (text.size() - position < sizeof block) return false;
    std::memcpy(&block, text.data() + position, sizeof block);
    return (block & static_cast<decltype(block)>(0x8080808080808080U)) == 0;
  };
  while (isNext(std::uint64_t{})) position += 8;
  if (isNext(std::uint32_t{})) position += 4;
  while (position < text.size() && static_cast<unsigned char>(text[position]) < 0x80) ++position;
  return position;
}

std::size_t validPrefix(std::string_view text) noexcept {
  std::size_t position = 0;
  while ((position = asciiPrefix(text, position)) < text.size()) {
    const auto [length, valid] = firstSequence(text.substr(position));
    if (!valid) return position;
    position += length;
  }
  return position;
}

}  // namespace

bool isASCII(std::string_view text) noexcept {
  return asciiPrefix(text, 0) == text.size();
}

bool isValidUtf8(std::string_view text) noexcept {
  return validPrefix(text) == text.size();
}

std::string validUtf8(std::string text) {
  std::size_t position = validPrefix(text);
  if (position == text.size()) return text;
  std::string repaired(text, 0, position);
  while (position < text.size()) {
    const std::string_view rest = std::string_view(text).substr(position);
    const auto [length, valid] = firstSequence(rest);
    repaired += valid ? rest.substr(0, length) : "\xEF\xBF\xBD";
    position += length;
  }
  return repaired;
}

std::uint32_t nextCharacter(std::string_view text, std::size_t& position) noexcept {
  const auto byte = [&] { return static_cast<std::uint32_t>(static_cast<unsigned char>(text[position++])); };
  const std::uint32_t lead = byte();
  if (lead < 0x80) return lead;
  const int following = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  std::uint32_t character = lead & (0x3FU >> following);
  for (int i = 0; i < following && position < text.size(); ++i) character = character << 6 | (byte() & 0x3F);
  return character;
}

void appendUtf8(std::uint32_t character, std::string& out) {
  if (isSurrogate(character) || character > 0x10FFFF) character = 0xFFFD;
  const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (character < 0x80) {
    put(character);
    return;
  }
  if (character < 0x800) {
    put(0xC0 | (character >> 6));
  } else {
    if (character < 0x10000) {
      put(0xE0 | (character >> 12));
    } else {
      put(0xF0 | (character >> 18));
      put(0x80 | ((character >> 12) & 0x3F));
    }
    put(0x80 | ((character >> 6) & 0x3F));
  }
  put(0x80 | (character & 0x3F));
}

}  // namespace zorvane::platform
