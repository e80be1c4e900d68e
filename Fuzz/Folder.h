// Where a fuzz target's module keeps its files.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "Check.h"

namespace zorvane::fuzz {

// A folder of this process, made by the first call and removed at exit.
inline const std::string& temporaryFolder() {
  static const std::string* const folder = [] {
    auto* path = new std::string((std::filesystem::temp_directory_path() / "zr-fuzz-XXXXXX").string());
    check(mkdtemp(path->data()) != nullptr, "a temporary folder is made");
    return path;
  }();
  static const int registered = atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(temporaryFolder(), ignored);
  });
  (void)registered;
  return *folder;
}

}  // namespace zorvane::fuzz
