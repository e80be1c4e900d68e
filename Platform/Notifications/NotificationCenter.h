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
#include "Platform/Export.h"

namespace zorvane::platform {

class UncaughtHandler;

// Names a registration.
using ObserverId = std::uint64_t;

// Thread-safe. Observers run on the poster's thread, in the order of registration, with no lock held. If one throws,
// the others still run. Adding or removing an observer during a post takes effect with the next post.
class ZR_PUBLIC NotificationCenter {
 public:
  // Called with the name of the notification.
  using Observer = std::function<void(std::string_view name)>;

  NotificationCenter();
  ~NotificationCenter();

  // The observer is called until it is removed.
  ObserverId addObserver(std::string_view name, Observer observer);
  // An unknown id is ignored.
  void removeObserver(ObserverId id);
  // Returns after all observers.
  void post(std::string_view name);

  // Called for every post before its observers run; an empty function removes the hook. For hosts that trace.
  void setPostHook(Observer hook);
  // The handler gets what observers and the hook throw, with no lock held. Without one, exceptions are ignored.
  void setUncaughtHandler(std::function<void(std::exception_ptr)> handler);

 private:
  struct Registration {
    ObserverId id;
    std::shared_ptr<const Observer> observer;
  };
  // Immutable once in the map, so a post keeps the list that it began with.
  using Registrations = std::shared_ptr<const std::vector<Registration>>;

  Mutex mutex_;
  std::map<std::string, Registrations, std::less<>> registrations_ ZR_GUARDED_BY(mutex_);
  std::shared_ptr<const Observer> postHook_ ZR_GUARDED_BY(mutex_);
  ObserverId lastId_ ZR_GUARDED_BY(mutex_) = 0;
  const std::unique_ptr<UncaughtHandler> uncaught_;
};

}  // namespace zorvane::platform
