// JSON (RFC 8259), to and from values.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

struct JSONLimits {
  std::size_t depth = 512;
  // Keys count like values.
  std::size_t values = 4'000'000;
};

// One JSON value with nothing but blanks around it. 2.0 is a double, 2 an integer; integers beyond 64 bits are doubles;
// null is the null marker; of a key that stands twice the last value holds. A lone surrogate escape becomes U+FFFD. A
// number beyond the range of a double is an error.
Result<Value> parseJSON(std::string_view text, JSONLimits limits = {});

// Compact text. Doubles keep a point or an exponent ("2.0"), so that kinds survive a round trip. What JSON cannot hold
// costs only itself: nil, not-a-number and infinity become null, a date its ISO 8601 text with milliseconds in UTC,
// data its lower-case hexadecimal text, a URL its text, an object its plain value. Beyond 512 levels null stands in.
std::string jsonText(const Value& value);
void appendJSON(const Value& value, std::string& out);

// A part of a value that is made only when it is written: where it stands in a container, its writer appends its JSON.
// Its plain value is what a reader of values (equality, descriptions) sees. The writer must be callable from any
// thread.
std::shared_ptr<const Object> lazyJSON(std::function<void(std::string& out)> writer, std::function<Value()> plainValue);

}  // namespace zorvane::platform
