// Starts the module for a fuzz target.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "Folder.h"
#include "Platform/HostServices.h"
#include "Stepping/ManualScheduler.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::fuzz {

// With a clock and a scheduler that stand still, and its files in the temporary folder.
inline void startModule(CoreSetup core = {}) {
  const std::string& folder = temporaryFolder();
  platform::HostServices host;
  const auto clock = std::make_shared<platform::ManualClock>(Date{1795255200});
  host.clock = clock;
  host.scheduler = std::make_shared<platform::ManualScheduler>(clock);
  host.directories = {folder, folder, folder};
  check(platform::configureHost(std::move(host)), "the host is configured");
  configureCore(std::move(core));
}

}  // namespace zorvane::fuzz
