// Where exceptions go that nobody else catches.
#pragma once

#include <exception>
#include <functional>
#include <memory>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane::platform {

// Thread-safe. Without a handler exceptions are ignored.
class UncaughtHandler {
 public:
  using Handler = std::function<void(std::exception_ptr)>;

  void set(Handler handler);
  // Calls the handler with no lock held; what the handler itself throws is dropped.
  void report(std::exception_ptr exception) noexcept;

  // Runs the work; what it throws is reported.
  template <typename Work>
  void guard(Work&& work) noexcept {
    try {
      work();
    } catch (...) {
      report(std::current_exception());
    }
  }

 private:
  Mutex mutex_;
  std::shared_ptr<const Handler> handler_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane::platform
