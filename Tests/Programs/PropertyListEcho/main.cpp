// Reads property lists and writes what it read, for scripts/compare-plists.
//
// Standard input: files, each behind its length (four big-endian bytes). Standard output, in the same form, two files
// for each: what parsePropertyList read, and the same as a dictionary file that was opened and extended by "new": 1.
// Empty is one that was refused, or whose root is no dictionary.
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

}  // namespace

int main() {
  while (const auto file = readFrame()) {
    const auto value = parsePropertyList(*file);
    writeFrame(value ? binaryPropertyList(value.value()) : "");
    std::string extended;
    if (const auto image = PropertyListDictionaryImage::open(*file)) {
      const PropertyListDictionaryImage longer = image.value().withEntry("new", 1);
      for (const std::string_view piece : longer.pieces()) extended += piece;
    }
    writeFrame(extended);
    std::fflush(stdout);
  }
  return 0;
}
