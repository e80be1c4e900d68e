// The file of saved batches: a property list, {batch identifier: batch}, rewritten as a whole at each change.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

using ZRStoredBatch = platform::PropertyListDictionaryImage::Entry;

// Saved batches by identifier, in the file's order. Not thread-safe.
class ZRBatchTable {
 public:
  ZRBatchTable() = default;
  explicit ZRBatchTable(std::vector<ZRStoredBatch> batches);

  std::size_t size() const { return positions_.size(); }
  bool empty() const { return positions_.empty(); }
  void remove(const std::string& batchID);
  // What is left, in order.
  std::vector<ZRStoredBatch> batches() const;

 private:
  std::vector<ZRStoredBatch> batches_;
  std::unordered_map<std::string, std::size_t> positions_;
};

// Thread-safe: each operation is one uninterrupted load, change and write. Batches are decoded only when they are used.
class ZRBatchFile {
 public:
  explicit ZRBatchFile(std::string path);

  enum class Outcome {
    Done,
    // The file held nothing any more and is gone.
    Removed,
    // The file exists and is no property list with a dictionary at its root: it was left as it is.
    Unreadable,
    // The system refused to read or write: the file was left as it is.
    Failed,
    // As Failed, when the file was to be removed.
    RemoveFailed,
  };

  const std::string& path() const { return path_; }
  bool exists() const;

  // The batches in order; none when there is no file; absent when the outcome is not Done.
  std::optional<ZRBatchTable> load(Outcome& outcome);
  std::optional<ZRBatchTable> load() {
    Outcome outcome;
    return load(outcome);
  }
  // Stores a batch (a dictionary, or a bare array of events) under its identifier.
  Outcome store(std::string_view batchID, const Value& batch);
  // Makes the file hold these batches and those in it whose identifiers are not among the known ones. When that leaves
  // none, the file, if there is one, is removed; when it leaves all, the file is not touched.
  Outcome replaceKnown(const std::vector<ZRStoredBatch>& batches, const std::unordered_set<std::string>& known);
  platform::Status remove();

  // What the last failure was.
  std::string lastError() const;

 private:
  Outcome read(platform::PropertyListDictionaryImage& image) ZR_REQUIRES(mutex_);
  Outcome write(platform::PropertyListDictionaryImage image) ZR_REQUIRES(mutex_);
  Outcome fail(Outcome outcome, std::string message) ZR_REQUIRES(mutex_);

  const std::string path_;
  mutable platform::Mutex mutex_;
  // The content as it was last read or written, good as long as the file on disk is that very one.
  std::optional<platform::PropertyListDictionaryImage> image_ ZR_GUARDED_BY(mutex_);
  platform::FileIdentity identity_ ZR_GUARDED_BY(mutex_);
  std::string lastError_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
