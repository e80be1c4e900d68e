// The application that embeds the module: services, container, clocks, transport.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "Host/CountingTransport.h"
#include "Host/HostApplication.h"
#include "Host/HostClock.h"
#include "Host/LineFile.h"
#include "Host/Options.h"
#include "Host/Trace.h"
#include "Platform/Dispatch/Scheduler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::host {

// One per process, never destroyed. Created on the main thread, then used by the script's thread.
class Runtime {
 public:
  // Creates the container, configures the host's services and the core; does not touch the module. Throws UsageError if
  // an option names something that cannot be used.
  explicit Runtime(const Options& options);
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  LineFile& output() { return output_; }
  const Trace& trace() const { return trace_; }
  HostApplication& application() { return *application_; }
  const CountingTransport& transport() const { return *transport_; }
  platform::ThreadScheduler& scheduler() { return *scheduler_; }

  // The facade; the first call sets the trace's trigger delegates.
  ZRAnalytics& analytics();

  void onMainThread(const std::function<void()>& work) { scheduler_->mainQueue().sync(work); }
  // Sets the application's state and posts the lifecycle notification, on the main thread.
  void enterState(platform::ApplicationState state, std::string_view notification);

  // Returns when all queues are idle and all requests have their responses.
  void settle();
  // Sleeps; or moves standing clocks from timer to timer, and settles after each. Returns early on Ctrl-C.
  void passTime(double seconds);
  // Sets the wall clock.
  void setNow(platform::Date date) { clock_->setNow(date); }

  // The batches in the batch file; none if it cannot be read.
  std::optional<std::size_t> savedBatches() const;
  // The batches in the batch file whose last request was refused or failed.
  std::size_t refusedUnsentBatches();

  void noteFailedFlush() { flushFailed_ = true; }
  // Whether a request, a flush, or the saving or reading of a file has failed.
  bool anythingFailed() const {
    return flushFailed_.load() || trace_.failureLogged() || transport_->counts().failed > 0;
  }

 private:
  void noteResponse(const std::string& bid, bool success);

  LineFile output_;
  Trace trace_;
  std::shared_ptr<HostClock> clock_;
  // Null with real time; else the same object as clock_.
  std::shared_ptr<StandingClock> standingClock_;
  std::shared_ptr<platform::ThreadScheduler> scheduler_;
  std::shared_ptr<HostApplication> application_;
  std::shared_ptr<CountingTransport> transport_;
  std::mutex refusedMutex_;
  // The "meta.bid" of the requests whose last response was no success.
  std::set<std::string> refused_;
  std::atomic<bool> flushFailed_{false};
};

// The file of saved batches in the container.
std::string batchFilePath();

}  // namespace zorvane::host
