#pragma once

#include <functional>
#include <string_view>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The XML encoding of property lists, in UTF-8, UTF-16, ASCII or Latin-1.
// With take, each pair of a dictionary at the root goes to it instead, and the limit of values holds for each; the
// result is then an empty dictionary.
Result<Value> parseXMLPropertyList(std::string_view bytes,
                                   const std::function<void(std::string_view key, const Value&)>& take = nullptr);

}  // namespace zorvane::platform
