#include "ZRAnalytics/EventManagement/ZRDumpFile.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Text/Utf8.h"
#include "ZRAnalytics/Utils/ZRReport.h"

namespace zorvane {
namespace {

constexpr std::size_t kMaximumSize = 64u << 20;

// Calls take with each piece between the members of the platform's newline set: U+000A to U+000D, U+0085, U+2028,
// U+2029. Empty pieces are left out.
template <typename Take>
void takeLines(std::string_view text, Take take) {
  static constexpr std::string_view kNewlines[] = {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"};
  std::size_t start = 0;
  std::size_t position = 0;
  while (position < text.size()) {
    std::size_t length = 0;
    for (const std::string_view newline : kNewlines) {
      if (text.substr(position).starts_with(newline)) length = newline.size();
    }
    if (length != 0 && position > start) take(text.substr(start, position - start));
    position += length != 0 ? length : 1;
    if (length != 0) start = position;
  }
  if (start < text.size()) take(text.substr(start));
}

// With keys and values inside it. Of values from a file, which are not deep.
std::size_t countOfValues(const Value& value) {
  std::size_t count = 1;
  if (const Array* array = value.asArray()) {
    for (const Value& element : *array) count += countOfValues(element);
  } else if (const Dictionary* dictionary = value.asDictionary()) {
    for (const auto& [key, element] : *dictionary) count += 1 + countOfValues(element);
  }
  return count;
}

}  // namespace

bool ZRDumpFile::exists() const {
  return platform::fileExists(path_);
}

Array ZRDumpFile::events() const {
  Array events;
  const auto text = platform::readFile(path_, kMaximumSize);
  if (!text || !platform::isValidUtf8(text.value())) return events;
  platform::JSONLimits limits;  // For all lines together: a hostile file has a value on each of its short lines.
  takeLines(text.value(), [&](std::string_view line) {
    auto parsed = platform::parseJSON(line, limits);
    // The platform's parser takes nothing but a container at the top.
    if (parsed && (parsed.value().isDictionary() || parsed.value().isArray())) {
      limits.values -= std::min(limits.values, countOfValues(parsed.value()));
      events.push_back(std::move(parsed).value());
    }
  });
  return events;
}

void ZRDumpFile::remove() {
  if (exists() && !platform::removeFile(path_)) logLine("error while removing dat file");
}

}  // namespace zorvane
