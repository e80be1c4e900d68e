// Writes JSON lines to a descriptor.
#pragma once

#include <atomic>
#include <functional>
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
  // A line that is made piece by piece, so that it need not fit in memory: calls write, which calls its argument with
  // each piece. Other lines wait until write returns.
  using Put = std::function<void(std::string_view piece)>;
  void writePieces(const std::function<void(const Put& put)>& write);

  // Whether a write has failed; nothing is written after that.
  bool failed() const { return failed_.load(); }

 private:
  void writeBytes(std::string_view bytes) ZR_REQUIRES(mutex_);

  const int descriptor_;
  platform::Mutex mutex_;
  std::atomic<bool> failed_{false};
};

}  // namespace zorvane::host
