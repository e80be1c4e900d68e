// Plays a script from its first line to its last.
#pragma once

#include "Host/Runtime.h"
#include "Host/Script.h"

namespace zorvane::host {

inline constexpr int kStatusPlayed = 0;
// The output or the trace could not be written, or an exception left the module.
inline constexpr int kStatusFailed = 1;
inline constexpr int kStatusWrongUsage = 2;
inline constexpr int kStatusNotAnAction = 3;

// On the calling thread, which is neither the main thread nor one of a queue's. When it returns, everything is at rest.
// The result is the exit status; what went wrong is said on the standard error.
int playScript(Runtime& runtime, LineReader& script, bool quiet);

}  // namespace zorvane::host
