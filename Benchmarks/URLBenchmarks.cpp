// What the texts of URLs cost, whatever stands in them.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>

#include "Platform/HostServices.h"
#include "Support/HostileURLs.h"
#include "Workload.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"

namespace zorvane::bench {
namespace {

using testing::HostileURLs;

void HostileURLsOpenTheApplication(benchmark::State& state) {
  HostileURLs urls(1);
  double seconds = 0;
  std::size_t bytes = 0;
  for (auto _ : state) {
    const URL url = *Value(URL{urls.next()}).asURL();
    bytes += url.absoluteString.size();
    const double start = secondsNow();
    ZRSessionManager::processURL(url);
    seconds += secondsNow() - start;
  }
  platform::hostServices().scheduler->waitUntilIdle();
  state.counters["MB_per_s"] = static_cast<double>(bytes) / seconds / 1e6;
  state.counters["ns_per_url"] = seconds * 1e9 / static_cast<double>(state.iterations());
}
BENCHMARK(HostileURLsOpenTheApplication)->Iterations(1000000)->Unit(benchmark::kMicrosecond);

std::string differentItems(std::size_t length) {
  std::string text = "a:?";
  for (int i = 0; text.size() < length; ++i) text += std::to_string(i) + "=1&";
  return text;
}

// Of this thread's processor time, so that a busy machine does not spoil the ratio.
double threadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double secondsToProcess(const URL& url) {
  double best = 1e9;
  for (int round = 0; round < 7; ++round) {
    const double start = threadSeconds();
    ZRSessionManager::processURL(url);
    best = std::min(best, threadSeconds() - start);
  }
  return best;
}

// A long text against one of twice its length, of the same piece over and over (by its number; the last kind: items of
// different names). Twice the time is linear.
void URLOfTwiceTheLength(benchmark::State& state) {
  const auto kind = static_cast<std::size_t>(state.range(0));
  const auto textOf = [kind](std::size_t length) {
    if (kind == std::size(HostileURLs::kPieces)) return URL{differentItems(length)};
    const std::string_view piece = HostileURLs::kPieces[kind];
    return *Value(URL{"a:?" + HostileURLs::repeated(piece, length / piece.size())}).asURL();
  };
  constexpr std::size_t kLength = 1 << 20;
  const URL once = textOf(kLength);
  const URL twice = textOf(2 * kLength);
  double ratio = 0;
  double seconds = 0;
  for (auto _ : state) {
    seconds = secondsToProcess(once);
    ratio = secondsToProcess(twice) / seconds;
  }
  platform::hostServices().scheduler->waitUntilIdle();
  state.counters["times_as_long"] = ratio;
  state.counters["MB_per_s"] = static_cast<double>(kLength) / seconds / 1e6;
}
BENCHMARK(URLOfTwiceTheLength)
    ->DenseRange(0, static_cast<int>(std::size(HostileURLs::kPieces)))
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zorvane::bench
