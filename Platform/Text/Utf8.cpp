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

template <typename Word>
Word wordAt(const char* at) noexcept {
  Word word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

std::size_t validPrefix(std::string_view text) noexcept {
  std::size_t position = 0;
  while (position < text.size()) {
    const bool hasWord = text.size() - position >= sizeof(std::uint64_t);
    if (hasWord && (wordAt<std::uint64_t>(text.data() + position) & 0x8080808080808080U) == 0) {
      position += sizeof(std::uint64_t);
      continue;
    }
    const auto [length, valid] = firstSequence(text.substr(position));
    if (!valid) return position;
    position += length;
  }
  return position;
}

}  // namespace

bool isASCII(std::string_view text) noexcept {
  const char* const begin = text.data();
  const std::size_t size = text.size();
  std::uint64_t bits = 0;
  // The last word overlaps the one before it.
  if (size >= 8) {
    for (std::size_t i = 0; i < size - 8; i += 8) bits |= wordAt<std::uint64_t>(begin + i);
    bits |= wordAt<std::uint64_t>(begin + size - 8);
  } else if (size >= 4) {
    bits = wordAt<std::uint32_t>(begin) | wordAt<std::uint32_t>(begin + size - 4);
  } else {
    for (const char byte : text) bits |= static_cast<unsigned char>(byte);
  }
  return (bits & 0x8080808080808080U) == 0;
}

bool isValidUtf8(std::string_view text) noexcept {
  return isASCII(text) || validPrefix(text) == text.size();
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
