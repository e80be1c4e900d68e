// Shared by the benchmarks: a host in its own folder, typical events, the machine's limits.
#pragma once

#include <memory>
#include <string>

#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane::bench {

// This run's folder, made at the first call. main removes it.
const std::string& workFolder();
void removeWorkFolder();
void startModule();

// Six typical attributes.
std::shared_ptr<ZRProperties> sixAttributes(int number);
// A batch of 30 recorded events.
Dictionary batchOf30(const std::string& batchID, int firstNumber);

double secondsNow();
// The machine's limit for a save: writes so many bytes to a new file, syncs it and renames it over the old one.
double secondsToWriteSyncRename(std::size_t bytes);

}  // namespace zorvane::bench
