#include "Platform/Dispatch/UncaughtHandler.h"

#include <utility>

namespace zorvane::platform {

void UncaughtHandler::set(Handler handler) {
  handler_.set(handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr);
}

void UncaughtHandler::report(std::exception_ptr exception) noexcept {
  const auto handler = handler_.get();
  if (!handler) return;
  try {
    (*handler)(std::move(exception));
  } catch (...) {
  }
}

}  // namespace zorvane::platform
