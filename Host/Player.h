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
// Only when it is asked for: the script was played, and the batch of a refused or failed request is still unsent.
inline constexpr int kStatusUnsent = 4;

// Plays on the calling thread, which must not be the main thread or a queue's. Ctrl-C ends the script after the current
// action. When it returns, all queues are idle and all requests have their responses. Returns the exit status; errors
// go to standard error, and how many events were lost by Ctrl-C.
int playScript(Runtime& runtime, LineReader& script, bool quiet, bool strict);

}  // namespace zorvane::host
