// A moment in time.
#pragma once

#include <compare>

namespace zorvane::platform {

// Seconds since 1970-01-01 00:00 UTC, with fractions.
struct Date {
  // May be negative.
  double secondsSince1970 = 0;
  friend auto operator<=>(const Date&, const Date&) = default;
};

}  // namespace zorvane::platform
