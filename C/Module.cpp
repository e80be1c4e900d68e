#include "C/Module.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "Platform/HostServices.h"
#include "Platform/Time/Deadline.h"

namespace zorvane::c {
namespace {

std::atomic<Phase> currentPhase{Phase::New};
// Calls under way. A call adds itself before it reads the phase; a close changes the phase before it reads the number.
std::atomic<int> calls{0};

struct Waiting {
  platform::Mutex mutex;
  platform::Condition changed;
};
Waiting& waiting() {
  static Waiting& instance = *new Waiting;
  return instance;
}

void leave() {
  if (calls.fetch_sub(1) != 1 || currentPhase.load() != Phase::Closing) return;
  platform::MutexLock lock(waiting().mutex);
  waiting().changed.notifyAll();
}

[[noreturn]] void failNotRunning(Phase now) {
  if (now == Phase::New || now == Phase::Starting) fail(ZR_ERROR_NOT_STARTED, "the module has not been started");
  fail(ZR_ERROR_CLOSED, "the module is closed");
}

}  // namespace

Phase phase() {
  return currentPhase.load();
}

ModuleCall::ModuleCall() {
  if (isInLogCallback()) fail(ZR_ERROR_CALLBACK, "a log callback must not call the module");
  calls.fetch_add(1);
  const Phase now = currentPhase.load();
  if (now == Phase::Running) return;
  leave();
  failNotRunning(now);
}

ModuleCall::~ModuleCall() {
  leave();
}

void requireModule() {
  if (isInLogCallback()) fail(ZR_ERROR_CALLBACK, "a log callback must not call the module");
  const Phase now = phase();
  if (now != Phase::Running && now != Phase::Closing) failNotRunning(now);
}

void beginStart() {
  Phase expected = Phase::New;
  if (currentPhase.compare_exchange_strong(expected, Phase::Starting)) return;
  if (expected == Phase::Starting || expected == Phase::Running) {
    fail(ZR_ERROR_STARTED, "the module has been started before");
  }
  fail(ZR_ERROR_CLOSED, "the module is closed; it starts once per process");
}

void endStart(bool started) {
  currentPhase.store(started ? Phase::Running : Phase::New);
}

void beginClose(double seconds) {
  Phase expected = Phase::Running;
  if (!currentPhase.compare_exchange_strong(expected, Phase::Closing)) failNotRunning(expected);
  const platform::Deadline deadline(seconds);
  platform::Scheduler& scheduler = *platform::hostServices().scheduler;
  const bool isMain = scheduler.mainQueue().isCurrent();
  for (;;) {
    // A call may wait for a task of the main thread, and cannot tell when.
    if (isMain) (void)scheduler.waitUntilIdle(0);
    platform::MutexLock lock(waiting().mutex);
    const double left = deadline.secondsLeft();
    if (calls.load() == 0 || left == 0) return;
    waiting().changed.waitFor(waiting().mutex, isMain ? std::min(left, 0.01) : left);
  }
}

void endClose() {
  currentPhase.store(Phase::Closed);
}

void onMainThread(std::function<void()> work) {
  platform::hostServices().scheduler->mainQueue().runOrPost(std::move(work));
}

std::function<void(bool)> completionOf(zr_completion completion, const HostDataPointer& data) {
  if (!completion) return nullptr;
  return [completion, data](bool success) {
    if (const HostCall call(data); call) completion(call.data(), success);
  };
}

}  // namespace zorvane::c
