// The file of saved batches: a property list, {batch identifier: batch}, rewritten as a whole at each change.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

class ZRStoreObserver;

// What a request says of a batch. Nil: the batch has none.
struct ZRBatchParts {
  Value events;
  // Counted by itself, because the events may not be decoded yet.
  std::size_t eventCount = 0;
  Value batchID;
  Value requestTime;
  Value session;
  Value source;
};

// One entry of the file, decoded when it is used. Keeps the file's bytes alive. Cheap to copy; immutable, any thread.
class ZRStoredBatch {
 public:
  // The batch identifier: the entry's key in the file.
  const std::string& id() const { return entry_->key; }
  // Whether the entry can be sent: a batch dictionary, or a bare array of events.
  bool isBatch() const;
  // No "request_time" and no session: such a batch comes from the dump file of an earlier release.
  bool isBareArray() const { return entry_->value.isArray(); }
  // 0 where no array of events is found.
  std::size_t eventCount() const;
  // Events, session and source are not decoded before the request is encoded.
  ZRBatchParts parts() const;
  // Decoded as a whole.
  Value value() const { return entry_->value.decode(); }

 private:
  friend class ZRBatchFile;
  using Entry = platform::PropertyListDictionarySnapshot::Entry;
  explicit ZRStoredBatch(std::shared_ptr<const Entry> entry) : entry_(std::move(entry)) {}

  std::shared_ptr<const Entry> entry_;
};

// Thread-safe: each operation is one uninterrupted load, change and write, also for other processes that use the file.
class ZRBatchFile {
 public:
  using FailureHandler = std::function<void(const std::string& message)>;

  // The handler is called with no lock held, on the thread of the failed operation. A repeated failure is reported
  // again only after a successful store, undecodable batches only when the set of them changes. A file of more than
  // maxBytes is neither read nor written.
  explicit ZRBatchFile(std::string path, FailureHandler onFailure = nullptr, std::size_t maxBytes = kMaximumSize);

  enum class Outcome {
    Done,
    // The file holds no batch any more and was removed.
    Removed,
    // The file exists and is no property list with a dictionary at its root. It was left as it is.
    Unreadable,
    // A batch is too large to be decoded (platform::countForEntry tells what fits). Nothing was stored; not reported.
    TooLarge,
    // The system refused to read or write, or the file would be too large. It was left as it is.
    Failed,
  };

  // Larger than years of unsent events on a phone.
  static constexpr std::size_t kMaximumSize = 512u << 20;

  const std::string& path() const { return path_; }
  bool exists() const;

  // The batches in the file's order; none when there is no file; absent when the file cannot be read. Batches that
  // cannot be decoded (LazyPropertyListValue::isDecodable) are left out. They stay in the file until it is removed.
  std::optional<std::vector<ZRStoredBatch>> load();
  // Stores batches (dictionaries, or bare arrays of events) under their identifiers: all or none. Never Removed. The
  // observer is told before anybody else can load or remove them.
  Outcome store(const Dictionary& batches, ZRStoreObserver* observer = nullptr);
  // Removes the batches whose identifiers are keys of batchIDs, and leaves all others; with the last one the file goes
  // too. A failure to remove the file is returned as its error and is not given to the handler.
  platform::Result<Outcome> remove(const Dictionary& batchIDs,
                                   platform::Durability durability = platform::Durability::Lasting);
  // Removes the events for which the function returns false, and batches without any left; with the last one the file
  // goes too. The function is called with no lock held, and again for all when the file changes meanwhile. Batches that
  // cannot be decoded stay.
  Outcome keepIf(const std::function<bool(const Value& record)>& passes);
  // Removes the file, for good also where remove() has removed it.
  platform::Status removeAll();

 private:
  // Unless the outcome is Done, `failure` says why.
  Outcome read(platform::PropertyListDictionarySnapshot& snapshot, std::string& failure) ZR_REQUIRES(mutex_);
  Outcome write(platform::PropertyListDictionarySnapshot snapshot, const platform::DirectoryLock& processLock,
                std::string& failure, platform::Durability durability = platform::Durability::Lasting)
      ZR_REQUIRES(mutex_);
  platform::Result<Outcome> removeFile(platform::Durability durability) ZR_REQUIRES(mutex_);
  void report(const std::string& failure) ZR_EXCLUDES(mutex_);

  const std::string path_;
  const FailureHandler onFailure_;
  const std::size_t maxBytes_;
  mutable platform::Mutex mutex_;
  // The content as it was last read or written; valid while the file's identity is identity_.
  std::optional<platform::PropertyListDictionarySnapshot> snapshot_ ZR_GUARDED_BY(mutex_);
  platform::FileIdentity identity_ ZR_GUARDED_BY(mutex_);
  std::string lastReportedFailure_ ZR_GUARDED_BY(mutex_);
  std::string reportedBatches_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
