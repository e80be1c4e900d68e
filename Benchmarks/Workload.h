// Shared by the programs that measure: a module in a folder of its own, typical events, the machine's own limits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Time/Clock.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/NetworkTransport.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane::bench {

struct ModuleSetup {
  // Holds "Documents", "Library" and "Defaults"; the module makes what is missing.
  std::string folder;
  std::string endpoint = "https://collect.example.com";
  std::shared_ptr<NetworkTransport> transport = nullptr;
  std::int64_t batchSize = 30;
  // Null: the machine's.
  std::shared_ptr<platform::Clock> clock = nullptr;
  // The size of its journal; 0: none.
  std::size_t journalBytes = 0;
};

// Configures and initialises the module, without a flush timer. Returns at once.
void startModule(ModuleSetup setup);

// Accepts every request after making its body, or has no network; completes on the caller's thread.
std::shared_ptr<NetworkTransport> makeTransport(bool online);

// Three short strings, an integer, a double and a boolean.
std::shared_ptr<ZRProperties> sixAttributes(int number);
// So many attributes, at most 100, of the same kinds in turn.
std::shared_ptr<ZRProperties> manyAttributes(int number, int count);
// A batch of recorded events.
Dictionary makeBatch(const std::string& batchID, int firstNumber, int events);
// Writes a batch file of so many batches into the container, as a module without a network would have left it.
void writeBacklog(const std::string& folder, int batches, int eventsPerBatch);
std::string batchFilePath(const std::string& folder);

// This process's folder for benchmarks that need one, made at the first call. main removes it.
const std::string& workFolder();
void removeWorkFolder();

double secondsNow();
// The processor time of all threads.
double processorSeconds();
std::size_t residentBytes();
// What this process has handed to write and its kin.
std::uint64_t bytesWritten();
// The machine's limit for a save: writes so many bytes to a new file in the folder, syncs it and renames it over the
// old one.
double secondsToWriteSyncRename(const std::string& folder, std::size_t bytes);
// Sorts the samples.
double percentile(std::vector<double>& samples, double part);

}  // namespace zorvane::bench
