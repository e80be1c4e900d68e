// Values and files for the tests of property lists.
#pragma once

#include <string>
#include <vector>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// The text and the number, appended. GCC 12 warns of text + std::to_string(number).
std::string numbered(const char* text, int number);

// A binary property list of objects given as bytes, with references of referenceSize bytes.
std::string binaryFile(const std::vector<std::string>& objects, std::size_t top = 0, std::size_t referenceSize = 1);

Value uid(std::size_t index);

// A keyed archive as another writer lays it out. Entry 1 is the root, a "Root" with the key "a" for entry 3 and the
// flag "flag"; more holds the entries from 3 on.
Dictionary archiveOf(const std::vector<Value>& more);
// The entry of a class.
Value classNamed(const char* name);

}  // namespace zorvane::platform
