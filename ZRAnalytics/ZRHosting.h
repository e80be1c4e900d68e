// How an application starts and ends the module.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Export.h"
#include "Platform/HostServices.h"
#include "Platform/Values/Result.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZRLogger.h"

namespace zorvane {

// What an application starts with.
struct ZRStartOptions {
  // What is left empty has a portable default.
  platform::HostServices host;
  // Address and identifier of the application, transport, remote configuration.
  CoreSetup core;
  // Null: nothing is logged.
  std::shared_ptr<ZRLogSink> log;
  // Counts only at the first start on this device. 0: the application was installed with the module. 1: an application
  // without the module was updated to one with it.
  std::int64_t appStatus = 0;
};

// Starts the module. Call it once per process, before anything else of the library. If the host's own loop is the main
// queue, call it on the main thread; elsewhere it waits until that loop runs.
//
// In this order: the log sink, the host services and the core are set. Then, on the main thread: the module is
// initialised, which begins or continues the session and sends what earlier launches left; a new SDK version is stored;
// an installation or update is tracked; a device that the service has not accepted yet is registered, and its
// attributes are sent if the remote configuration has a "device_model"; the locale is tracked. Last, if the application
// is active, the did-become-active notification is posted: the session's start is tracked.
//
// An error changes nothing but the log sink: the remote configuration is wrong, or the host services are in use. If the
// host's application throws, which is logged, or its main loop does not run the start, the module may be started in
// part.
ZR_PUBLIC platform::Status startAnalytics(ZRStartOptions options);

// A URL opened the application: call it for each, after startAnalytics. Its traffic source reaches the session once, by
// ZRAnalytics::processURL or, while the application delegate proxy is installed (remote setting
// "app_delegate_proxy_enabled", on by default), by the proxy. An absent URL is ignored. Any thread: runs on the main
// thread, later when called on another one.
ZR_PUBLIC void openURL(std::optional<URL> url);

// Ends the module's work before the process ends. If the application is active, posts the will-resign-active and
// will-terminate notifications first: session end and exit are tracked, saved and sent. An application that posts these
// itself has done so. Then saves and sends what is left, and waits until the queues are idle and the requests of the
// transport given to startAnalytics are answered; at most that many seconds, which a disk that hangs may exceed.
//
// True if the service has accepted every batch and the device's registration. What it has not accepted is saved and
// goes with the next launch. The module remains usable.
//
// Any thread, but not from a task or a completion. On the main thread, the main queue's tasks run meanwhile, its timers
// do not.
ZR_PUBLIC bool endAnalytics(double seconds);

}  // namespace zorvane
