// Writes what happens in the module as JSON lines, in order.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Host/LineFile.h"
#include "Platform/Notifications/NotificationCenter.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZREventTriggerDelegate.h"

namespace zorvane::host {

// Thread-safe. Without a file it only counts events. Must live until the process ends: the hooks refer to it.
class Trace {
 public:
  // Negative: no file.
  explicit Trace(int descriptor) : file_(descriptor), writes_(descriptor >= 0) {}

  // Hooks into logger, notifications and defaults stores. Call once, after configureHost().
  void hookIn();
  void hookInto(CoreSetup& setup);
  const std::shared_ptr<ZREventTriggerDelegate>& inappDelegate() const { return inapp_; }
  const std::shared_ptr<ZREventTriggerDelegate>& messagingDelegate() const { return messaging_; }

  void task(std::string_view phase, std::string_view name, std::uint64_t id);

  // Whether a write has failed; nothing is written after that.
  bool failed() const { return file_.failed(); }

  // Whether the module has logged that something could not be saved or read.
  bool failureLogged() const { return failureLogged_.load(); }

  std::uint64_t eventsRecorded() const { return eventsRecorded_.load(std::memory_order_relaxed); }

 private:
  class LogSink;
  class TriggerDelegate;

  void write(Dictionary line);

  LineFile file_;
  const bool writes_;
  std::atomic<bool> failureLogged_{false};
  std::atomic<std::uint64_t> eventsRecorded_{0};
  const std::shared_ptr<ZREventTriggerDelegate> inapp_ = makeDelegate("inapp", true);
  const std::shared_ptr<ZREventTriggerDelegate> messaging_ = makeDelegate("messaging", false);

  std::shared_ptr<ZREventTriggerDelegate> makeDelegate(std::string_view name, bool counts);
};

}  // namespace zorvane::host
