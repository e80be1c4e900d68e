// Moves the current batch into the batch file.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Dispatch/Queue.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/EventManagement/ZRCurrentBatch.h"
#include "ZRAnalytics/Utils/ZRTurn.h"

namespace zorvane {

class ZRJournalStore;

// Thread-safe. A batch is closed first, which fixes its events, session, sources and time. Then it is
// stored, as several entries if it is too large to be decoded as one (platform::countForEntry). When the file cannot be
// written, the events of all closed batches go back to the current batch (ZRCurrentBatch::putBack).
class ZRBatchSaver {
 public:
  // flush sends what the file holds. Batch and file outlive the saver.
  ZRBatchSaver(ZRCurrentBatch& current, ZRBatchFile& file, std::function<void()> flush);

  // Closes the current batch and stores all closed batches before it returns. If another thread is storing, waits for
  // it first.
  void save();
  // Closes the current batch. A background task stores it, in one write with those that are closed until it gets there,
  // and then calls flush, also if it could not store them.
  void saveSoon();
  // ZRCurrentBatch::keepIf, for the closed and the stored batches too. Closes the current batch if others were closed;
  // those of one session become one. If another thread is storing, waits for it first. False when the file could not be
  // written: then it holds what it held.
  bool keepIf(const std::function<bool(const Value& record)>& passes);

 private:
  void close();
  void storeClosed();
  // Adds the batch to the entries, split into what fits or as one. Returns the number of events that are left out
  // because they are too large.
  static std::size_t addEntries(const ZRUnsavedBatch& batch, bool isSplit, Dictionary& entries, ZRJournalStore* kept);
  // Returns their events to the current batch, and leaves none; what cannot be returned without memory stays closed.
  void reopen(std::list<ZRUnsavedBatch>& batches);
  std::list<ZRUnsavedBatch> takeClosed();

  ZRCurrentBatch& current_;
  ZRBatchFile& file_;
  const std::function<void()> flush_;
  const std::unique_ptr<platform::Queue> queue_;
  // A task on the queue has not begun yet.
  std::atomic<bool> isTaskWaiting_{false};
  // Held while closed batches are stored. Taken before closeTurn_.
  ZRTurn storeTurn_;
  // Held while events change between the current and the closed batches, so that they stay in their order.
  ZRTurn closeTurn_;
  platform::Mutex mutex_;
  std::list<ZRUnsavedBatch> closed_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
