#pragma once

#include <string>
#include <string_view>

namespace zorvane::platform {

// Unicode's simple lower-case mapping, character by character, independent of the locale. Input is valid UTF-8.
std::string lowercased(std::string_view text);

}  // namespace zorvane::platform
