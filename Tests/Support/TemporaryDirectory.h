#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace zorvane::platform {

// A directory of the test's own, removed with all its content at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = testing::TempDir() + "zrXXXXXX";
    path_ = ::mkdtemp(pattern.data());
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }
  std::size_t entries() const {
    const std::filesystem::directory_iterator all(path_);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }

 private:
  std::string path_;
};

}  // namespace zorvane::platform
