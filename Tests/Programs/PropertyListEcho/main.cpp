// Reads property lists and writes them again, for scripts/compare-plists.
//
// Standard input: files, each after its length (four big-endian bytes). Standard output, in the same form, two files
// for each: the value that parsePropertyList read, and the dictionary file with "new": 1 and then "newer": "new" added.
// A file that was refused, or whose root is no dictionary, gives an empty one.
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"

using namespace zorvane::platform;

namespace {

std::optional<std::string> readFrame() {
  unsigned char head[4];
  if (std::fread(head, 1, sizeof head, stdin) != sizeof head) return std::nullopt;
  std::uint32_t length = 0;
  for (const unsigned char byte : head) length = length << 8 | byte;
  std::string bytes(length, '\0');
  if (std::fread(bytes.data(), 1, length, stdin) != length) return std::nullopt;
  return bytes;
}

void writeFrame(std::string_view bytes) {
  for (int shift = 24; shift >= 0; shift -= 8) std::fputc(static_cast<int>(bytes.size() >> shift & 0xFF), stdout);
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

std::string withEntry(const std::string& file, const char* key, const Value& value) {
  const auto opened = PropertyListDictionarySnapshot::open(file);
  if (!opened) return {};
  const PropertyListDictionarySnapshot extended = opened.value().withEntry(key, value);
  std::string content;
  for (const std::string_view piece : extended.pieces()) content += piece;
  return content;
}

}  // namespace

int main() {
  while (const auto file = readFrame()) {
    const auto value = parsePropertyList(*file);
    writeFrame(value ? binaryPropertyList(value.value()) : "");
    const std::string extended = withEntry(*file, "new", 1);  // encoded anew
    writeFrame(withEntry(extended, "newer", "new"));          // extended by copying bytes
    std::fflush(stdout);
  }
  return 0;
}
