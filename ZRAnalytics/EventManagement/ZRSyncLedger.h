// The rules of a sync: which batches it sends, what becomes of each after its response, and what its end does to the
// batch file. Decisions only: no I/O, no queue, no clock. ZRSync carries them out.
//
//   when                                  ledger            the sync then
//   ------------------------------------  ----------------  ------------------------------------------------------
//   a flush, while idle                   Arrival::Start    reads the file and sends every batch, oldest first
//   a flush, while running                Arrival::Reload   reads the file again; tells (false, false)
//   a reset flush, while running          Arrival::Park     tells (false, false); the flush replaces a parked one
//   batches read from the file            load              sends those that are not settled; forgets those that are no
//                                                           longer in the file
//   an entry that is no batch             settle            leaves the file at the end
//   a batch was accepted                  respond, settled  leaves the file at the end; this process never sends it
//                                                           again
//   a batch was refused                   respond, waiting  stays for the next flush
//   the last response of a flush          finish            runs the parked flush: before the end, if this flush was a
//                                                           plain one; after the completion, if it was a reset
//     then, with batches waiting          End::KeepRefused  removes the settled batches
//     then, after a reset, with waiting   End::KeepAll      leaves the file as it is; the next sync removes the settled
//                                                           batches
//     then, with none waiting             End::RemoveAll    removes the settled batches, which are all that it sent
//   nothing to send                       abandon           removes the settled batches
//   an exception before the responses     abandon           removes the settled batches
//
// A batch that is saved while the sync runs is unknown to the ledger, so it stays in the file. A batch that is cleared
// from the file meanwhile stays cleared: an end only ever removes.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// success: everything was accepted, or there was nothing to send. attempted: requests were made.
using ZRFlushCompletion = std::function<void(bool success, bool attempted)>;

// One call of flush, as it reaches the sync.
struct ZRFlush {
  bool reset = false;
  ZRFlushCompletion completion;
};

// The requests of one flush.
struct ZRSyncRun {
  ZRFlush flush;
  std::size_t total = 0;
  std::size_t responses = 0;
  std::size_t accepted = 0;
  // Responses that could not be posted to the queue for want of memory. Their batches count as refused. Any thread.
  std::atomic<std::size_t> lost{0};

  bool isComplete() const { return responses + lost == total; }
  bool isSuccess() const { return accepted == total; }
};

// Not thread-safe.
class ZRSyncLedger {
 public:
  enum class Arrival { Start, Reload, Park };
  enum class End { KeepRefused, KeepAll, RemoveAll };

  // On Start, counts as running.
  Arrival arrive(const ZRFlush& flush);
  // Call with the identifiers of all batches in the file.
  void load(const std::vector<std::string_view>& batchIDs);
  // The batch was accepted or can never be sent. It stays settled for as long as it is in the file.
  void settle(const std::string& batchID) { batches_.set(batchID, true); }
  bool isSettled(std::string_view batchID) const;
  // Counts a response of the run. A batch that another run's response has settled stays settled.
  void respond(ZRSyncRun& run, const std::string& batchID, bool accepted);

  // A reset flush is running or parked.
  bool isResetPending() const { return (isRunning_ && isReset_) || parked_; }
  // The number of batches that are not settled.
  std::size_t waiting() const;
  // The settled batches as keys.
  Dictionary settled() const;

  // The sync is over. Returns the parked flush.
  std::optional<ZRFlush> finish();
  // What the end of a finished sync does to the file. Call after finish(). If the parked flush was started in between,
  // the result is about that flush's batches.
  End end(bool reset) const;
  // The sync is over without an end: nothing was sent, or an exception stopped it.
  void abandon() { isRunning_ = false; }

  // The order in which batches are sent, as positions in the list: by the number at the start of the identifier
  // (milliseconds since 1970; 0 without a number), those of one millisecond as they stand.
  static std::vector<std::size_t> oldestFirst(const std::vector<std::string_view>& batchIDs);

 private:
  bool isRunning_ = false;
  bool isReset_ = false;
  // The batches of the last load and those settled since, each with whether it is settled.
  Dictionary batches_;
  std::optional<ZRFlush> parked_;
};

}  // namespace zorvane
