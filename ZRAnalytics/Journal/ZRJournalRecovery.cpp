#include "ZRAnalytics/Journal/ZRJournalRecovery.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "Platform/HostServices.h"
#include "Platform/Time/DateFormat.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane::journal {
namespace {

// The events of one batch to be.
struct Group {
  std::string batchID;
  std::string_view session;
  Array records;
  std::vector<const Found*> events;
};

// Its operations do not end: what cannot be stored stays as it is, for the next launch.
class Recovery final : private ZRStoreObserver {
 public:
  Recovery(const Contents& contents, Ring& ring, ZRBatchFile& batches)
      : contents_(contents), ring_(ring), batches_(batches) {}

  bool run() {
    const bool isSaved = finishStore() && saveOthers();
    if (recovered_ > 0) {
      logLine("Journal : %@ events of an earlier launch are saved", {static_cast<std::int64_t>(recovered_)});
    }
    if (contents_.damaged > 0) {
      logLine("Journal : %@ records are damaged and lost", {static_cast<std::int64_t>(contents_.damaged)});
    }
    if (unreadable_ > 0) {
      logLine("Journal : %@ events cannot be read and are lost", {static_cast<std::int64_t>(unreadable_)});
    }
    return isSaved;
  }

 private:
  // The identifier of the batch that the event may be in; empty: it is in none.
  std::string_view armedBatch(const Found& event) const {
    const bool isArmed = event.record.store != 0 && event.record.store == contents_.header->armed;
    return isArmed ? textOf(event.record.batchID, sizeof event.record.batchID) : std::string_view();
  }

  bool finishStore() {
    std::vector<Group> groups = groupsOf(true);
    if (groups.empty()) return true;
    const auto stored = batches_.load();
    if (!stored) return false;
    std::unordered_set<std::string> present;
    for (const ZRStoredBatch& batch : *stored) present.insert(batch.id());
    std::erase_if(groups, [&](const Group& group) { return present.contains(group.batchID); });
    operation_ = {contents_.header->armed};
    if (!store(groups)) return false;
    ring_.stored(operation_);
    return true;
  }

  bool saveOthers() {
    std::vector<Group> groups = groupsOf(false);
    if (groups.empty()) return true;
    operation_ = ring_.beginStore();
    for (Group& group : groups) {
      group.batchID = ZRAnalyticsUtils::createBatchIdentifier();
      for (const Found* event : group.events) ring_.assignFound(operation_, *event, group.batchID);
    }
    ring_.arm(operation_);
    if (!store(groups)) return false;
    ring_.endStore(operation_);
    return true;
  }

  void stored() noexcept override { ring_.stored(operation_); }

  // The events that may still be tracked: those of the armed operation by batch, or all others by session.
  std::vector<Group> groupsOf(bool isArmed) {
    std::vector<Group> groups;
    std::unordered_map<std::string, std::size_t> numberOf;
    for (const Found& found : contents_.events) {
      const std::string_view batchID = armedBatch(found);
      if (batchID.empty() == isArmed) continue;
      Dictionary record = recordOf(found);
      if (record.empty()) continue;
      const std::string_view session = sessionOf(contents_, found.record);
      const std::string key =
          isArmed ? std::string(batchID) : std::to_string(reinterpret_cast<std::uintptr_t>(session.data()));
      const auto [at, isNew] = numberOf.emplace(key, groups.size());
      if (isNew) groups.push_back({std::string(batchID), session, {}, {}});
      groups[at->second].records.emplace_back(std::move(record));
      groups[at->second].events.push_back(&found);
    }
    return groups;
  }

