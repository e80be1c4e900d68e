// The command line.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace zorvane::collector {

struct Options {
  int port = 0;          // 0: any free one
  std::string database;  // a file; empty: in memory
  std::string record;    // a file; empty: none
  bool quiet = false;
  bool help = false;
  // Faults on purpose. Zero: none.
  std::uint64_t failEvery = 0;
  std::uint64_t dropEvery = 0;
  std::uint64_t delayMilliseconds = 0;
};

// What is wrong with the command line, in one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes the arguments without the program's name. Throws UsageError.
Options parseOptions(const std::vector<std::string>& arguments);

extern const char* const kUsage;

}  // namespace zorvane::collector
