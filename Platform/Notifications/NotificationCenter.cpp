#include "Platform/Notifications/NotificationCenter.h"

#include <algorithm>
#include <utility>

#include "Platform/Dispatch/UncaughtHandler.h"

namespace zorvane::platform {

NotificationCenter::NotificationCenter() : uncaught_(std::make_unique<UncaughtHandler>()) {}
NotificationCenter::~NotificationCenter() = default;

// Replaced lists and functions are destroyed after the lock is released: what they hold may call back.

ObserverId NotificationCenter::addObserver(std::string_view name, Observer observer) {
  const auto shared = std::make_shared<const Observer>(std::move(observer));
  Registrations replaced;
  MutexLock lock(mutex_);
  const auto place = registrations_.find(name);
  auto list = std::make_shared<std::vector<Registration>>();
  if (place != registrations_.end()) *list = *place->second;
  list->push_back({++lastId_, shared});
  if (place == registrations_.end()) {
    registrations_.emplace(name, std::move(list));
  } else {
    replaced = std::exchange(place->second, std::move(list));
  }
  return lastId_;
}

void NotificationCenter::removeObserver(ObserverId id) {
  Registrations replaced;
  MutexLock lock(mutex_);
  for (auto place = registrations_.begin(); place != registrations_.end(); ++place) {
    const auto hasId = [id](const Registration& registration) { return registration.id == id; };
    if (std::none_of(place->second->begin(), place->second->end(), hasId)) continue;
    auto list = std::make_shared<std::vector<Registration>>(*place->second);
    std::erase_if(*list, hasId);
    replaced = std::exchange(place->second, std::move(list));
    if (place->second->empty()) registrations_.erase(place);
    return;
  }
}

void NotificationCenter::post(std::string_view name) {
  std::shared_ptr<const Observer> hook;
  Registrations observers;
  {
    MutexLock lock(mutex_);
    hook = postHook_;
    if (const auto place = registrations_.find(name); place != registrations_.end()) observers = place->second;
  }
  if (hook) uncaught_->guard([&] { (*hook)(name); });
  if (!observers) return;
  for (const Registration& registration : *observers) {
    uncaught_->guard([&] { (*registration.observer)(name); });
  }
}

void NotificationCenter::setPostHook(Observer hook) {
  auto shared = hook ? std::make_shared<const Observer>(std::move(hook)) : nullptr;
  MutexLock lock(mutex_);
  postHook_.swap(shared);
}

void NotificationCenter::setUncaughtHandler(std::function<void(std::exception_ptr)> handler) {
  uncaught_->set(std::move(handler));
}

}  // namespace zorvane::platform
