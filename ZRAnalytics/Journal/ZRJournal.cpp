#include "ZRAnalytics/Journal/ZRJournal.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/Journal/ZRJournalRecovery.h"
#include "ZRAnalytics/Journal/ZRJournalRing.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRPlainValue.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRTurn.h"
#include "ZorvaneCore/ZRConfigDataManager.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRJournal";
constexpr char kException[] = "exception is %@";
constexpr std::string_view kTicketKey = "zrv_journal_ticket";
constexpr std::size_t kSmallest = 64u << 10;
// Of a file that a launch with another size may have left.
constexpr std::size_t kAlwaysRead = 16u << 20;
constexpr std::size_t kPage = 4096;

// What a record holds under kTicketKey. Its plain value is nil, so that a save leaves it out.
class TicketObject final : public platform::ObjectOf<TicketObject> {
 public:
  explicit TicketObject(ZREventJournal::Ticket ticket) : ticket_(ticket) {}
  ZREventJournal::Ticket ticket() const { return ticket_; }
  std::string description() const override { return {}; }
  Value plainValue() const override { return {}; }

 private:
  const ZREventJournal::Ticket ticket_;
};

ZREventJournal::Ticket ticketOf(const Value& record) {
  const Dictionary* const event = record.asDictionary();
  const auto object = event ? event->objectForKey(kTicketKey).asObject<TicketObject>() : nullptr;
  return object ? object->ticket() : 0;
}

Text textUnder(const Dictionary& record, std::string_view key) {
  const Value* const value = record.find(key);
  return value && value->isString() ? *value->asString() : Text();
}

class Store final : public ZRJournalStore {
 public:
  explicit Store(journal::Ring& ring) : ring_(ring), operation_(ring.beginStore()) {}
  ~Store() override { ring_.endStore(operation_); }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  void addBatch(const std::string& batchID, const Array& records, std::size_t first, std::size_t count) override {
    for (; count > 0; ++first, --count) ring_.assign(operation_, ticketOf(records[first]), batchID);
  }
  void arm() noexcept override { ring_.arm(operation_); }
  void stored() noexcept override { ring_.stored(operation_); }

 private:
  journal::Ring& ring_;
  journal::Operation operation_;
};

class Journal final : public ZREventJournal {
 public:
  explicit Journal(const ZRJournalOptions& options)
      : bytes_((std::clamp(options.bytes, kSmallest, journal::kMaximumBytes) + kPage - 1) / kPage * kPage),
        syncSeconds_(options.syncSeconds) {}

  void open(ZRBatchFile& batches) noexcept override {
    if (wasOpened_.exchange(true)) return;
    guarded({kFile, "open"}, kException, [&] {
      std::string bytes;
      if (isFailed(ring_.open(archivePath("ZREventJournal"), std::max(bytes_, kAlwaysRead), bytes))) return;
      const journal::Contents contents = journal::readContents(bytes);
      if (contents.header) {
        ring_.keep(contents);
        if (!journal::recover(contents, ring_, batches)) {
          logLine("Journal : its events cannot be saved and wait for the next launch");
          return;
        }
      } else if (bytes.find_first_not_of('\0') < journal::kHeaderBytes) {
        logLine("Journal : the file is damaged or of another version and is made anew");
      }
      if (isFailed(ring_.start(bytes_, contents))) return;
      wasStarted_ = true;
      sessionChanged();
      hasSession_ = true;
      if (syncSeconds_ > 0) startSyncs();
    });
  }

  void sessionChanged() noexcept override {
    if (!isOpen()) return;
    // From reading the session to setting it, so that of two changes the later one holds.
    const ZRTurn::Scope turn(sessionTurn_);
    const bool isSet = guarded({kFile, "sessionChanged"}, kException, [this] {
      const ZRSessionManager& sessions = ZRSessionManager::sharedSessionManager();
      Dictionary session;
      if (auto info = sessions.getCurrentSessionInfoDict()) session.set(kBatchKeySession, *std::move(info));
      session.set(kBatchKeySource, withoutObjects(sessions.getCurrentSessionSourceInfoArray()));
      journal::Bytes payload;
      journal::appendValue(session, payload);
      if (!ring_.setSession(std::string(payload.view()))) reportFull();
      askOptedOut();
    });
    if (!isSet) ring_.dropSession();
  }

