// Named notifications within the process.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane::platform {

using ObserverId = std::uint64_t;

// Thread-safe. Observers run on the poster's thread, in the order of registration, with no lock held; an observer that
// throws costs its own call only. An observer added or removed while a notification is posted counts from the next.
class NotificationCenter {
 public:
  using Observer = std::function<void(std::string_view name)>;

  ObserverId addObserver(std::string_view name, Observer observer);
  void removeObserver(ObserverId id);
  void post(std::string_view name);

  // Called for every post before its observers run; an empty function ends it. For hosts that trace.
  void setPostHook(Observer hook);
  // Called, with no lock held, with what an observer threw. The default ignores it.
  void setUncaughtHandler(std::function<void(std::exception_ptr)> handler);
};

}  // namespace zorvane::platform
