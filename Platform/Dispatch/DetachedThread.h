// Threads that live as long as they have work, and are never joined.
#pragma once

#include "Platform/Dispatch/Task.h"

namespace zorvane::platform {

// The thread takes no signals but those of its own faults and the profiler's: a host's handlers run on the host's
// threads. The name, of up to 15 characters, is for debuggers. The body must not throw. False, and the body is gone,
// when the system has no thread to give.
[[nodiscard]] bool startDetachedThread(const char* name, Task body) noexcept;

}  // namespace zorvane::platform
