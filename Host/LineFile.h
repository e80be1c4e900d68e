// Writes JSON lines to a descriptor.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Values/Value.h"

namespace zorvane::host {

// Thread-safe: lines of several threads do not mix. Unbuffered: the line is written when the call returns.
class LineFile {
 public:
  explicit LineFile(int descriptor) : descriptor_(descriptor) {}
  LineFile(const LineFile&) = delete;
  LineFile& operator=(const LineFile&) = delete;

  void write(const platform::Dictionary& line);
  // One line of JSON, without the line break.
  void writeText(std::string line);

  // Whether a write has failed; nothing is written after that.
  bool failed() const { return failed_.load(); }

 private:
  const int descriptor_;
  platform::Mutex mutex_;
  std::atomic<bool> failed_{false};
};

}  // namespace zorvane::host
