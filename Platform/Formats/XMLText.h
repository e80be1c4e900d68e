// Converts the texts of elements of an XML property list to values; nullopt for malformed text.
#pragma once

#include <optional>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Blanks and a sign in front, decimal or hexadecimal ("0x"), from -2^63 to 2^64-1.
std::optional<Value> integerOfXMLText(std::string_view text);
// Blanks in front, a decimal number or nan, inf, infinity in any case.
std::optional<Value> realOfXMLText(std::string_view text);
// yyyy-MM-ddTHH:mm:ssZ, in the years 0 to 9999.
std::optional<Value> dateOfXMLText(std::string_view text);
// Base64 with blanks anywhere.
std::optional<Value> dataOfXMLText(std::string_view text);

}  // namespace zorvane::platform
