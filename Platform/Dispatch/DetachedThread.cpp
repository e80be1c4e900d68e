#include "Platform/Dispatch/DetachedThread.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

namespace zorvane::platform {

bool startDetachedThread([[maybe_unused]] const char* name, Task body) noexcept {
  sigset_t blocked, before;
  sigfillset(&blocked);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF}) {
    sigdelset(&blocked, signal);
  }
  // A thread inherits the mask of the one that starts it.
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  bool started = false;
  try {
    std::thread([name, body = std::move(body)]() mutable {
#if defined(__linux__)
      pthread_setname_np(pthread_self(), name);
#else
      (void)name;
#endif
      body();
    }).detach();
    started = true;
  } catch (const std::system_error&) {
  } catch (const std::bad_alloc&) {
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

}  // namespace zorvane::platform
