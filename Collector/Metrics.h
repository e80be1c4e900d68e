// What the server counts since its start, as text for Prometheus.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zorvane::collector {

// What became of a POST.
enum class Outcome {
  Accepted,
  Duplicate,
  Failed,  // an error of this program or its database
  // The rest are refused.
  Malformed,
  ForeignPage,
  UnknownPath,
  IncompleteBody,
  TooLarge,
  Busy,
  NotJSON,
  WrongShape,
  SignatureMissing,
  SignatureWrong,
  Injected,
  NotAcknowledged,  // by the stream
};
inline constexpr std::size_t kOutcomes = 15;

// What became of a message of the stream.
enum class Consumed { Stored, Duplicate, Unreadable, Failed };
inline constexpr std::size_t kConsumed = 4;

inline constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

// Thread-safe. No call waits.
class Metrics {
 public:
  void count(Outcome outcome) { add(posts_[static_cast<std::size_t>(outcome)], 1); }
  // A response that was left out on purpose.
  void countDropped() { add(dropped_, 1); }
  // The time from a checked request to its commit, or to the stream's acknowledgement.
  void addStoreTime(std::chrono::nanoseconds time);

  void count(Consumed consumed) { add(consumed_[static_cast<std::size_t>(consumed)], 1); }
  // A message of the stream that was delivered before.
  void countRedelivered() { add(redelivered_, 1); }
  // The messages of the stream that wait to be delivered.
  void setPending(std::uint64_t number) { pending_.store(number, std::memory_order_relaxed); }

  // In the text exposition format 0.0.4: zrcollector_requests_total{result, reason},
  // zrcollector_injected_faults_total{fault} and the histogram zrcollector_store_duration_seconds. Of a collector that
  // reads a stream also zrcollector_stream_messages_total{result}, zrcollector_stream_redelivered_total and
  // zrcollector_stream_pending.
  std::string text(bool readsStream = false) const;

 private:
  using Counter = std::atomic<std::uint64_t>;
  static void add(Counter& counter, std::uint64_t number) { counter.fetch_add(number, std::memory_order_relaxed); }

  static constexpr std::size_t kBuckets = 14;  // the last has no bound
  std::array<Counter, kOutcomes> posts_{};
  Counter dropped_{0};
  std::array<Counter, kConsumed> consumed_{};
  Counter redelivered_{0}, pending_{0};
  std::array<Counter, kBuckets> storeTimes_{};
  Counter storeNanoseconds_{0};
};

}  // namespace zorvane::collector
