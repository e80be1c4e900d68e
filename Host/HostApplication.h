// The application as the module sees it: its state and its background tasks.
#pragma once

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Host/Trace.h"
#include "Platform/Application/Application.h"
#include "Platform/Dispatch/Mutex.h"

namespace zorvane::host {

// Thread-safe. Starts inactive. Identifiers of background tasks count from 1.
class HostApplication final : public platform::Application {
 public:
  explicit HostApplication(Trace& trace) : trace_(trace) {}

  platform::ApplicationState state() const override { return state_.load(); }
  void setState(platform::ApplicationState state) { state_ = state; }

  platform::BackgroundTaskId beginBackgroundTask(std::string_view name,
                                                 std::function<void()> expirationHandler) override;
  void endBackgroundTask(platform::BackgroundTaskId id) override;

  // Calls the expiration handler of the running task of that name, the last begun if there are several; of an ended
  // task does nothing. Main thread only. False if no task of that name was ever begun.
  bool expire(std::string_view name);

 private:
  struct Task {
    const std::string* name;
    platform::BackgroundTaskId id;
    std::function<void()> expirationHandler;
  };

  Trace& trace_;
  std::atomic<platform::ApplicationState> state_{platform::ApplicationState::Inactive};
  platform::Mutex mutex_;
  std::set<std::string, std::less<>> names_ ZR_GUARDED_BY(mutex_);
  // The names of all tasks begun so far, by id - 1: the trace names a task also when it is ended twice.
  std::vector<const std::string*> nameById_ ZR_GUARDED_BY(mutex_);
  std::vector<Task> running_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane::host
