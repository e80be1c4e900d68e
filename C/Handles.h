// What stands behind the opaque handles.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "C/Errors.h"
#include "Platform/Values/Value.h"
#include "ZRAnalytics/SessionAndSource/ZRSource.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"

// An event that is tracked shares the properties. So a change of them first makes a copy.
struct zr_properties {
  std::shared_ptr<zorvane::ZRProperties> properties;
  mutable std::atomic<bool> shared{false};
};

struct zr_builder {
  std::shared_ptr<zorvane::ZRPayloadBuilder> builder;
};

struct zr_condition {
  std::shared_ptr<const zorvane::ZREventCondition> condition;
};

struct zr_source {
  std::shared_ptr<const zorvane::ZRSource> source;
};

// What a host answers in a callback.
struct zr_text {
  std::optional<std::string> text;
};

namespace zorvane::c {

// A zr_value is a Value. The items of a container are values themselves, so they can be given out where they stand.
inline zr_value* handleOf(Value* value) {
  return reinterpret_cast<zr_value*>(value);
}
inline const zr_value* handleOf(const Value* value) {
  return reinterpret_cast<const zr_value*>(value);
}
inline Value* valueOf(zr_value* value) {
  return reinterpret_cast<Value*>(value);
}
inline const Value* valueOf(const zr_value* value) {
  return reinterpret_cast<const Value*>(value);
}

// The value of an argument; throws for null.
const Value& valueArgument(const zr_value* value, const char* name);
// The map of an argument; throws for null and other kinds.
const Dictionary& mapArgument(const zr_value* value, const char* name);
// Throws ZR_ERROR_JSON.
Value valueOfJSON(const char* json, std::size_t length);
Dictionary dictionaryOfJSON(const char* json, std::size_t length);
// Returns its argument. Throws if a name in it is empty.
Dictionary withNames(Dictionary attributes);
Value dataOf(const void* bytes, std::size_t size);
// Throws ZR_ERROR_ARGUMENT for text that is no date.
Date isoDateOf(const char* text, std::size_t length);

// What an event takes; null for null.
std::shared_ptr<const ZRProperties> sharedProperties(const zr_properties* properties);

}  // namespace zorvane::c
