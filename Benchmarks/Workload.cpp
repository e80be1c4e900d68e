#include "Workload.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::bench {
namespace {

constexpr int kMostAttributes = 100;

class InstantTransport final : public NetworkTransport {
 public:
  explicit InstantTransport(bool online) : online_(online) {}
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    TransportResponse response;
    if (online_) {
      (void)request.makeBody();
      response.status = 200;
    } else {
      response.error = "offline";
    }
    completion(response);
  }

 private:
  const bool online_;
};

void require(bool good, const char* what) {
  if (good) return;
  std::perror(what);
  std::exit(1);
}

}  // namespace

void startModule(ModuleSetup setup) {
  platform::HostServices host;
  host.directories = {setup.folder + "/Documents", setup.folder + "/Library", setup.folder + "/Defaults"};
  host.clock = std::move(setup.clock);
  require(platform::configureHost(std::move(host)), "configureHost");
  CoreSetup core;
  core.endpoint = std::move(setup.endpoint);
  core.appId = "BENCH";
  core.remoteConfiguration = {{"periodic_flush_enabled", false}, {"event_batch_count", setup.batchSize}};
  core.transport = std::move(setup.transport);
  if (setup.journalBytes != 0) core.journal = makeEventJournal({.bytes = setup.journalBytes});
  configureCore(std::move(core));
  ZRAnalytics::sharedInstance().initializeAnalytics();
}

std::shared_ptr<NetworkTransport> makeTransport(bool online) {
  return std::make_shared<InstantTransport>(online);
}

std::shared_ptr<ZRProperties> sixAttributes(int number) {
  return ZRProperties::initWithAttributes({{"product", "Trail running shoe"},
                                           {"sku", "TR-2041-43"},
                                           {"color", "red"},
                                           {"quantity", number},
                                           {"price", 119.95},
                                           {"member", true}});
}

std::shared_ptr<ZRProperties> manyAttributes(int number, int count) {
  static const auto names = [] {
    std::vector<std::string> made;
    for (int i = 0; i < kMostAttributes; ++i) made.push_back("attribute " + std::to_string(i));
    return made;
  }();
  Dictionary attributes;
  for (int i = 0; i < std::min(count, kMostAttributes); ++i) {
    const std::string& name = names[static_cast<std::size_t>(i)];
    if (i % 6 < 3) attributes.set(name, "Trail running shoe");
    if (i % 6 == 3) attributes.set(name, number);
    if (i % 6 == 4) attributes.set(name, 119.95);
    if (i % 6 == 5) attributes.set(name, true);
  }
  return ZRProperties::initWithAttributes(std::move(attributes));
}

Dictionary makeBatch(const std::string& batchID, int firstNumber, int events) {
  Array records;
  for (int i = 0; i < events; ++i) {
    const auto properties = sixAttributes(firstNumber + i);
    records.emplace_back(
        ZREventsHandler::sharedInstance().getEventDictForEventAndProperties("Product viewed", properties.get()));
  }
  return {{"events", std::move(records)},
          {"batch_id", batchID},
          {"request_time", "2026-11-21T10:00:00.000Z"},
          {"session", Dictionary{{"session_id", "0B5B3C8E-9C1B-4E55-8D5A-1F6B3C8E9C1B"},
                                 {"start_time", "2026-11-21T10:00:00.000Z"}}},
          {"source", Array{}}};
}

void writeBacklog(const std::string& folder, int batches, int eventsPerBatch) {
  constexpr int kAtOnce = 100;  // adding an entry costs as much as there are others
  std::vector<platform::PropertyListDictionarySnapshot::Entry> entries;
  for (int i = 0; i < batches;) {
    platform::PropertyListDictionarySnapshot part;
    for (const int end = std::min(batches, i + kAtOnce); i < end; ++i) {
      const std::string batchID = std::to_string(1795255200000 + i) + "-0B5B3C8E-9C1B-4E55-8D5A-1F6B3C8E9C1B";
      part = part.withEntry(batchID, makeBatch(batchID, i * eventsPerBatch, eventsPerBatch));
    }
    entries.insert(entries.end(), part.entries().begin(), part.entries().end());
  }
  const auto file = platform::PropertyListDictionarySnapshot::ofEntries(entries);
  const std::string path = batchFilePath(folder);
  std::filesystem::remove(path);
  if (batches == 0) return;
  std::filesystem::create_directories(folder + "/Documents");
  require(static_cast<bool>(platform::replaceFileAtomically(path, file.pieces())), path.c_str());
}

std::string batchFilePath(const std::string& folder) {
  return folder + "/Documents/ZorvaneBatchEvents.plist";
}

const std::string& workFolder() {
  static const std::string folder = [] {
    std::string pattern = (std::filesystem::current_path() / "zr-bench-XXXXXX").string();
    require(mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    return pattern;
  }();
  return folder;
}

void removeWorkFolder() {
  std::filesystem::remove_all(workFolder());
}

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double processorSeconds() {
  rusage usage{};
  require(getrusage(RUSAGE_SELF, &usage) == 0, "getrusage");
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

std::size_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  file >> total >> resident;
  require(static_cast<bool>(file), "/proc/self/statm");
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::uint64_t bytesWritten() {
  std::ifstream file("/proc/self/io");
  std::string name;
  std::uint64_t count = 0;
  while (file >> name >> count) {
    if (name == "wchar:") return count;
  }
  require(false, "/proc/self/io");
  return 0;
}

double secondsToWriteSyncRename(const std::string& folder, std::size_t bytes) {
  const std::string content(bytes, 'x');
  const std::string path = folder + "/limit";
  const std::string temporary = path + ".new";
  const double start = secondsNow();
  const int file = open(temporary.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
  require(file >= 0, temporary.c_str());
  std::size_t written = 0;
  while (written < bytes) {
    const ssize_t count = write(file, content.data() + written, bytes - written);
    require(count > 0, "write");
    written += static_cast<std::size_t>(count);
  }
  require(fsync(file) == 0 && close(file) == 0 && rename(temporary.c_str(), path.c_str()) == 0, "fsync");
  return secondsNow() - start;
}

double percentile(std::vector<double>& samples, double part) {
  std::sort(samples.begin(), samples.end());
  return samples[static_cast<std::size_t>(part * static_cast<double>(samples.size() - 1))];
}

}  // namespace zorvane::bench
