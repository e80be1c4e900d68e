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

// Plays on the calling thread, which must not be the main thread or a queue's. When it returns, all queues are idle and
// all requests have their responses. Returns the exit status; errors go to standard error.
int playScript(Runtime& runtime, LineReader& script, bool quiet);

}  // namespace zorvane::host