  Ticket called(Value& name, std::shared_ptr<const ZRProperties>& properties) noexcept override {
    Ticket ticket = 0;
    if (!isOpen()) return ticket;
    guarded({kFile, "called"}, kException, [&] {
      journal::Bytes payload;
      journal::appendEvent(name, properties.get(), payload);
      const bool isAllowed = isOptedOut_.load(std::memory_order_relaxed) && askOptedOut() && name.isString() &&
                             ZREventsHandler::sharedInstance().shouldEventSkippedFromDataOptOut(*name.asString());
      ticket = ring_.append(isAllowed ? journal::kAllowedEvent : journal::kEvent, payload.view(),
                            platform::hostServices().clock->now().secondsSince1970);
      if (ticket == 0) {
        if (hasSession_) reportFull();
      } else if (payload.isExact()) {
        name = {};
        properties.reset();
      }
    });
    return ticket;
  }

  bool read(Ticket ticket, Value& name, std::shared_ptr<const ZRProperties>& properties) noexcept override {
    if (ticket == 0 || !name.isNil()) return true;
    bool isRead = false;
    if (!ring_.isThere()) return isRead;  // In a forked child: the parent has the event.
    guarded({kFile, "read"}, kException, [&] {
      std::optional<journal::Event> event;
      if (const auto payload = ring_.read(ticket)) event = journal::readEvent(*payload);
      if (!event) return logLine("Journal : an event cannot be read and is lost");
      name = std::move(event->name);
      properties = std::make_shared<ZRProperties>(std::move(event->properties));
      isRead = true;
    });
    return isRead;
  }

  void recorded(Ticket ticket, Dictionary& record) noexcept override {
    if (ticket == 0) return;
    const bool isInRecord = guarded({kFile, "recorded"}, kException, [&] {
      const Text gmtTime = textUnder(record, kReportsKeyGMT_Time);
      const Text localTime = textUnder(record, kReportsKeyDevice_Time);
      record.set(kTicketKey, std::make_shared<TicketObject>(ticket));
      if (!ring_.markRecorded(ticket, askOptedOut(), gmtTime, localTime)) reportFull();
    });
    // A save could not release it, and the event would be sent twice.
    if (!isInRecord) ring_.release(ticket);
  }

  void released(Ticket ticket) noexcept override {
    ring_.release(ticket);
    // A refused event may be the first after an opt-out.
    guarded({kFile, "released"}, kException, [this] { askOptedOut(); });
  }
  void released(const Array& records) noexcept override {
    for (const Value& record : records) ring_.release(ticketOf(record));
  }
  void clear() noexcept override { ring_.clear(); }

  std::unique_ptr<ZRJournalStore> beginStore() override { return isOpen() ? std::make_unique<Store>(ring_) : nullptr; }

 private:
  // It takes events.
  bool isOpen() const { return wasStarted_ && ring_.isThere(); }

  // Also keeps the answer for the next calls.
  bool askOptedOut() {
    const bool isOut = !ZRConfigDataManager::sharedInstance().isDataTrackingEnabled();
    // Only a change, as callers read the cache line.
    if (isOut != isOptedOut_.load(std::memory_order_relaxed)) isOptedOut_.store(isOut, std::memory_order_relaxed);
    return isOut;
  }
  static bool isFailed(const platform::Status& status) {
    if (!status) logLine("Journal : events are in memory only: %@", {status.error().message});
    return !status;
  }

  void reportFull() {
    if (!isFullReported_.exchange(true)) logLine("Journal : full, events are in memory only");
  }

  void startSyncs() {
    platform::Scheduler& scheduler = *platform::hostServices().scheduler;
    scheduler.mainQueue().startRepeatingTimer(syncSeconds_, [this, &scheduler] {
      scheduler.globalQueue(platform::Priority::Background).async([this] { ring_.sync(); });
    });
  }

  const std::size_t bytes_;
  const double syncSeconds_;
  journal::Ring ring_;
  ZRTurn sessionTurn_;
  std::atomic<bool> wasOpened_{false};
  std::atomic<bool> wasStarted_{false};
  // The first is in it, or did not fit. Before, it takes no events.
  std::atomic<bool> hasSession_{false};
  // What askOptedOut() returned last. It takes locks, too much for each call.
  std::atomic<bool> isOptedOut_{false};
  std::atomic<bool> isFullReported_{false};
};

}  // namespace

std::shared_ptr<ZREventJournal> makeEventJournal(ZRJournalOptions options) {
  return std::make_shared<Journal>(options);
}

}  // namespace zorvane
