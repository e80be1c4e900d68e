// Values and files for the tests of property lists.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The number behind the text.
std::string numbered(const char* text, int number);

// A binary property list put together by hand: objects as bytes, one-byte references, two-byte offsets.
std::string binaryFile(const std::vector<std::string>& objects, std::size_t top = 0);

// A value of any kind that a property list can hold, the same for the same generator state.
Value randomPropertyListValue(std::mt19937& random, int depth = 0);

// What python's property-list module makes of the file, as JSON with sorted keys: dates as "date:" and seconds since
// 1970, data as "data:" and hexadecimal digits, a UID as "uid:" and its number. The reason where it refuses the file.
std::string readByPython(std::string_view file);

}  // namespace zorvane::platform
