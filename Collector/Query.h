// The parameters of a list of the API.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

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

// Takes those of the filters that the list has, and "after", "before", "order" and "limit". Throws BadRequest that
// names a parameter that is unknown, repeated or malformed.
Query parseQuery(const std::multimap<std::string, std::string>& parameters, std::span<const std::string> filters);

// A non-negative number. Throws BadRequest that names the parameter.
std::int64_t parseNumber(const std::string& parameter, const std::string& text);

// A pattern for LIKE ... ESCAPE '\' that finds the text anywhere.
std::string patternOf(const std::string& text);

}  // namespace zorvane::collector
