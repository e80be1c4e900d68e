#pragma once

#include <string>

namespace zorvane::platform {

// A fresh random (version 4) UUID in its canonical upper-case form, 36 characters. Thread-safe; fork-safe.
std::string randomUUID();

}  // namespace zorvane::platform
