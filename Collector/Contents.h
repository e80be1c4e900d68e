// What the body of a request says. Pure functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Collector/Checks.h"

namespace zorvane::collector {

using Text = std::optional<std::string>;

// In one line. Malformed UTF-8 becomes U+FFFD.
std::string jsonText(const json& value);

// Malformed UTF-8 becomes U+FFFD.
std::string validUTF8(std::string_view text);

// What is stored of the body of a refused request.
std::string beginningOf(std::string_view body);

// Of a body of any shape; what cannot be read is absent.
struct Contents {
  Text requestTime, startTime;
  std::string sessionID, userID, segmentID, uniqueID;  // "": absent
  std::map<std::string, std::int64_t> names;           // of the events, with their numbers
  std::int64_t events = 0;
};
Contents contentsOf(const json& body);

// The member as text: a string as it is, any other value as JSON; none for null and in what is no object.
Text textOf(const json& object, const char* key);

// The member; an empty object if there is none.
const json& sectionOf(const json& object, const char* key);

// Whether the module itself tracks events of this name.
bool isModuleEvent(std::string_view name);

// In UTC, ISO 8601 with milliseconds.
std::string timeText(std::chrono::system_clock::time_point time);
std::string timeNow();

// Seconds since 1970; none if it is no such time. Milliseconds may be left out.
std::optional<double> secondsOf(const std::string& time);

// The name in the table arrivals of the seconds from happening to arriving.
std::string_view delayName(double seconds);

}  // namespace zorvane::collector
