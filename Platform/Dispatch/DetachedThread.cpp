#include "Platform/Dispatch/DetachedThread.h"

#include <pthread.h>

#include <system_error>
#include <thread>
#include <utility>

#include "Platform/Dispatch/ThreadSignals.h"

namespace zorvane::platform {

bool startDetachedThread([[maybe_unused]] const char* name, Task body) noexcept {
  const BlockedSignals blocked;
  try {
    std::thread([name, body = std::move(body)]() mutable {
#if defined(__linux__)
      pthread_setname_np(pthread_self(), name);
#else
      (void)name;
#endif
      body();
    }).detach();
    return true;
  } catch (const std::system_error&) {
  } catch (const std::bad_alloc&) {
  }
  return false;
}

}  // namespace zorvane::platform
