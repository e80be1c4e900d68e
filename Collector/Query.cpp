#include "Collector/Query.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "Collector/Checks.h"

namespace zorvane::collector {

namespace {

void expectOneOf(const std::string& parameter, const std::string& value,
                 std::initializer_list<std::string_view> values) {
  if (std::ranges::find(values, value) != values.end()) return;
  std::string text;
  for (const std::string_view each : values) text += (text.empty() ? "" : ", ") + std::string(each);
  throw BadRequest(parameter + " must be one of " + text);
}

bool isStatusCode(const std::string& text) {
  return text.size() == 3 && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::int64_t parseNumber(const std::string& parameter, const std::string& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) {
    throw BadRequest(parameter + " must be a whole number from 0 on");
  }
  return number;
}

Query parseQuery(const std::multimap<std::string, std::string>& parameters, std::span<const std::string> filters) {
  Query query;
  for (const auto& [parameter, value] : parameters) {
    if (parameters.count(parameter) > 1) throw BadRequest(parameter + " is given twice");
    if (parameter == "after") {
      query.after = parseNumber(parameter, value);
    } else if (parameter == "before") {
      query.before = parseNumber(parameter, value);
    } else if (parameter == "limit") {
      query.limit = parseNumber(parameter, value);
      if (query.limit > kMaximumRows) throw BadRequest("limit must be at most " + std::to_string(kMaximumRows));
    } else if (parameter == "order") {
      expectOneOf(parameter, value, {"asc", "desc"});
      query.ascending = value == "asc";
    } else if (std::ranges::find(filters, parameter) != filters.end()) {
      if (parameter == "kind") expectOneOf(parameter, value, {"own", "module"});
      if (parameter == "status" && !isStatusCode(value)) {
        expectOneOf(parameter, value, {"accepted", "refused", "duplicate", "any"});
      }
      query.filters[parameter] = value;
    } else {
      throw BadRequest("unknown parameter " + parameter);
    }
  }
  return query;
}

std::string patternOf(const std::string& text) {
  std::string pattern = "%";
  for (const char c : text) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  return pattern + '%';
}

}  // namespace zorvane::collector
