#pragma once

#include "Platform/Values/Value.h"

namespace zorvane::platform::archive {

// The number in the entry of a decimal number: an integer if it is whole and fits 64 bits, else a double; nil if the
// entry is malformed.
Value decimalNumber(const Dictionary& entry);

}  // namespace zorvane::platform::archive
