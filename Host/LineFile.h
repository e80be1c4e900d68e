// A stream of JSON lines.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Values/Value.h"

namespace zorvane::host {

// Thread-safe. Lines of several threads stand one after the other, each whole; a line is with the system when the call
// returns.
class LineFile {
 public:
  explicit LineFile(int descriptor) : descriptor_(descriptor) {}
  LineFile(const LineFile&) = delete;
  LineFile& operator=(const LineFile&) = delete;

  void write(const platform::Dictionary& line);
  // The text is one line of JSON without its end.
  void writeText(std::string line);

  // Whether the system has refused a line; nothing is written after that.
  bool failed() const { return failed_.load(); }

 private:
  const int descriptor_;
  platform::Mutex mutex_;
  std::atomic<bool> failed_{false};
};

}  // namespace zorvane::host
