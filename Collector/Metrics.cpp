#include "Collector/Metrics.h"

#include <cstdio>
#include <iterator>

namespace zorvane::collector {

namespace {

// In the order of Outcome.
constexpr const char* kOutcomeLabels[] = {
    R"(result="accepted",reason="")",
    R"(result="duplicate",reason="")",
    R"(result="failed",reason="")",
    R"(result="refused",reason="malformed")",
    R"(result="refused",reason="foreign_page")",
    R"(result="refused",reason="unknown_path")",
    R"(result="refused",reason="incomplete_body")",
    R"(result="refused",reason="too_large")",
    R"(result="refused",reason="busy")",
    R"(result="refused",reason="not_json")",
    R"(result="refused",reason="wrong_shape")",
    R"(result="refused",reason="signature_missing")",
    R"(result="refused",reason="signature_wrong")",
    R"(result="refused",reason="injected")",
    R"(result="refused",reason="not_acknowledged")",
};
static_assert(std::size(kOutcomeLabels) == kOutcomes);
static_assert(static_cast<std::size_t>(Outcome::NotAcknowledged) + 1 == kOutcomes);

// In the order of Consumed.
constexpr const char* kConsumedLabels[] = {R"(result="stored")", R"(result="duplicate")", R"(result="unreadable")",
                                           R"(result="failed")"};
static_assert(std::size(kConsumedLabels) == kConsumed);

struct Bound {
  std::chrono::microseconds time;
  const char* seconds;
};
constexpr Bound kBounds[] = {
    {std::chrono::microseconds(500), "0.0005"},
    {std::chrono::milliseconds(1), "0.001"},
    {std::chrono::microseconds(2500), "0.0025"},
    {std::chrono::milliseconds(5), "0.005"},
    {std::chrono::milliseconds(10), "0.01"},
    {std::chrono::milliseconds(25), "0.025"},
    {std::chrono::milliseconds(50), "0.05"},
    {std::chrono::milliseconds(100), "0.1"},
    {std::chrono::milliseconds(250), "0.25"},
    {std::chrono::milliseconds(500), "0.5"},
    {std::chrono::seconds(1), "1"},
    {std::chrono::milliseconds(2500), "2.5"},
    {std::chrono::seconds(5), "5"},
};

void addFamily(std::string& text, const std::string& name, const char* type, const char* help) {
  text += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

void addSample(std::string& text, const std::string& name, const std::string& labels, std::uint64_t value) {
  text += name + (labels.empty() ? "" : "{" + labels + "}") + " " + std::to_string(value) + "\n";
}

}  // namespace

void Metrics::addStoreTime(std::chrono::nanoseconds time) {
  std::size_t bucket = 0;
  while (bucket < std::size(kBounds) && time > kBounds[bucket].time) ++bucket;
  add(storeTimes_[bucket], 1);
  add(storeNanoseconds_, static_cast<std::uint64_t>(time.count()));
}

std::string Metrics::text(bool readsStream) const {
  static_assert(std::size(kBounds) + 1 == kBuckets);
  std::string text, name = "zrcollector_requests_total";
  addFamily(text, name, "counter", "POST requests, by what became of them.");
  for (std::size_t i = 0; i < kOutcomes; ++i) addSample(text, name, kOutcomeLabels[i], posts_[i]);

  name = "zrcollector_injected_faults_total";
  addFamily(text, name, "counter", "Faults that --fail-every and --drop-every asked for.");
  addSample(text, name, R"(fault="failed")", posts_[static_cast<std::size_t>(Outcome::Injected)]);
  addSample(text, name, R"(fault="dropped")", dropped_);

  name = "zrcollector_store_duration_seconds";
  addFamily(text, name, "histogram", "Time to store or publish an accepted request or find it a duplicate.");
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < kBuckets; ++i) {
    count += storeTimes_[i];
    const char* bound = i < std::size(kBounds) ? kBounds[i].seconds : "+Inf";
    addSample(text, name + "_bucket", std::string("le=\"") + bound + "\"", count);
  }
  const std::uint64_t sum = storeNanoseconds_;
  char seconds[40];
  std::snprintf(seconds, sizeof seconds, "%llu.%09llu", static_cast<unsigned long long>(sum / 1'000'000'000),
                static_cast<unsigned long long>(sum % 1'000'000'000));
  text += name + "_sum " + seconds + "\n" + name + "_count " + std::to_string(count) + "\n";
  if (!readsStream) return text;

  name = "zrcollector_stream_messages_total";
  addFamily(text, name, "counter", "Messages of the stream, by what became of them.");
  for (std::size_t i = 0; i < kConsumed; ++i) addSample(text, name, kConsumedLabels[i], consumed_[i]);
  name = "zrcollector_stream_redelivered_total";
  addFamily(text, name, "counter", "Messages of the stream that were delivered before.");
  addSample(text, name, "", redelivered_);
  name = "zrcollector_stream_pending";
  addFamily(text, name, "gauge", "Messages that wait in the stream.");
  addSample(text, name, "", pending_);
  return text;
}

}  // namespace zorvane::collector
