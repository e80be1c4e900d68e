#include "Workload.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::bench {

const std::string& workFolder() {
  static const std::string folder = [] {
    std::string pattern = (std::filesystem::current_path() / "zr-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    for (const char* name : {"Documents", "Library", "Defaults"}) {
      std::filesystem::create_directory(std::filesystem::path(pattern) / name);
    }
    return pattern;
  }();
  return folder;
}

void removeWorkFolder() {
  std::filesystem::remove_all(workFolder());
}

void startModule() {
  platform::HostServices host;
  host.directories = {workFolder() + "/Documents", workFolder() + "/Library", workFolder() + "/Defaults"};
  if (!platform::configureHost(std::move(host))) std::abort();
  CoreSetup core;
  core.appId = "BENCH";
  core.remoteConfiguration = {{"periodic_flush_enabled", false}, {"event_batch_count", 1000000}};
  configureCore(std::move(core));
  ZRAnalytics::sharedInstance().initializeAnalytics();
  platform::hostServices().scheduler->waitUntilIdle();
}

std::shared_ptr<ZRProperties> sixAttributes(int number) {
  return ZRProperties::initWithAttributes({{"product", "Trail running shoe"},
                                           {"sku", "TR-2041-43"},
                                           {"price", 119.95},
                                           {"quantity", 1},
                                           {"member", true},
                                           {"n", number}});
}

Dictionary batchOf30(const std::string& batchID, int firstNumber) {
  Array events;
  for (int i = 0; i < 30; ++i) {
    const auto properties = sixAttributes(firstNumber + i);
    events.emplace_back(
        ZREventsHandler::sharedInstance().getEventDictForEventAndProperties("Product viewed", properties.get()));
  }
  return {{"events", std::move(events)},
          {"batch_id", batchID},
          {"request_time", "2026-11-21T10:00:00.000Z"},
          {"session", Dictionary{{"session_id", "0B5B3C8E-9C1B-4E55-8D5A-1F6B3C8E9C1B"},
                                 {"start_time", "2026-11-21T10:00:00.000Z"}}},
          {"source", Array{}}};
}

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double secondsToWriteSyncRename(std::size_t bytes) {
  const std::string content(bytes, 'x');
  const std::string path = workFolder() + "/limit";
  const std::string temporary = path + ".new";
  const double start = secondsNow();
  const int file = open(temporary.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
  std::size_t written = 0;
  while (file >= 0 && written < bytes) {
    const ssize_t count = write(file, content.data() + written, bytes - written);
    if (count <= 0) std::abort();
    written += static_cast<std::size_t>(count);
  }
  if (file < 0 || fsync(file) != 0 || close(file) != 0 || rename(temporary.c_str(), path.c_str()) != 0) std::abort();
  return secondsNow() - start;
}

}  // namespace zorvane::bench
