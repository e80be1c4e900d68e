#include "Collector/Query.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "Collector/Checks.h"

namespace zorvane::collector {

namespace {

// The values are separated by ", ". What else may be given stands in the last text.
void expectOneOf(const std::string& parameter, const std::string& value, std::string_view values,
                 std::string_view more = "") {
  const std::string all = ", " + std::string(values) + ", ";
  if (value.find(',') == std::string::npos && all.find(", " + value + ", ") != std::string::npos) return;
  throw BadRequest(parameter + " must be one of " + std::string(values) + std::string(more));
}

bool isStatus(const std::string& text) {
  if (text == "0") return true;
  return text.size() == 3 && text.find_first_not_of("0123456789") == std::string::npos && text[0] >= '1' &&
         text[0] <= '5';
}

void expectUTF8(const std::string& parameter, const std::string& text) {
  try {
    (void)json(text).dump();
  } catch (const json::exception&) {
    throw BadRequest(parameter + " is not UTF-8");
  }
}

}  // namespace

std::int64_t parseNumber(const std::string& parameter, const std::string& text, std::int64_t maximum) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0 || number > maximum) {
    throw BadRequest(parameter + " must be a whole number from 0 to " + std::to_string(maximum));
  }
  return number;
}

Query parseQuery(const std::multimap<std::string, std::string>& parameters, std::span<const std::string> filters,
                 std::string_view statuses) {
  Query query;
  for (const auto& [parameter, value] : parameters) {
    expectUTF8("the name of a parameter", parameter);
    expectUTF8(parameter, value);
    if (parameters.count(parameter) > 1) throw BadRequest(parameter + " is given twice");
    if (parameter == "after") {
      query.after = parseNumber(parameter, value);
    } else if (parameter == "before") {
      query.before = parseNumber(parameter, value);
    } else if (parameter == "limit") {
      query.limit = parseNumber(parameter, value, kMaximumRows);
    } else if (parameter == "order") {
      expectOneOf(parameter, value, "asc, desc");
      query.ascending = value == "asc";
    } else if (std::ranges::find(filters, parameter) != filters.end()) {
      if (parameter == "kind") expectOneOf(parameter, value, "own, module");
      if (parameter == "status" && !isStatus(value)) {
        expectOneOf(parameter, value, statuses, ", or a status from 100 to 599, or 0 (no response)");
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
