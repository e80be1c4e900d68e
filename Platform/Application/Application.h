// The host's application: its state, its background tasks and the names of its lifecycle notifications.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "Platform/Export.h"

namespace zorvane::platform {

// In the platform's numbers.
enum class ApplicationState { Active = 0, Inactive = 1, Background = 2 };

// Names a background task; 0 is none.
using BackgroundTaskId = std::uint64_t;
inline constexpr BackgroundTaskId kNoBackgroundTask = 0;

// Posted by the host, on the main thread.
inline constexpr std::string_view kDidBecomeActiveNotification = "UIApplicationDidBecomeActiveNotification";
inline constexpr std::string_view kWillResignActiveNotification = "UIApplicationWillResignActiveNotification";
inline constexpr std::string_view kWillEnterForegroundNotification = "UIApplicationWillEnterForegroundNotification";
inline constexpr std::string_view kDidEnterBackgroundNotification = "UIApplicationDidEnterBackgroundNotification";
inline constexpr std::string_view kWillTerminateNotification = "UIApplicationWillTerminateNotification";

// Implemented by the host; called from any thread. The default (makePortableApplication) is always active, and its
// background tasks are no-ops with the id 0.
class Application {
 public:
  virtual ~Application() = default;
  // The state now. The host changes it before it posts the notification.
  virtual ApplicationState state() const = 0;
  // Asks the system for more time in the background. The system calls the expiration handler, on the main thread, when
  // that time is nearly up.
  virtual BackgroundTaskId beginBackgroundTask(std::string_view name, std::function<void()> expirationHandler) = 0;
  // Ending a task twice, or ending 0, has no effect.
  virtual void endBackgroundTask(BackgroundTaskId id) = 0;
};

// The default.
ZR_PUBLIC std::shared_ptr<Application> makePortableApplication();

}  // namespace zorvane::platform
