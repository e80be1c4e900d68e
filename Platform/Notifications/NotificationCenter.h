// Named notifications within the process.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/UncaughtHandler.h"

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

 private:
  struct Registration {
    ObserverId id;
    std::shared_ptr<const Observer> observer;
  };
  // Never changed once it is in the map: a post keeps the list it began with.
  using Registrations = std::shared_ptr<const std::vector<Registration>>;

  Mutex mutex_;
  std::map<std::string, Registrations, std::less<>> registrations_ ZR_GUARDED_BY(mutex_);
  std::shared_ptr<const Observer> postHook_ ZR_GUARDED_BY(mutex_);
  ObserverId lastId_ ZR_GUARDED_BY(mutex_) = 0;
  UncaughtHandler uncaught_;
};

}  // namespace zorvane::platform
