// For builds without NATS.
#include "Collector/Stream.h"

namespace zorvane::collector {

namespace {

constexpr const char* kMissing =
    "this build has no NATS: install libnats-dev and zlib1g-dev, configure and build again";

}  // namespace

std::unique_ptr<Publisher> makePublisher(const std::string&, bool) {
  throw StreamError(kMissing);
}

std::unique_ptr<Consumer> startConsumer(const std::string&, bool, Store&, Metrics&, Live&) {
  throw StreamError(kMissing);
}

}  // namespace zorvane::collector
