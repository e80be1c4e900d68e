#include "ZRAnalytics/EventManagement/ZRSyncLedger.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Platform/Text/NumberText.h"

namespace zorvane {

ZRSyncLedger::Arrival ZRSyncLedger::arrive(const ZRFlush& flush) {
  if (!isRunning_) {
    isRunning_ = true;
    isReset_ = flush.reset;
    return Arrival::Start;
  }
  if (!flush.reset) return Arrival::Reload;
  parked_ = flush;
  return Arrival::Park;
}

void ZRSyncLedger::load(const std::vector<std::string_view>& batchIDs) {
  Dictionary loaded;
  loaded.reserve(batchIDs.size());
  for (const std::string_view id : batchIDs) loaded.set(id, isSettled(id));
  batches_ = std::move(loaded);
}

bool ZRSyncLedger::isSettled(std::string_view batchID) const {
  const Value* settled = batches_.find(batchID);
  return settled && *settled->asBool();
}

void ZRSyncLedger::respond(ZRSyncRun& run, const std::string& batchID, bool accepted) {
  ++run.responses;
  if (!accepted) return;
  ++run.accepted;
  settle(batchID);
}

std::size_t ZRSyncLedger::waiting() const {
  return static_cast<std::size_t>(
      std::count_if(batches_.begin(), batches_.end(), [](const auto& batch) { return !*batch.value.asBool(); }));
}

Dictionary ZRSyncLedger::settled() const {
  Dictionary settled;
  for (const auto& [id, isSettled] : batches_) {
    if (*isSettled.asBool()) settled.set(id, true);
  }
  return settled;
}

std::optional<ZRFlush> ZRSyncLedger::finish() {
  isRunning_ = false;
  return std::exchange(parked_, std::nullopt);
}

ZRSyncLedger::End ZRSyncLedger::end(bool reset) const {
  if (waiting() == 0) return End::RemoveAll;
  return reset ? End::KeepAll : End::KeepRefused;
}

std::vector<std::size_t> ZRSyncLedger::oldestFirst(const std::vector<std::string_view>& batchIDs) {
  std::vector<std::pair<std::int64_t, std::size_t>> order;
  order.reserve(batchIDs.size());
  for (const std::string_view id : batchIDs) order.emplace_back(platform::leadingInteger(id).value_or(0), order.size());
  std::sort(order.begin(), order.end());
  std::vector<std::size_t> positions;
  positions.reserve(order.size());
  for (const auto& [milliseconds, position] : order) positions.push_back(position);
  return positions;
}

}  // namespace zorvane
