#include "Host/Progress.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>

namespace zorvane::host {

using std::chrono::steady_clock;

Progress::Progress(bool outputIsQuiet)
    : enabled_(::isatty(STDERR_FILENO) == 1 && (outputIsQuiet || ::isatty(STDOUT_FILENO) != 1)),
      start_(steady_clock::now()),
      next_(start_ + std::chrono::seconds(1)) {}

bool Progress::isDue() {
  return enabled_ && steady_clock::now() >= next_;
}

void Progress::show(std::int64_t lines, std::uint64_t events, std::uint64_t requests) {
  const auto now = steady_clock::now();
  next_ = now + std::chrono::milliseconds(200);
  shown_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  std::fprintf(stderr, "\r%" PRId64 " lines, %" PRIu64 " events, %" PRIu64 " requests, %.0f lines/s\033[K", lines,
               events, requests, static_cast<double>(lines) / seconds);
  std::fflush(stderr);
}

void Progress::finish() {
  if (!shown_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

}  // namespace zorvane::host
