// Gets the exceptions that tasks and observers throw.
#pragma once

#include <exception>
#include <functional>
#include <memory>

#include "Platform/Dispatch/LockedValue.h"

namespace zorvane::platform {

// Thread-safe. Without a handler exceptions are ignored.
class UncaughtHandler {
 public:
  using Handler = std::function<void(std::exception_ptr)>;

  void set(Handler handler);
  // Calls the handler with no lock held. Drops what the handler itself throws.
  void report(std::exception_ptr exception) noexcept;

  // Runs the work and reports what it throws.
  template <typename Work>
  void guard(Work&& work) noexcept {
    try {
      work();
    } catch (...) {
      report(std::current_exception());
    }
  }

 private:
  LockedValue<std::shared_ptr<const Handler>> handler_;
};

}  // namespace zorvane::platform
