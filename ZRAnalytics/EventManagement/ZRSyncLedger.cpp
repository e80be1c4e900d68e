#include "ZRAnalytics/EventManagement/ZRSyncLedger.h"

#include <algorithm>
#include <utility>

#include "Platform/Text/NumberText.h"

namespace zorvane {

ZRSyncLedger::Arrival ZRSyncLedger::arrive(const ZRFlush& flush) {
  if (!isRunning_) {
    isRunning_ = true;
    isReset_ = flush.reset;
    batches_.clear();
    return Arrival::Start;
  }
  if (!flush.reset) return Arrival::Reload;
  parked_ = flush;
  return Arrival::Park;
}

void ZRSyncLedger::load(const std::vector<std::string>& batchIDs) {
  for (auto& [id, state] : batches_) state = State::Settled;
  for (const std::string& id : batchIDs) batches_[id] = State::Waiting;
}

void ZRSyncLedger::settle(const std::string& batchID) {
  const auto found = batches_.find(batchID);
  if (found != batches_.end()) found->second = State::Settled;
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

bool ZRSyncLedger::isOlder(std::string_view batchID, std::string_view otherID) {
  return platform::leadingInteger(batchID).value_or(0) < platform::leadingInteger(otherID).value_or(0);
}

}  // namespace zorvane
