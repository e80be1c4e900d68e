// The parameters of a list of the API.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Collector/Schema.h"

namespace zorvane::collector {

inline constexpr std::int64_t kDefaultRows = 100;
inline constexpr std::int64_t kMaximumRows = 10'000;

struct Query {
  // By parameter: "name", "user", "session", "device", "app", "kind", "status", "q".
  std::map<std::string, std::string> filters;
  std::optional<std::int64_t> after, before;  // ids
  std::int64_t limit = kDefaultRows;
  bool ascending = false;

  bool has(const char* filter) const { return filters.contains(filter); }
};

// Takes those of the filters that the list has, and "after", "before", "order" and "limit". "status" is one of the
// statuses, which ", " separates, or a number. Throws BadRequest that names a parameter that is unknown, repeated,
// malformed or no UTF-8.
Query parseQuery(const std::multimap<std::string, std::string>& parameters, std::span<const std::string> filters,
                 std::string_view statuses);

// The sum with kEventIDs does not overflow.
inline constexpr std::int64_t kMaximumID = std::numeric_limits<std::int64_t>::max() - kEventIDs;

// A number from 0 to the maximum. Throws BadRequest that names the parameter and the maximum.
std::int64_t parseNumber(const std::string& parameter, const std::string& text, std::int64_t maximum = kMaximumID);

// A pattern for LIKE ... ESCAPE '\' that finds the text anywhere.
std::string patternOf(const std::string& text);

}  // namespace zorvane::collector
