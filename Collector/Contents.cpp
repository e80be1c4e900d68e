#include "Collector/Contents.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>

namespace zorvane::collector {

namespace {

constexpr std::string_view kModuleEvents[] = {
    "EVENT_ACTION_DEVICE_ATTRIBUTE",
    "EVENT_ACTION_IOS_SESSION_END",
    "EVENT_ACTION_IOS_SESSION_START",
    "EVENT_ACTION_USER_ATTRIBUTE",
    "INSTALL",
    "REINSTALL",
    "UPDATE",
    "ZRV_APP_EXIT",
    "ZRV_LOGOUT",
};

// Seconds; one of them is the name of a delay.
constexpr std::pair<double, std::string_view> kDelays[] = {{1, "1"},     {10, "10"},     {60, "60"},
                                                           {600, "600"}, {3600, "3600"}, {86400, "86400"}};
// A clock may run that much ahead.
constexpr double kClockTolerance = 1;
constexpr std::size_t kKeptBody = 64u << 10;

std::string identifierOf(const json& object, const char* key) {
  return textOf(object, key).value_or("");
}

}  // namespace

std::string jsonText(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string validUTF8(std::string_view text) {
  return json::parse(jsonText(text)).get<std::string>();
}

std::string beginningOf(std::string_view body) {
  return validUTF8(body.substr(0, kKeptBody));
}

Text textOf(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  return found->is_string() ? found->get<std::string>() : jsonText(*found);
}

const json& sectionOf(const json& object, const char* key) {
  static const json none = json::object();
  const auto found = object.find(key);
  return found == object.end() ? none : *found;
}

Contents contentsOf(const json& body) {
  Contents contents;
  const json& meta = sectionOf(body, "meta");
  const json& session = sectionOf(meta, "session");
  const json& identifiers = sectionOf(body, "identifiers");
  contents.requestTime = textOf(meta, "request_time");
  contents.sessionID = identifierOf(session, "session_id");
  contents.startTime = textOf(session, "start_time");
  contents.userID = identifierOf(identifiers, "zrv_user_id");
  contents.segmentID = identifierOf(identifiers, "segment_id");
  contents.uniqueID = identifierOf(sectionOf(body, "query_params"), "unique_id");
  const json& events = sectionOf(body, "viewsInfo");
  if (!events.is_array()) return contents;
  contents.events = static_cast<std::int64_t>(events.size());
  for (const json& event : events) {
    const auto name = event.find("EVENT_ACTION");
    if (name != event.end() && name->is_string()) ++contents.names[name->get_ref<const std::string&>()];
  }
  return contents;
}

bool isModuleEvent(std::string_view name) {
  return std::ranges::binary_search(kModuleEvents, name);
}

std::string timeText(std::chrono::system_clock::time_point time) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[64];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + size, sizeof text - size, ".%03dZ", static_cast<int>(milliseconds % 1000));
  return text;
}

std::string timeNow() {
  return timeText(std::chrono::system_clock::now());
}

std::optional<double> secondsOf(const std::string& time) {
  std::tm parts{};
  const char* const rest = ::strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  int milliseconds = 0;
  int end = 0;
  if (!rest) return std::nullopt;
  if (*rest == '.' && (std::sscanf(rest, ".%3d%n", &milliseconds, &end) != 1 || end != 4)) return std::nullopt;
  if (std::string_view(rest + end) != "Z") return std::nullopt;
  return static_cast<double>(::timegm(&parts)) + milliseconds / 1000.0;
}

std::string_view delayName(double seconds) {
  if (seconds < -kClockTolerance) return "ahead";
  for (const auto& [bound, name] : kDelays) {
    if (seconds <= bound) return name;
  }
  return "";
}

}  // namespace zorvane::collector
