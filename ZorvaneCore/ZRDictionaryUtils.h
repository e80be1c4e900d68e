// Lookups that treat a null marker as a missing key.
#pragma once

#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// The value under the key; nil if it is missing or the null marker.
Value validObjectForKey(const Dictionary& dictionary, std::string_view key);
// The value at a dotted path through nested dictionaries; nil if any step is missing, null or no dictionary.
Value validObjectForKeyPath(const Dictionary& dictionary, std::string_view path);

}  // namespace zorvane
