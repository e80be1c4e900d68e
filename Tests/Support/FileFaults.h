// File calls that fail, in place of the system's.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "Platform/Files/SystemCalls.h"

namespace zorvane::platform {

// Installs the system's calls, but without fsync, which would take most of a test's time.
inline void skipFsync() {
  static const SystemCalls calls = [] {
    SystemCalls real = kRealSystemCalls;
    real.fsync = [](int) { return 0; };
    return real;
  }();
  setSystemCalls(&calls);
}

enum class FaultKind {
  // Only the call of that number fails.
  Once,
  // That call and all after it fail.
  FromThereOn,
  // The write of that number takes half of its bytes; all later writes fail.
  ShortWrites,
};

// Installs failing calls until lifted or destroyed. Calls are numbered from 0. One at a time.
class FileFaults {
 public:
  FileFaults(int number, FaultKind kind, int error) {
    countdown_ = number;
    kind_ = kind;
    error_ = error;
    reached_ = false;
    openFiles_ = 0;
    setSystemCalls(&kCalls);
  }
  ~FileFaults() { lift(); }
  FileFaults(const FileFaults&) = delete;
  FileFaults& operator=(const FileFaults&) = delete;

  void lift() { skipFsync(); }
  // Limits every write to so many bytes; 0: no limit.
  void limitWrites(std::size_t bytes) { maximumWrite_ = bytes; }
  // Whether a call has failed.
  static bool reached() { return reached_; }
  static int openFiles() { return openFiles_; }

 private:
  static bool fail() {
    if (kind_ == FaultKind::ShortWrites) return false;
    const bool now = countdown_ == 0 || (countdown_ < 0 && reached_ && kind_ == FaultKind::FromThereOn);
    if (countdown_ >= 0) --countdown_;
    if (!now) return false;
    reached_ = true;
    errno = error_;
    return true;
  }
  static int opened(int file) {
    if (file >= 0) ++openFiles_;
    return file;
  }
  static ssize_t write(int file, const iovec* pieces, int count) {
    std::size_t limit = maximumWrite_;
    if (kind_ == FaultKind::ShortWrites && countdown_-- <= 0) {
      if (reached_) {
        errno = error_;
        return -1;
      }
      reached_ = true;
      limit = std::max<std::size_t>(pieces[0].iov_len / 2, 1);
    }
    if (fail()) return -1;
    if (limit == 0) return ::writev(file, pieces, count);
    return ::write(file, pieces[0].iov_base, std::min(limit, pieces[0].iov_len));
  }
  static int close(int file) {
    --openFiles_;
    const int result = ::close(file);  // A close that fails has closed the file.
    return fail() ? -1 : result;
  }

  static constexpr SystemCalls kCalls{
      [](const char* p, int f, mode_t m) { return fail() ? -1 : opened(::open(p, f, m)); },
      [](int d, const char* n, int f, mode_t m) { return fail() ? -1 : opened(::openat(d, n, f, m)); },
      [](int f, struct stat* s) { return fail() ? -1 : ::fstat(f, s); },
      [](int d, const char* n, struct stat* s, int f) { return fail() ? -1 : ::fstatat(d, n, s, f); },
      [](int f, void* b, std::size_t n) { return fail() ? ssize_t{-1} : ::read(f, b, n); },
      write,
      [](int) { return fail() ? -1 : 0; },
      close,
      [](int d, const char* a, int e, const char* b) { return fail() ? -1 : ::renameat(d, a, e, b); },
      [](int d, const char* n, int f) { return fail() ? -1 : ::unlinkat(d, n, f); },
      [](const char* p, mode_t m) { return fail() ? -1 : ::mkdir(p, m); },
      [](int f, int o) { return fail() ? -1 : ::flock(f, o); },
  };

  static inline int countdown_ = -1;
  static inline FaultKind kind_ = FaultKind::Once;
  static inline int error_ = 0;
  static inline bool reached_ = false;
  static inline std::size_t maximumWrite_ = 0;
  static inline int openFiles_ = 0;
};

}  // namespace zorvane::platform
