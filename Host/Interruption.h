// Ctrl-C.
#pragma once

#include <chrono>

namespace zorvane::host {

// From now on the first SIGINT is only noted; the second ends the process. If SIGINT is ignored, it stays so. Call
// once, before other threads start.
void noteInterruption();
bool isInterrupted();
// Readable once the process was interrupted; negative before noteInterruption(), and where SIGINT is ignored.
int interruptionDescriptor();
// Returns after that time, or when the process is interrupted.
void sleepUninterrupted(std::chrono::duration<double> time);

}  // namespace zorvane::host
