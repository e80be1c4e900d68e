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

void ZRSyncLedger::load(const std::vector<std::string>& batchIDs) {
  std::unordered_map<std::string, State> loaded;
  for (const std::string& id : batchIDs) loaded[id] = isSettled(id) ? State::Settled : State::Waiting;
  batches_.swap(loaded);
}

bool ZRSyncLedger::isSettled(const std::string& batchID) const {
  const auto found = batches_.find(batchID);
  return found != batches_.end() && found->second == State::Settled;
}

void ZRSyncLedger::respond(ZRSyncRun& run, const std::string& batchID, bool accepted) {
  ++run.responses;
  if (!accepted) return;
  ++run.accepted;
  settle(batchID);
}

std::size_t ZRSyncLedger::waiting() const {
  return static_cast<std::size_t>(std::count_if(batches_.begin(), batches_.end(),
                                                [](const auto& batch) { return batch.second == State::Waiting; }));
}

std::unordered_set<std::string> ZRSyncLedger::settled() const {
  std::unordered_set<std::string> ids;
  for (const auto& [id, state] : batches_) {
    if (state == State::Settled) ids.insert(id);
  }
  return ids;
}

std::optional<ZRFlush> ZRSyncLedger::finish() {
  isRunning_ = false;
  return std::exchange(parked_, std::nullopt);
}

ZRSyncLedger::End ZRSyncLedger::end(bool reset) const {
  if (waiting() == 0) return End::RemoveAll;
  return reset ? End::KeepAll : End::KeepRefused;
}

std::vector<std::size_t> ZRSyncLedger::oldestFirst(const std::vector<std::string>& batchIDs) {
  std::vector<std::pair<std::int64_t, std::size_t>> order;
  order.reserve(batchIDs.size());
  for (const std::string& id : batchIDs) order.emplace_back(platform::leadingInteger(id).value_or(0), order.size());
  std::sort(order.begin(), order.end());
  std::vector<std::size_t> positions;
  positions.reserve(order.size());
  for (const auto& [milliseconds, position] : order) positions.push_back(position);
  return positions;
}

}  // namespace zorvane
