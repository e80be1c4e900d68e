// The event file of earlier releases: its lines are read, and stored in the batch file.
#include <cstdio>

#include "Check.h"
#include "Module.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/Text/Utf8.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"

using namespace zorvane;

namespace {

constexpr std::string_view kLastLine = "{\"EVENT_ACTION\":\"last\"}";

Array eventsOf(std::string_view content) {
  const std::string path = ZREventsHandler::sharedInstance().oldDatFilePath();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  fuzz::check(file != nullptr, "the dump file is made");
  std::fwrite(content.data(), 1, content.size(), file);
  std::fclose(file);
  return ZREventsHandler::sharedInstance().getEventsFromDumpFile();
}

Array joined(Array left, const Array& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

void checkReading(std::string_view content, const Array& events) {
  if (!platform::isValidUtf8(content)) {
    fuzz::check(events.empty(), "a file that is not UTF-8 is not read");
    return;
  }
  for (const Value& event : events) fuzz::check(event.isDictionary(), "a line is an object");
  for (const char* newline : {"\n", "\r\n", "\xC2\x85", "\xE2\x80\xA8"}) {
    std::string longer(content);
    longer.append(newline).append(kLastLine);
    fuzz::check(eventsOf(longer) == joined(events, {platform::parseJSON(kLastLine).value()}),
                "another line is another event");
  }
  const std::string_view half = content.substr(0, content.find('\n'));
  const std::string_view rest = content.substr(std::min(half.size() + 1, content.size()));
  if (rest.starts_with("\xEF\xBB\xBF")) return;  // is skipped only at the start
  fuzz::check(joined(eventsOf(half), eventsOf(rest)) == events, "lines do not depend on each other");
}

void checkStoring(const Array& events) {
  ZREventsHandler& handler = ZREventsHandler::sharedInstance();
  handler.writeEventsToFileWithBatchID(events, "1-A");
  const auto bytes = platform::readFile(handler.eventsPlistFilePath(), std::size_t{64} << 20);
  fuzz::check(static_cast<bool>(bytes), "the events are stored");
  const auto stored = platform::parsePropertyList(bytes.value());
  fuzz::check(stored && stored.value().isDictionary(), "the batch file can be read");
  const Value batch = stored.value().asDictionary()->objectForKey("1-A");
  fuzz::check(batch.isArray() && batch.asArray()->size() == events.size(), "it holds all events");
  fuzz::check(static_cast<bool>(platform::parseJSON(platform::jsonText(batch))), "they can be sent");
  handler.removeEventsPlistFile();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const bool started = (fuzz::startModule(), true);
  (void)started;
  const std::string_view content = fuzz::textOf(data, size);
  const Array events = eventsOf(content);
  checkReading(content, events);
  if (!events.empty()) checkStoring(events);
  return 0;
}
