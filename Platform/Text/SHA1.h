#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zorvane::platform {

// For request signatures that a service expects, not for security.
std::array<std::uint8_t, 20> sha1Digest(std::string_view bytes);

}  // namespace zorvane::platform
