#include "Host/Interruption.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace zorvane::host {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLongestPoll{3'600'000};

std::atomic<bool> interrupted{false};
int ends[2] = {-1, -1};

void onInterruption(int /*signal*/) {
  const int error = errno;
  interrupted = true;
  [[maybe_unused]] const ssize_t count = ::write(ends[1], "", 1);
  errno = error;
}

}  // namespace

void noteInterruption() {
  struct sigaction old {};
  // A shell that starts the program in the background lets it ignore Ctrl-C.
  if (::sigaction(SIGINT, nullptr, &old) != 0 || old.sa_handler == SIG_IGN) return;
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  struct sigaction action {};
  action.sa_handler = onInterruption;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  ::sigaction(SIGINT, &action, nullptr);
}

bool isInterrupted() {
  return interrupted;
}

int interruptionDescriptor() {
  return ends[0];
}

void sleepUninterrupted(std::chrono::duration<double> time) {
  const steady_clock::time_point start = steady_clock::now();
  while (!isInterrupted()) {
    const std::chrono::duration<double> left = time - (steady_clock::now() - start);
    if (left.count() <= 0) return;
    const auto wait = std::min<std::chrono::duration<double>>(left, kLongestPoll);
    pollfd entry{interruptionDescriptor(), POLLIN, 0};
    ::poll(&entry, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(wait).count()));
  }
}

}  // namespace zorvane::host
