// What the module tells a journal of events. Without a journal nobody is told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

class ZRBatchFile;

// Is told when batches are in the batch file.
class ZRStoreObserver {
 public:
  // ZRBatchFile calls it while it holds its lock; does no I/O.
  virtual void stored() noexcept = 0;

 protected:
  ~ZRStoreObserver() = default;
};

// What a save tells the journal: an addBatch for each batch, arm, then ZRBatchFile::store. When this object ends
// without stored(), the events stay in the journal.
class ZRJournalStore : public ZRStoreObserver {
 public:
  virtual ~ZRJournalStore() = default;
  // These events will be in that batch. Throws when there is no memory.
  virtual void addBatch(const std::string& batchID, const Array& records, std::size_t first, std::size_t count) = 0;
  // Syncs the journal.
  virtual void arm() noexcept = 0;
};

// Operations may be called on any thread. Only beginStore throws, when there is no memory.
class ZREventJournal {
 public:
  // Names an event in the journal; 0: it is not there.
  using Ticket = std::uint64_t;

  virtual ~ZREventJournal() = default;

  // Saves what an earlier launch left, then takes events. Call before a session begins and before the first sync; only
  // the first call does anything.
  virtual void open(ZRBatchFile& batches) noexcept = 0;
  // Call after the current session or its sources have changed.
  virtual void sessionChanged() noexcept = 0;

  // An event was tracked. When this returns, the next launch finds it. Does no I/O. Waits for another thread only when
  // the journal is full. If read() can give back the same values, takes them: the name is nil then, the properties are
  // null.
  virtual Ticket called(Value& name, std::shared_ptr<const ZRProperties>& properties) noexcept = 0;
  // Gives back what called() took, no properties as empty ones; does nothing if it took nothing. Call it once, before
  // recorded() or released(). False when it is lost, which the log says, or in a forked process: the parent has it.
  virtual bool read(Ticket ticket, Value& name, std::shared_ptr<const ZRProperties>& properties) noexcept = 0;
  // It joins the current batch as this record, which takes the ticket along under a key of its own. A save leaves that
  // key out (withoutObjects).
  virtual void recorded(Ticket ticket, Dictionary& record) noexcept = 0;
  // It is not needed any more.
  virtual void released(Ticket ticket) noexcept = 0;
  // The same for each of these records.
  virtual void released(const Array& records) noexcept = 0;
  // No event is needed any more.
  virtual void clear() noexcept = 0;

  // Null when nothing is kept. One thread at a time saves. Host code that it calls may save, too: that save begins and
  // ends within the other.
  virtual std::unique_ptr<ZRJournalStore> beginStore() = 0;
};

}  // namespace zorvane
