// The one place where a host gives its own services to the module.
//
// Fill in what the host has and call configureHost() once, before using anything else of the library. Every member left
// empty has a portable default (advertising: there is no such service). The first call of hostServices() fixes the
// services for the life of the process.
#pragma once

#include <memory>
#include <string>

#include "Platform/Application/Application.h"
#include "Platform/Application/DeviceServices.h"
#include "Platform/Dispatch/Scheduler.h"
#include "Platform/Export.h"
#include "Platform/Notifications/NotificationCenter.h"
#include "Platform/Time/Clock.h"

namespace zorvane::platform {

// A relative path means one below the folder that is current when configureHost is called; it stays there when the
// process changes to another folder. Default: "Documents", "Library" and "Defaults" in $XDG_DATA_HOME/zorvane or
// $HOME/.local/share/zorvane, else in "zorvane" of the current folder.
struct Directories {
  // Batches that wait to be sent.
  std::string documents;
  // Session, attributes, choices.
  std::string library;
  // Property lists: "standard.plist", "sdk.plist", "groups/NAME.plist".
  std::string defaults;
};

// What the host gives. Every pointer may be shared with the host.
struct HostServices {
  // Default: SystemClock.
  std::shared_ptr<Clock> clock;
  // Default: real threads, the main queue on a thread of its own.
  std::shared_ptr<Scheduler> scheduler;
  // Default: a new one. The host posts its lifecycle notifications here.
  std::shared_ptr<NotificationCenter> notificationCenter;
  // Default: always active, background tasks are no-ops.
  std::shared_ptr<Application> application;
  // Default: none (advertising identifiers are not available).
  std::shared_ptr<AdvertisingService> advertising;
  // Default: the process's locale (LC_ALL, LC_MESSAGES, LANG), no display names.
  std::shared_ptr<LocaleService> locale;
  // Default: the process's time zone (TZ).
  std::shared_ptr<TimeZone> timeZone;
  // Defaults: above.
  Directories directories;
};

// Returns false and changes nothing when the services are already in use.
[[nodiscard]] ZR_PUBLIC bool configureHost(HostServices services);

// The services in use; every pointer except advertising is set. Thread-safe.
ZR_PUBLIC const HostServices& hostServices();

}  // namespace zorvane::platform
