// What a host gives as functions, as the services that the module takes.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string_view>

#include "C/HostData.h"
#include "Platform/Application/Application.h"
#include "Platform/Application/DeviceServices.h"
#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/Scheduler.h"
#include "ZorvaneCore/NetworkTransport.h"
#include "ZorvaneCore/ZRLogger.h"

namespace zorvane::c {

std::shared_ptr<ZRLogSink> makeLog(zr_log log, HostDataPointer data);
std::shared_ptr<NetworkTransport> makeTransport(zr_transport send, HostDataPointer data);
platform::MainLoopOptions makeMainLoop(zr_post_task post, zr_is_main_thread isMainThread, HostDataPointer data);
std::shared_ptr<platform::LocaleService> makeLocale(zr_locale locale, HostDataPointer data);
std::shared_ptr<platform::TimeZone> makeTimeZone(zr_time_zone zone, HostDataPointer data);
std::shared_ptr<platform::AdvertisingService> makeAdvertising(zr_advertising advertising, HostDataPointer data);

// Of a host that wants to know of background tasks; else the functions are null.
struct BackgroundTaskFunctions {
  zr_begin_background_task begin = nullptr;
  zr_end_background_task end = nullptr;
  HostDataPointer data;
};

// The application: its state, and its background tasks by number. Thread-safe.
class HostApplication final : public platform::Application {
 public:
  HostApplication(zr_state state, BackgroundTaskFunctions functions);

  platform::ApplicationState state() const override { return state_.load(); }
  platform::BackgroundTaskId beginBackgroundTask(std::string_view name, std::function<void()> expiration) override;
  void endBackgroundTask(platform::BackgroundTaskId id) override;

  // Main thread. Changes the state, then posts the notification.
  void tell(zr_lifecycle_event event);
  // Runs the expiration handler on the main thread and ends the task, unless it has ended.
  void expire(platform::BackgroundTaskId id);

 private:
  std::atomic<platform::ApplicationState> state_;
  const BackgroundTaskFunctions functions_;
  platform::Mutex mutex_;
  platform::BackgroundTaskId lastTask_ ZR_GUARDED_BY(mutex_) = platform::kNoBackgroundTask;
  std::map<platform::BackgroundTaskId, std::function<void()>> tasks_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane::c
