// Sends the saved batches. ZRSyncLedger decides; this class reads and writes the file, makes the requests, logs, and
// calls the completions.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Platform/Dispatch/Queue.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/EventManagement/ZRSyncLedger.h"

namespace zorvane {

// Lives on one serial queue, on which flush is called and to which the responses come back.
class ZRSync {
 public:
  // Both are called on the queue: isSendable before a sync reads the file, where false ends it, and resetUser at the
  // end of each reset flush. Queue and file outlive the sync, and the sync its requests.
  ZRSync(platform::Queue& queue, ZRBatchFile& file, std::function<bool()> isSendable, std::function<void()> resetUser)
      : queue_(queue), file_(file), isSendable_(std::move(isSendable)), resetUser_(std::move(resetUser)) {}

  // Sends every batch of the file as one request each, except those that were accepted before. The completion is
  // called on the queue:
  //   (false, false)  without an application identifier, when the file is not sendable, or at once while another flush
  //                   runs; a reset flush then runs right after that one, and its completion is called again
  //   (true, false)   there was nothing to send
  //   (all, true)     after the last response: whether all batches were accepted
  //   (false, true)   an exception stopped it
  // It is never called when the application identifier vanishes while requests are being made.
  void flush(const ZRFlush& flush);
  // Lets the requests fail that are not sent yet, because their events are cleared. Any thread.
  void cancelUnsent() noexcept { ++cancels_; }
  unsigned cancels() const noexcept { return cancels_; }
  // The same events, which cannot be encoded any more after the next cancelUnsent(). `cancels` is the number of its
  // calls before they were read.
  Value cancellable(Value events, unsigned cancels) const;
  // Whether a reset flush is running or waits for a sync to end. Up to date in each completion. Any thread.
  bool isResetPending() const { return isResetPending_; }

 private:
  struct Result {
    bool success;
    bool attempted;
  };
  // Absent when the completion is called after the responses, or never.
  std::optional<Result> start(const ZRFlush& flush) ZR_REQUIRES(queue_);
  // Reads the file into the ledger. The batches that can be sent, oldest first; none when the file cannot be read.
  std::vector<ZRStoredBatch> load() ZR_REQUIRES(queue_);
  // False when the application identifier is gone. `cancels` is the number from before the file was read.
  bool send(const ZRStoredBatch& batch, unsigned cancels, const std::shared_ptr<ZRSyncRun>& run) ZR_REQUIRES(queue_);
  void responseArrived(ZRSyncRun& run, const std::string& batchID, bool accepted) ZR_REQUIRES(queue_);
  // No response is missing any more: the end of the sync, then the completion.
  void end(const ZRSyncRun& run) ZR_REQUIRES(queue_);
  // Returns the parked flush that is to run after the completion, if any.
  std::optional<ZRFlush> finish(bool reset) ZR_REQUIRES(queue_);
  // Then runs the parked flush, if there is one.
  void complete(const ZRFlushCompletion& completion, Result result, const std::optional<ZRFlush>& parked)
      ZR_REQUIRES(queue_);
  void removeSettled() ZR_REQUIRES(queue_);

  platform::Queue& queue_;
  ZRBatchFile& file_;
  const std::function<bool()> isSendable_;
  const std::function<void()> resetUser_;
  ZRSyncLedger ledger_ ZR_GUARDED_BY(queue_);
  // That of the running sync, once all its requests are made; else null.
  std::shared_ptr<ZRSyncRun> run_ ZR_GUARDED_BY(queue_);
  std::atomic<bool> isResetPending_{false};
  std::atomic<unsigned> cancels_{0};
};

}  // namespace zorvane
