// JSON (RFC 8259), to and from values.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Export.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// A text beyond them is an error.
struct JSONLimits {
  // Levels of arrays and objects.
  std::size_t depth = 512;
  // Keys included.
  std::size_t values = 4'000'000;
};

// One JSON value with nothing but blanks around it. 2.0 is a double, 2 an integer; integers beyond 64 bits are doubles;
// null is the null marker; of a repeated key the last value holds. A lone surrogate escape becomes U+FFFD. A number
// beyond the range of a double is an error.
ZR_PUBLIC Result<Value> parseJSON(std::string_view text, JSONLimits limits = {});

// Compact JSON. Doubles keep a point or an exponent ("2.0"), so that kinds survive a round trip. What JSON cannot hold
// is replaced: nil, not-a-number and infinity by null, a date by its ISO 8601 text with milliseconds in UTC, data by
// its lower-case hexadecimal digits, a URL by its text, an object by its plain value, anything beyond 512 levels by
// null.
ZR_PUBLIC std::string jsonText(const Value& value);
// The same behind what out holds.
ZR_PUBLIC void appendJSON(const Value& value, std::string& out);

// A part of a value whose JSON is made when it is written: writer appends it. Comparison and descriptions use
// plainValue. Both functions are called on any thread.
ZR_PUBLIC std::shared_ptr<const Object> lazyJSON(std::function<void(std::string& out)> writer,
                                                 std::function<Value()> plainValue);

}  // namespace zorvane::platform
