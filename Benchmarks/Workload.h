// What the benchmarks measure with: a host in a folder of its own, typical events, the machine's own limits.
#pragma once

#include <memory>
#include <string>

#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane::bench {

// The folder of this run, made at the first call and removed at the end of main.
const std::string& workFolder();
void removeWorkFolder();
void startModule();

// Six attributes, as an application gives them.
std::shared_ptr<ZRProperties> sixAttributes(int number);
// A batch of 30 recorded events.
Dictionary batchOf30(const std::string& batchID, int firstNumber);

double secondsNow();
// The machine's limit of a save: so many bytes written to a new file, synced and renamed over the old one.
double secondsToWriteSyncRename(std::size_t bytes);

}  // namespace zorvane::bench
