// Lookups that know no difference between a missing key and a null marker.
#pragma once

#include <string_view>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// The value under the key; nil when it is missing or the null marker.
Value validObjectForKey(const Dictionary& dictionary, std::string_view key);
// The value at a dotted path through nested dictionaries; nil when any step is missing, null or no dictionary.
Value validObjectForKeyPath(const Dictionary& dictionary, std::string_view path);
// Stores a value that is not nil.
void setObjectNilHandledForKey(Dictionary& dictionary, Value value, std::string_view key);

}  // namespace zorvane
