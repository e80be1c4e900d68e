#include "Host/HostApplication.h"

#include <algorithm>
#include <utility>

namespace zorvane::host {

platform::BackgroundTaskId HostApplication::beginBackgroundTask(std::string_view name,
                                                                std::function<void()> expirationHandler) {
  platform::BackgroundTaskId id = platform::kNoBackgroundTask;
  {
    platform::MutexLock lock(mutex_);
    const std::string* const kept = &*names_.emplace(name).first;
    nameById_.push_back(kept);
    id = nameById_.size();
    running_.push_back({kept, id, std::move(expirationHandler)});
  }
  trace_.task("begin", name, id);
  return id;
}

void HostApplication::endBackgroundTask(platform::BackgroundTaskId id) {
  std::string name;
  {
    platform::MutexLock lock(mutex_);
    if (id != platform::kNoBackgroundTask && id <= nameById_.size()) name = *nameById_[id - 1];
    std::erase_if(running_, [id](const Task& task) { return task.id == id; });
  }
  trace_.task("end", name, id);
}

bool HostApplication::expire(std::string_view name) {
  Task expired{};
  {
    platform::MutexLock lock(mutex_);
    if (!names_.contains(name)) return false;
    const auto found =
        std::find_if(running_.rbegin(), running_.rend(), [name](const Task& task) { return *task.name == name; });
    if (found == running_.rend()) return true;
    expired = *found;
  }
  trace_.task("expire", name, expired.id);
  if (expired.expirationHandler) expired.expirationHandler();
  return true;
}

}  // namespace zorvane::host
