#include "Platform/Dispatch/UncaughtHandler.h"

#include <utility>

namespace zorvane::platform {

void UncaughtHandler::set(Handler handler) {
  // Takes over the old handler and destroys it after the lock is released.
  auto shared = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
  MutexLock lock(mutex_);
  handler_.swap(shared);
}

void UncaughtHandler::report(std::exception_ptr exception) noexcept {
  std::shared_ptr<const Handler> handler;
  {
    MutexLock lock(mutex_);
    handler = handler_;
  }
  if (!handler) return;
  try {
    (*handler)(std::move(exception));
  } catch (...) {
  }
}

}  // namespace zorvane::platform
