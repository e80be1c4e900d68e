// How far a long script is, on the terminal.
#pragma once

#include <chrono>
#include <cstdint>

namespace zorvane::host {

// One line of the standard error that is written over; nothing at all when that is no terminal, or when the output's
// own lines go to a terminal too.
class Progress {
 public:
  explicit Progress(bool outputIsQuiet);

  // Whether the line is worth writing again: not before the first second, then five times a second.
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
