#include "ZRAnalytics/Utils/ZRPlainValue.h"

#include <algorithm>

#include "Platform/Formats/PropertyList.h"

namespace zorvane {
namespace {

bool holdsObject(const Value& value, int depth) {
  if (value.kind() == Value::Kind::Object) return true;
  if (depth == platform::kMaxPropertyListDepth) return false;
  const auto holds = [depth](const Value& element) { return holdsObject(element, depth + 1); };
  if (const Array* array = value.asArray()) return std::any_of(array->begin(), array->end(), holds);
  if (const Dictionary* dictionary = value.asDictionary()) {
    return std::any_of(dictionary->begin(), dictionary->end(), [&](const auto& entry) { return holds(entry.value); });
  }
  return false;
}

Value plain(const Value& value, const ReportSite& site, int depth) {
  if (!holdsObject(value, depth)) return value;
  if (depth == platform::kMaxPropertyListDepth) return "";
  if (const auto object = value.asObject()) {
    Value replacement = "";
    guarded(site, "exception is %@", [&] { replacement = object->plainValue(); });
    return plain(replacement, site, depth + 1);
  }
  Value result = value;
  if (value.isArray()) {
    for (Value& element : result.mutableArray()) element = plain(element, site, depth + 1);
  } else {
    Dictionary& dictionary = result.mutableDictionary();
    for (const auto& [key, element] : *value.asDictionary()) {
      dictionary.remove(key);
      dictionary.setObjectNilHandledForKey(plain(element, site, depth + 1), key);
    }
  }
  return result;
}

}  // namespace

Value withoutObjects(const Value& value, const ReportSite& site) {
  return plain(value, site, 0);
}

}  // namespace zorvane
