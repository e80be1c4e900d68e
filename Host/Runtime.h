// The application around the module: its services, its container, its clocks, its connection to the service.
#pragma once

#include <functional>
#include <memory>

#include "Host/CountingTransport.h"
#include "Host/HostApplication.h"
#include "Host/HostClock.h"
#include "Host/LineFile.h"
#include "Host/Options.h"
#include "Host/Trace.h"
#include "Platform/Dispatch/Scheduler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::host {

// One for the process, never destroyed. Made on the main thread; from then on the script's thread uses it.
class Runtime {
 public:
  // Makes the container, gives the host's services and sets the core up; the module is not touched. Throws UsageError
  // for what the options name and the system, or the core, refuses.
  explicit Runtime(const Options& options);
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  LineFile& output() { return output_; }
  const Trace& trace() const { return trace_; }
  HostApplication& application() { return *application_; }
  const CountingTransport& transport() const { return *transport_; }
  platform::ThreadScheduler& scheduler() { return *scheduler_; }

  // The facade, listened to by the trace from its first use on.
  ZRAnalytics& analytics();

  void onMainThread(const std::function<void()>& work) { scheduler_->mainQueue().sync(work); }
  // Sets the application's state and posts the lifecycle notification, on the main thread.
  void enterState(platform::ApplicationState state, std::string_view notification);

  // Returns when all queues are idle and all requests have been answered.
  void settle();
  // Time passes. On standing clocks from timer to timer, with everything at rest after each firing.
  void passTime(double seconds);
  // The wall clock jumps.
  void setNow(platform::Date date) { clock_->setNow(date); }

 private:
  LineFile output_;
  Trace trace_;
  std::shared_ptr<HostClock> clock_;
  // The same clock, where it stands.
  std::shared_ptr<StandingClock> standingClock_;
  std::shared_ptr<platform::ThreadScheduler> scheduler_;
  std::shared_ptr<HostApplication> application_;
  std::shared_ptr<CountingTransport> transport_;
};

}  // namespace zorvane::host
