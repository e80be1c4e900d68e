// The module's costs, each beside the machine's own limit in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Workload.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace zorvane::bench {
namespace {

double percentile(std::vector<double>& sorted, double part) {
  return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

void reportPercentiles(benchmark::State& state, std::vector<double>& nanoseconds) {
  std::sort(nanoseconds.begin(), nanoseconds.end());
  state.counters["median_ns"] = benchmark::Counter(percentile(nanoseconds, 0.5), benchmark::Counter::kAvgThreads);
  state.counters["p99_ns"] = benchmark::Counter(percentile(nanoseconds, 0.99), benchmark::Counter::kAvgThreads);
}

// The caller's cost: build an event of six attributes and track it.
void CallerTracksAnEvent(benchmark::State& state) {
  ZRAnalytics& analytics = ZRAnalytics::sharedInstance();
  std::vector<double> nanoseconds;
  nanoseconds.reserve(1 << 20);
  int number = 0;
  for (auto _ : state) {
    const double start = secondsNow();
    analytics.trackEventWithProperties("Product viewed", sixAttributes(++number));
    nanoseconds.push_back((secondsNow() - start) * 1e9);
  }
  reportPercentiles(state, nanoseconds);
  if (state.thread_index() == 0) {
    platform::hostServices().scheduler->waitUntilIdle();
    ZREventsHandler::sharedInstance().clearEventsdata();
  }
}

// The limit: copy the same texts into strings and push them under a lock.
void CallerLimit(benchmark::State& state) {
  static std::mutex mutex;
  static std::vector<std::vector<std::pair<std::string, std::string>>> queue;
  std::vector<double> nanoseconds;
  nanoseconds.reserve(1 << 20);
  for (auto _ : state) {
    const double start = secondsNow();
    std::vector<std::pair<std::string, std::string>> event;
    event.reserve(6);
    for (const char* key : {"product", "sku", "price", "quantity", "member", "n"}) {
      event.emplace_back(key, "Trail running shoe");
    }
    {
      std::lock_guard lock(mutex);
      queue.push_back(std::move(event));
      if (queue.size() > 1000) queue.clear();
    }
    nanoseconds.push_back((secondsNow() - start) * 1e9);
  }
  reportPercentiles(state, nanoseconds);
}

BENCHMARK(CallerTracksAnEvent)->Iterations(50000)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(CallerLimit)->Iterations(50000)->Threads(1)->Threads(4)->UseRealTime();

// Events per second from the call to the saved file, in batches of 30, relative to writing, syncing and renaming the
// same bytes.
void EventsToTheFile(benchmark::State& state) {
  ZREventsHandler& events = ZREventsHandler::sharedInstance();
  double moduleSeconds = 0;
  double limitSeconds = 0;
  for (auto _ : state) {
    const double start = secondsNow();
    for (int i = 0; i < 3000; ++i) {
      ZRAnalytics::sharedInstance().trackEventWithProperties("Product viewed", sixAttributes(i));
      if (i % 30 == 29) {
        platform::hostServices().scheduler->waitUntilIdle();
        events.saveCurrentBatch();
      }
    }
    moduleSeconds += secondsNow() - start;
    const auto size = std::filesystem::file_size(events.eventsPlistFilePath());
    for (std::size_t save = 1; save <= 100; ++save) limitSeconds += secondsToWriteSyncRename(size * save / 100);
    events.clearEventsdata();
  }
  state.counters["events_per_s"] = static_cast<double>(state.iterations()) * 3000 / moduleSeconds;
  state.counters["times_limit"] = moduleSeconds / limitSeconds;
}
BENCHMARK(EventsToTheFile)->Unit(benchmark::kMillisecond)->Iterations(3);

std::string backlogFile(int batches) {
  const std::string path = workFolder() + "/backlog-" + std::to_string(batches) + ".plist";
  std::filesystem::remove(path);
  platform::PropertyListDictionarySnapshot file;
  for (int i = 0; i < batches; ++i) {
    const std::string batchID = std::to_string(1795255200000 + i) + "-0B5B3C8E-9C1B-4E55-8D5A-1F6B3C8E9C1B";
    file = file.withEntry(batchID, batchOf30(batchID, i * 30));
  }
  if (batches != 0) (void)platform::replaceFileAtomically(path, file.pieces());
  return path;
}

// Saving a batch of 30 events while so many batches wait, relative to writing as many bytes.
void SaveOverABacklog(benchmark::State& state) {
  const auto batches = static_cast<int>(state.range(0));
  ZRBatchFile file(backlogFile(batches));
  (void)file.load();
  double saveSeconds = 0;
  double limitSeconds = 0;
  int number = 0;
  for (auto _ : state) {
    const std::string batchID = std::to_string(1795355200000 + ++number) + "-0B5B3C8E-9C1B-4E55-8D5A-1F6B3C8E9C1B";
    const Dictionary batch = batchOf30(batchID, number);
    const double start = secondsNow();
    if (file.store({{batchID, batch}}) != ZRBatchFile::Outcome::Done) state.SkipWithError("the save failed");
    saveSeconds += secondsNow() - start;
    limitSeconds += secondsToWriteSyncRename(std::filesystem::file_size(file.path()));
  }
  state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(file.path()));
  state.counters["times_limit"] = saveSeconds / limitSeconds;
}
BENCHMARK(SaveOverABacklog)->Arg(0)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(20);

// Opening a file of 1,000 batches and counting their events, relative to reading its bytes.
void ReadABacklog(benchmark::State& state) {
  const std::string path = backlogFile(1000);
  double openSeconds = 0;
  double limitSeconds = 0;
  for (auto _ : state) {
    double start = secondsNow();
    ZRBatchFile file(path);
    const auto stored = file.load();
    std::size_t events = 0;
    for (const ZRStoredBatch& batch : *stored) events += batch.eventCount();
    if (events != 30000) state.SkipWithError("events are missing");
    openSeconds += secondsNow() - start;
    start = secondsNow();
    const auto bytes = platform::readFile(path, 1u << 30);
    benchmark::DoNotOptimize(bytes.value().data());
    limitSeconds += secondsNow() - start;
  }
  state.counters["times_limit"] = openSeconds / limitSeconds;
}
BENCHMARK(ReadABacklog)->Unit(benchmark::kMillisecond)->Iterations(20);

// Encoding a stored batch as JSON, relative to copying as many bytes.
void EncodeABody(benchmark::State& state) {
  ZRBatchFile file(backlogFile(1));
  const Value events = file.load()->front().info().objectForKey("events");
  std::string body;
  std::string copy;
  double encodeSeconds = 0;
  double limitSeconds = 0;
  for (auto _ : state) {
    double start = secondsNow();
    body.clear();
    platform::appendJSON(events, body);
    benchmark::DoNotOptimize(body.data());
    encodeSeconds += secondsNow() - start;
    start = secondsNow();
    copy.assign(body);
    benchmark::DoNotOptimize(copy.data());
    limitSeconds += secondsNow() - start;
  }
  state.counters["MB_per_s"] =
      static_cast<double>(body.size()) * static_cast<double>(state.iterations()) / encodeSeconds / 1e6;
  state.counters["times_limit"] = encodeSeconds / limitSeconds;
}
BENCHMARK(EncodeABody)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zorvane::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  zorvane::bench::startModule();
  benchmark::RunSpecifiedBenchmarks();
  zorvane::bench::removeWorkFolder();
  return 0;
}
