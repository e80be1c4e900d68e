// The platform's value types in namespace zorvane.
#pragma once

#include <optional>

#include "Platform/Values/Value.h"

namespace zorvane {

using platform::Array;
using platform::Data;
using platform::Date;
using platform::Dictionary;
using platform::null;
using platform::NullMarker;
using platform::Object;
using platform::Text;
using platform::URL;
using platform::Value;
using platform::ValueError;

// Nil if absent.
template <typename T>
Value valueOf(const std::optional<T>& content) {
  return content ? Value(*content) : Value();
}

}  // namespace zorvane
