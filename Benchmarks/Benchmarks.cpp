// What reading and encoding stored batches cost, each beside the machine's own limit in the same run.
#include <benchmark/benchmark.h>

#include <string>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Workload.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"

namespace zorvane::bench {
namespace {

std::string backlogFile(int batches) {
  writeBacklog(workFolder(), batches, 30);
  return batchFilePath(workFolder());
}

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
  const Value events = file.load()->front().parts().events;
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
  zorvane::bench::startModule({.folder = zorvane::bench::workFolder()});
  benchmark::RunSpecifiedBenchmarks();
  zorvane::bench::removeWorkFolder();
  return 0;
}
