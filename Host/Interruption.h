// Ctrl-C.
#pragma once

#include <chrono>

namespace zorvane::host {

// From now on the first SIGINT is only noted; the second ends the process. Call once, before other threads start.
void noteInterruption();
bool isInterrupted();
// Readable once the process was interrupted; negative before noteInterruption().
int interruptionDescriptor();
// Returns after that time, or when the process is interrupted.
void sleepUninterrupted(std::chrono::duration<double> time);

}  // namespace zorvane::host
