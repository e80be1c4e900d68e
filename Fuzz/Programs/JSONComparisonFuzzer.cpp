// Compares our JSON parser with nlohmann's: both accept the same texts and read the same values.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "Check.h"
#include "Platform/Formats/JSON.h"

using namespace zorvane;
using nlohmann::json;

namespace {

bool sameValue(const platform::Value& ours, const json& theirs) {
  switch (theirs.type()) {
    case json::value_t::null:
      return ours.isNull();
    case json::value_t::boolean:
      return ours.asBool() && *ours.asBool() == theirs.get<bool>();
    case json::value_t::number_integer:
      return ours.asInteger() && *ours.asInteger() == theirs.get<std::int64_t>();
    case json::value_t::number_unsigned: {
      const auto number = theirs.get<std::uint64_t>();
      if (number > INT64_MAX) return ours.asDouble() && *ours.asDouble() == static_cast<double>(number);
      return ours.asInteger() && *ours.asInteger() == static_cast<std::int64_t>(number);
    }
    case json::value_t::number_float:
      return ours.asDouble() && *ours.asDouble() == theirs.get<double>();
    case json::value_t::string:
      return ours.isString() && *ours.asString() == theirs.get_ref<const std::string&>();
    case json::value_t::array: {
      if (!ours.isArray() || ours.asArray()->size() != theirs.size()) return false;
      for (std::size_t i = 0; i < theirs.size(); ++i) {
        if (!sameValue((*ours.asArray())[i], theirs[i])) return false;
      }
      return true;
    }
    case json::value_t::object: {
      if (!ours.isDictionary() || ours.asDictionary()->size() != theirs.size()) return false;
      for (const auto& [key, element] : theirs.items()) {
        const platform::Value* value = ours.asDictionary()->find(key);
        if (!value || !sameValue(*value, element)) return false;
      }
      return true;
    }
    default:
      return false;
  }
}

// Where the two differ on purpose: byte order mark, NUL byte, lone surrogates, deep nesting.
bool isKnownDifference(std::string_view text) {
  if (text.starts_with('\xEF') || text.find('\0') != std::string_view::npos) return true;
  for (const char* half : {"\\ud", "\\uD"}) {
    for (std::size_t i = text.find(half); i != std::string_view::npos; i = text.find(half, i + 1)) {
      if (i + 3 < text.size() && std::string_view("89abcdefABCDEF").find(text[i + 3]) != std::string_view::npos)
        return true;
    }
  }
  return std::count_if(text.begin(), text.end(), [](char c) { return c == '[' || c == '{'; }) > 512;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const auto ours = platform::parseJSON(text);
  const json theirs = json::parse(text, nullptr, false);
  if (!isKnownDifference(text)) {
    fuzz::check(static_cast<bool>(ours) == !theirs.is_discarded(), "both take the same texts");
  }
  if (!ours) return 0;
  if (!theirs.is_discarded()) fuzz::check(sameValue(ours.value(), theirs), "and read the same");
  const json written = json::parse(platform::jsonText(ours.value()), nullptr, false);
  fuzz::check(!written.is_discarded() && sameValue(ours.value(), written), "they read what we write");
  return 0;
}
