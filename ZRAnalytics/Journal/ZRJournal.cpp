#include "ZRAnalytics/Journal/ZRJournal.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/Journal/ZRJournalRecovery.h"
#include "ZRAnalytics/Journal/ZRJournalRing.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRPlainValue.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZRAnalytics/Utils/ZRTurn.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRJournal";
constexpr char kException[] = "exception is %@";
constexpr std::string_view kTicketKey = "zrv_journal_ticket";
constexpr std::size_t kSmallest = 64u << 10;
constexpr std::size_t kLargest = 256u << 20;
constexpr std::size_t kPage = 4096;

// What a record holds under kTicketKey. Its plain value is nil, so that a save leaves it out.
class TicketObject final : public platform::Object {
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

std::string textUnder(const Dictionary& record, std::string_view key) {
  const Value* const value = record.find(key);
  return value && value->isString() ? *value->asString() : std::string();
}

class Journal final : public ZREventJournal {
 public:
  explicit Journal(const ZRJournalOptions& options)
      : bytes_((std::clamp(options.bytes, kSmallest, kLargest) + kPage - 1) / kPage * kPage),
        syncSeconds_(options.syncSeconds) {}

  void open(ZRBatchFile& batches) noexcept override {
    if (wasOpened_.exchange(true)) return;
    guarded({kFile, "open"}, kException, [&] {
      std::string bytes;
      if (isFailed(ring_.open(archivePath("ZREventJournal"), bytes))) return;
      const journal::Contents contents = journal::readContents(bytes);
      if (contents.header) {
        ring_.keep(contents);
        recoverer_ = std::this_thread::get_id();
        if (!journal::recover(contents, ring_, *this, batches)) {
          logLine("Journal : its events cannot be saved and wait for the next launch");
          return;
        }
      } else if (bytes.find_first_not_of('\0') < journal::kHeaderBytes) {
        logLine("Journal : the file is damaged or of another version and is made anew");
      }
      if (isFailed(ring_.start(bytes_, contents))) return;
      isOpen_ = true;
      sessionChanged();
      if (syncSeconds_ > 0) startSyncs();
    });
  }

  void sessionChanged() noexcept override {
    if (!isOpen_) return;
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
    });
    if (!isSet) ring_.dropSession();
  }

  Ticket called(const Value& name, const ZRProperties* properties) noexcept override {
    Ticket ticket = 0;
    if (!isOpen_) return ticket;
    guarded({kFile, "called"}, kException, [&] {
      journal::Bytes payload;
      journal::appendEvent(name, properties, payload);
      ticket = ring_.append(payload.view(), platform::hostServices().clock->now().secondsSince1970);
      if (ticket == 0) reportFull();
    });
    return ticket;
  }

  void recorded(Ticket ticket, Dictionary& record) noexcept override {
    if (ticket == 0) return;
    const bool isInRecord = guarded({kFile, "recorded"}, kException, [&] {
      const std::string gmtTime = textUnder(record, kReportsKeyGMT_Time);
      const std::string localTime = textUnder(record, kReportsKeyDevice_Time);
      record.set(kTicketKey, std::make_shared<TicketObject>(ticket));
      if (!ring_.markRecorded(ticket, gmtTime, localTime)) reportFull();
    });
    // A save could not release it, and the event would be sent twice.
    if (!isInRecord) ring_.release(ticket);
  }

  void released(Ticket ticket) noexcept override { ring_.release(ticket); }
  void released(const Array& records) noexcept override {
    for (const Value& record : records) ring_.release(ticketOf(record));
  }
  void clear() noexcept override { ring_.clear(); }

  void beginStore() noexcept override {
    if (isOpen_) ring_.beginStore();
  }
  void addBatch(const std::string& batchID, const Array& records, std::size_t first, std::size_t count) override {
    for (; isOpen_ && count > 0; ++first, --count) ring_.assign(ticketOf(records[first]), batchID);
  }
  void armStore() noexcept override {
    if (isOpen_) ring_.arm();
  }
  void stored() noexcept override {
    // Another thread may save while an earlier launch's events are recovered.
    if (isOpen_ || recoverer_.load() == std::this_thread::get_id()) ring_.stored();
  }
  void endStore() noexcept override {
    if (isOpen_) ring_.endStore();
  }

 private:
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
  // The thread that recovers, or has recovered, the events of an earlier launch.
  std::atomic<std::thread::id> recoverer_{};
  // It takes events.
  std::atomic<bool> isOpen_{false};
  std::atomic<bool> isFullReported_{false};
};

}  // namespace

std::shared_ptr<ZREventJournal> makeEventJournal(ZRJournalOptions options) {
  return std::make_shared<Journal>(options);
}

}  // namespace zorvane
