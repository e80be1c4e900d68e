#include "ZRAnalytics/Utils/ZRPlainValue.h"

#include <cstddef>
#include <utility>

#include "Platform/Formats/PropertyList.h"

namespace zorvane {
namespace {

// Sets result and returns true if a host object stands in the value. Without a site an exception is not caught.
bool replaceObjects(const Value& value, const ReportSite* site, int depth, Value& result) {
  if (value.kind() == Value::Kind::Object) {
    if (platform::isLargeInteger(value)) return false;
    result = "";
    if (depth == platform::kMaxPropertyListDepth) return true;
    const auto ask = [&] { result = value.asObject()->plainValue(); };
    if (site) {
      guarded(*site, "exception is %@", ask);
    } else {
      ask();
    }
    Value plain;
    if (replaceObjects(result, site, depth + 1, plain)) result = std::move(plain);
    return true;
  }
  if (depth == platform::kMaxPropertyListDepth) return false;
  bool isReplaced = false;
  Value plain;
  if (const Array* array = value.asArray()) {
    for (std::size_t i = 0; i < array->size(); ++i) {
      if (!replaceObjects((*array)[i], site, depth + 1, plain)) continue;
      if (!isReplaced) result = value;
      isReplaced = true;
      result.mutableArray()[i] = std::move(plain);
    }
  } else if (const Dictionary* dictionary = value.asDictionary()) {
    for (const auto& [key, element] : *dictionary) {
      if (!replaceObjects(element, site, depth + 1, plain)) continue;
      if (!isReplaced) result = value;
      isReplaced = true;
      if (plain.isNil()) {
        result.mutableDictionary().remove(key);
      } else {
        result.mutableDictionary().set(key, std::move(plain));
      }
    }
  }
  return isReplaced;
}

}  // namespace

Value withoutObjects(const Value& value, const ReportSite& site) {
  Value result;
  return replaceObjects(value, &site, 0, result) ? result : value;
}

Value withoutObjects(const Value& value) {
  Value result;
  return replaceObjects(value, nullptr, 0, result) ? result : value;
}

}  // namespace zorvane
