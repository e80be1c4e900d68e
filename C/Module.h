// Whether the module runs, and the calls of the host that are under way.
#pragma once

#include <functional>

#include "C/Errors.h"
#include "C/HostData.h"
#include "Platform/Application/Application.h"
#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/Scheduler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::c {

enum class Phase { New, Starting, Running, Closing, Closed };

Phase phase();

// A call of the module, as long as this object lives: zr_close waits for it. Throws the status unless the module runs.
class ModuleCall {
 public:
  ModuleCall();
  ~ModuleCall();
  ModuleCall(const ModuleCall&) = delete;
  ModuleCall& operator=(const ModuleCall&) = delete;

  ZRAnalytics* operator->() const { return &ZRAnalytics::sharedInstance(); }
};

// Throws the status before the module runs and after it has closed.
void requireModule();

// Change the phase. beginStart throws the status if the module is not new; beginClose if it does not run.
// beginClose returns when no call is under way, or after that many seconds.
void beginStart();
void endStart(bool started);
void beginClose(double seconds);
void endClose();

// Runs the work with the module as a call.
template <typename Work>
zr_status callModule(const Work& work) noexcept {
  return guarded([&] {
    const ModuleCall module;
    work(module);
  });
}

// Runs the work on the main thread: now if that is this one, else later.
void onMainThread(std::function<void()> work);

// A completion for the module; empty for null. The data is released when the module drops it.
std::function<void(bool)> completionOf(zr_completion completion, const HostDataPointer& data);

}  // namespace zorvane::c
