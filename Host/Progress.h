// Progress of a long script, on the terminal.
#pragma once

#include <chrono>
#include <cstdint>

namespace zorvane::host {

// One line on standard error that is overwritten. Disabled if standard error is not a terminal, or if output lines go
// to a terminal too.
class Progress {
 public:
  explicit Progress(bool outputIsQuiet);

  // Whether to show() again: after the first second, then five times a second.
  bool isDue();
  void show(std::int64_t lines, std::uint64_t events, std::uint64_t requests);
  // Clears the line.
  void finish();

 private:
  using Time = std::chrono::steady_clock::time_point;
  const bool enabled_;
  const Time start_;
  Time next_;
  bool shown_ = false;
};

}  // namespace zorvane::host
