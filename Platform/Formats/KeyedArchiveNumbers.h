#pragma once

#include "Platform/Values/Value.h"

namespace zorvane::platform::archive {

// The number of a decimal number's entry: an integer where it is a whole one of 64 bits, else a double; nil where the
// entry is unsound.
Value decimalNumber(const Dictionary& entry);

}  // namespace zorvane::platform::archive
