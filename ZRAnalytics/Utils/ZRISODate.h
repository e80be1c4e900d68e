// Date texts as hosts write them.
#pragma once

#include <optional>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// The moment of a text "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC; absent for any other text. Throws
// ValueError for what is no text.
std::optional<Date> dateOfISOText(const Value& text);

}  // namespace zorvane
