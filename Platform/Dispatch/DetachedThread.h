// Threads that are never joined.
#pragma once

#include "Platform/Dispatch/Task.h"

namespace zorvane::platform {

// Runs the body, which must not throw, on a new thread. The thread blocks all signals except those of its own faults
// and the profiler's, so that a host's handlers run on the host's threads. The name, up to 15 characters, is for
// debuggers. Returns false, with the body destroyed, when the system cannot start a thread.
[[nodiscard]] bool startDetachedThread(const char* name, Task body) noexcept;

}  // namespace zorvane::platform
