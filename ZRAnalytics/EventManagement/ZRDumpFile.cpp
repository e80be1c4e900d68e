#include "ZRAnalytics/EventManagement/ZRDumpFile.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Text/Utf8.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRReport.h"

namespace zorvane {
namespace {

constexpr std::size_t kMaximumSize = 64u << 20;
// Two bytes of JSON are at most one value, so such a part can be read back from the batch file.
constexpr std::size_t kMaximumPartSize = (4u << 20) - 2;
// More than one line of the file has.
constexpr std::size_t kMaximumValues = 5'000'000;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

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

}  // namespace

bool ZRDumpFile::exists() const {
  return platform::fileExists(path_);
}

void ZRDumpFile::read(const std::function<void(Value event)>& take) const {
  const auto file = platform::readFile(path_, kMaximumSize);
  const bool isText = file && platform::isValidUtf8(file.value());
  if (!isText) {
    if (file || file.error().code != ENOENT) {
      logLine("Events dat file : %@", {file ? "cannot read " + path_ + ": no UTF-8" : file.error().message});
    }
    return;
  }
  std::string_view text = file.value();
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  takeLines(text, [&](std::string_view line) {
    auto parsed = platform::parseJSON(line);
    if (parsed && parsed.value().isDictionary()) take(std::move(parsed).value());
  });
}

Array ZRDumpFile::events() const {
  Array events;
  read([&](Value event) { events.push_back(std::move(event)); });
  return events;
}

std::vector<ZRDumpFile::Part> ZRDumpFile::parts() const {
  std::vector<Part> parts;
  std::string json = "[";
  std::size_t count = 0;
  const auto finishPart = [&] {
    if (count == 0) return;
    const auto text = std::make_shared<const std::string>(std::exchange(json, "[") + ']');
    // One level deeper than a line.
    const platform::JSONLimits limits{.depth = platform::JSONLimits().depth + 1, .values = kMaximumValues};
    const auto parse = [text, limits] { return platform::parseJSON(*text, limits).value(); };
    const auto events = platform::lazyJSON([text](std::string& out) { out += *text; }, parse);
    parts.push_back({Dictionary{{kBatchKeyEvents, events}}, std::exchange(count, 0)});
  };
  read([&](const Value& event) {
    const std::string line = platform::jsonText(event);
    if (json.size() + line.size() > kMaximumPartSize) finishPart();
    if (count++ != 0) json += ',';
    json += line;
  });
  finishPart();
  return parts;
}

void ZRDumpFile::remove() {
  if (exists() && !platform::removeFile(path_)) logLine("error while removing dat file");
}

}  // namespace zorvane