  // Empty when the event may not be tracked any more.
  Dictionary recordOf(const Found& found) {
    if (!ZRCoreUtils::isSDKEnabled()) return {};
    auto event = readEvent(found.payload);
    if (!event || !event->name.isString()) {
      ++unreadable_;
      return {};
    }
    const ZREventsHandler& handler = ZREventsHandler::sharedInstance();
    const Record& kept = found.record;
    const bool isRecorded = kept.state == kRecorded;
    const bool isAllowed = kept.kind == kAllowedEvent || (isRecorded && kept.isAllowed != 0);
    const std::string_view name = *event->name.asString();
    if (isRecorded ? !isAllowed && !handler.isTrackingAllowed(name) : !isAccepted(name, isAllowed)) return {};
    Dictionary record = handler.getEventDictForEventAndProperties(event->name, &event->properties);
    const Date date{kept.time};
    Text gmtTime(isRecorded ? textOf(kept.times[0], sizeof kept.times[0]) : std::string_view());
    if (gmtTime.empty()) gmtTime = platform::isoTextOfDate(date, 0, "Z");
    Text localTime(isRecorded ? textOf(kept.times[1], sizeof kept.times[1]) : std::string_view());
    if (localTime.empty()) localTime = ZRDateUtils::getLocalTime(date);
    record.set(kReportsKeyGMT_Time, std::move(gmtTime));
    record.set(kReportsKeyDevice_Time, std::move(localTime));
    return record;
  }

  static bool isAccepted(std::string_view name, bool isAllowed) {
    if (!isAllowed) return ZREventsHandler::sharedInstance().shouldEventBeTrackedWithName(name);
    if (!ZRConfigDataManager::sharedInstance().isEventBlackListed(name)) return true;
    logLine("Blacklisted Event: %@", {name});
    return false;
  }

  // What the batch of that group holds beside its events.
  static Dictionary restOf(const Group& group) {
    Dictionary rest;
    rest.setObjectNilHandledForKey(requestTimeNow(), kBatchKeyRequestTime);
    std::string_view payload = group.session;
    if (const auto session = takeValue(payload); session && session->isDictionary()) {
      for (const auto& [key, value] : *session->asDictionary()) rest.set(key, value);
    }
    return rest;
  }

  // Replaces the groups by those whose batches can be stored. Nothing of the groups is in the batch file, so that their
  // events may get other identifiers in the same operation.
  void split(std::vector<Group>& groups) {
    std::vector<Group> parts;
    for (const Group& group : groups) {
      const Dictionary rest = restOf(group);
      for (std::size_t first = 0, count = 0; first < group.records.size(); first += std::max<std::size_t>(count, 1)) {
        count = platform::countForEntry(group.records, first, rest);
        if (count == 0) {
          logLine("Batch Events plist : an event is too large to be saved and is dropped");
          continue;
        }
        Group& part = parts.emplace_back();
        part.batchID = ZRAnalyticsUtils::createBatchIdentifier();
        part.session = group.session;
        for (std::size_t i = first; i < first + count; ++i) {
          part.records.push_back(group.records[i]);
          part.events.push_back(group.events[i]);
          ring_.assignFound(operation_, *group.events[i], part.batchID);
        }
      }
    }
    groups = std::move(parts);
    ring_.arm(operation_);
  }

  // False when the batch file cannot be read or written.
  bool store(std::vector<Group>& groups) {
    for (const bool isSplit : {false, true}) {
      if (isSplit) split(groups);
      Dictionary entries;
      std::size_t count = 0;
      for (const Group& group : groups) {
        Dictionary entry = restOf(group);
        entry.set(kBatchKeyEvents, group.records);
        entry.set(kBatchKeyBatchID, group.batchID);
        entries.set(group.batchID, std::move(entry));
        count += group.records.size();
      }
      const ZRBatchFile::Outcome outcome = batches_.store(entries, this);
      if (outcome == ZRBatchFile::Outcome::Done) recovered_ += count;
      if (outcome != ZRBatchFile::Outcome::TooLarge) return outcome == ZRBatchFile::Outcome::Done;
    }
    return false;
  }

  const Contents& contents_;
  Ring& ring_;
  ZRBatchFile& batches_;
  Operation operation_{0};
  std::size_t recovered_ = 0;
  std::size_t unreadable_ = 0;
};

}  // namespace

bool recover(const Contents& contents, Ring& ring, ZRBatchFile& batches) {
  return Recovery(contents, ring, batches).run();
}

}  // namespace zorvane::journal
