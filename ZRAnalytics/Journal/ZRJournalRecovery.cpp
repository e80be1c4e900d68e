#include "ZRAnalytics/Journal/ZRJournalRecovery.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>

#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "Platform/HostServices.h"
#include "Platform/Time/DateFormat.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRSignedRequest.h"
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

class Recovery {
 public:
  Recovery(const Contents& contents, Ring& ring, ZREventJournal& journal, ZRBatchFile& batches)
      : contents_(contents), ring_(ring), journal_(journal), batches_(batches) {}
  // A later save of this launch must not set `stored` for the events that are still in the journal.
  ~Recovery() { ring_.leaveStore(); }
  Recovery(const Recovery&) = delete;
  Recovery& operator=(const Recovery&) = delete;

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
    std::vector<Group> groups;
    for (const Found& event : contents_.events) {
      if (const auto batchID = armedBatch(event); !batchID.empty()) add(event, batchID, groups);
    }
    if (groups.empty()) return true;
    const auto stored = batches_.load();
    if (!stored) return false;
    std::unordered_set<std::string> present;
    for (const ZRStoredBatch& batch : *stored) present.insert(batch.id());
    std::erase_if(groups, [&](const Group& group) { return present.contains(group.batchID); });
    ring_.resumeStore();
    if (!store(groups)) return false;
    ring_.stored();
    return true;
  }

  bool saveOthers() {
    std::vector<Group> groups;
    for (const Found& event : contents_.events) {
      if (armedBatch(event).empty()) add(event, {}, groups);
    }
    if (groups.empty()) return true;
    ring_.beginStore();
    for (Group& group : groups) {
      group.batchID = ZRAnalyticsUtils::createBatchIdentifier();
      for (const Found* event : group.events) ring_.assignFound(*event, group.batchID);
    }
    ring_.arm();
    if (!store(groups)) return false;
    ring_.stored();
    return true;
  }

  // Adds the event to the group of that identifier or, without one, of its session, if it may still be tracked.
  void add(const Found& found, std::string_view batchID, std::vector<Group>& groups) {
    auto event = readEvent(found.payload);
    if (!event || !event->name.isString()) ++unreadable_;
    if (!event || !event->name.isString() || !ZRCoreUtils::isSDKEnabled()) return;
    const ZREventsHandler& handler = ZREventsHandler::sharedInstance();
    const bool isAccepted = found.record.state == kRecorded ? handler.isTrackingAllowed(*event->name.asString())
                                                            : handler.shouldEventBeTrackedWithName(event->name);
    if (!isAccepted) return;
    const std::string_view session = sessionOf(contents_, found.record);
    Group* group = nullptr;
    for (Group& other : groups) {
      if (batchID.empty() ? other.session == session : other.batchID == batchID) group = &other;
    }
    if (!group) {
      group = &groups.emplace_back();
      group->batchID = batchID;
      group->session = session;
    }
    Dictionary record = handler.getEventDictForEventAndProperties(event->name, &event->properties);
    std::string_view gmt = textOf(found.record.times[0], sizeof found.record.times[0]);
    const Date date{found.record.time};
    const bool isRecorded = found.record.state == kRecorded;
    record.set(kReportsKeyGMT_Time, isRecorded ? std::string(gmt) : platform::isoTextOfDate(date, 0, "Z"));
    record.set(kReportsKeyDevice_Time, isRecorded
                                           ? std::string(textOf(found.record.times[1], sizeof found.record.times[1]))
                                           : ZRDateUtils::getLocalTime(date));
    group->records.emplace_back(std::move(record));
    group->events.push_back(&found);
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
          ring_.assignFound(*group.events[i], part.batchID);
        }
      }
    }
    groups = std::move(parts);
    ring_.arm();
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
      const ZRBatchFile::Outcome outcome = batches_.store(entries, &journal_);
      if (outcome == ZRBatchFile::Outcome::Done) recovered_ += count;
      if (outcome != ZRBatchFile::Outcome::TooLarge) return outcome == ZRBatchFile::Outcome::Done;
    }
    return false;
  }

  const Contents& contents_;
  Ring& ring_;
  ZREventJournal& journal_;
  ZRBatchFile& batches_;
  std::size_t recovered_ = 0;
  std::size_t unreadable_ = 0;
};

}  // namespace

bool recover(const Contents& contents, Ring& ring, ZREventJournal& journal, ZRBatchFile& batches) {
  return Recovery(contents, ring, journal, batches).run();
}

}  // namespace zorvane::journal
