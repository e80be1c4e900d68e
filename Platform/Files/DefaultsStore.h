// A small key-value store kept in one property-list file.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Thread-safe. Values are held in memory. If anything changed, synchronize() replaces the file atomically and makes its
// directory if need be. A missing file is an empty store. So is a damaged file: it is renamed to its name and
// ".damaged", replacing an earlier one, and reported to the problem hook. A file that cannot be read at the moment is
// tried again at each use and never overwritten: until then the store holds what was set, which is then merged over the
// file's content. Changes by other processes are not seen after the file was read, and the next write replaces them.
class DefaultsStore {
 public:
  // The file is read at the first use.
  DefaultsStore(std::string name, std::string path);

  // False while the file cannot be read. Tries to read it.
  bool isRead() const;
  Value objectForKey(std::string_view key) const;
  // False when the key is missing or its value is neither a number nor text.
  bool boolForKey(std::string_view key) const;
  // The text under the key. If there is none, stores and returns the given one, atomically. While the file
  // cannot be read, that one holds until it can, and gives way to the file's then.
  std::string textForKeyOrStored(std::string_view key, std::string text);
  // Nil removes the key. Once written, a lasting change survives a power loss; an eventual one may be undone by it
  // until a lasting one is written.
  void setObjectForKey(Value value, std::string_view key, Durability durability = Durability::Lasting);
  void removeObjectForKey(std::string_view key, Durability durability = Durability::Lasting);
  // All changes so far are lasting ones, also those that are written already.
  void makeLasting();
  Dictionary dictionaryRepresentation() const;
  // After a failure the change stays in memory and is written by the next call. Other calls do not wait for the file.
  Status synchronize();
  // The same without the synchronize hook.
  Status writeChanges();
  // From now on synchronize() first writes the other store's changes too. The other store must outlive this one.
  void synchronizeWith(DefaultsStore& other) { other_.store(&other); }
  // From now on each write of this store that succeeds is followed by one of the other store's changes. The other store
  // must outlive this one.
  void precede(DefaultsStore& other) { next_.store(&other); }

  const std::string& name() const { return name_; }

 private:
  // Reports a failure to the problem hook, with no lock held.
  void loadIfNeeded() const ZR_EXCLUDES(mutex_);
  Status load() const ZR_REQUIRES(mutex_);
  Status writeContent() ZR_EXCLUDES(writeMutex_, mutex_);
  void countChange(Durability durability) ZR_REQUIRES(mutex_);
  // Calls the problem hook, unless this is the problem reported last.
  void reportProblem(const Status& status) const ZR_EXCLUDES(mutex_);

  const std::string name_;
  const std::string path_;
  Mutex writeMutex_;  // held while the file is written; taken before mutex_
  mutable Mutex mutex_;
  mutable std::atomic<bool> loaded_{false};  // set while mutex_ is held
  mutable Dictionary content_ ZR_GUARDED_BY(mutex_);
  // Keys removed before the file could be read.
  mutable std::vector<std::string> removedUnread_ ZR_GUARDED_BY(mutex_);
  // Keys that textForKeyOrStored() stored before: the file's values hold.
  mutable std::vector<std::string> storedUnread_ ZR_GUARDED_BY(mutex_);
  mutable std::string lastReportedProblem_ ZR_GUARDED_BY(mutex_);
  // So many changes were made, are in the file, and survive a power loss.
  std::uint64_t changes_ ZR_GUARDED_BY(mutex_) = 0;
  std::uint64_t writtenChanges_ ZR_GUARDED_BY(mutex_) = 0;
  std::uint64_t lastingChanges_ ZR_GUARDED_BY(mutex_) = 0;
  // So many must survive one once they are written.
  std::uint64_t mustLastChanges_ ZR_GUARDED_BY(mutex_) = 0;
  std::atomic<DefaultsStore*> other_{nullptr};
  std::atomic<DefaultsStore*> next_{nullptr};
};

// The application's standard defaults ("standard.plist"), the SDK's own ("sdk.plist") and an application group's suite
// ("groups/NAME.plist") in the host's defaults directory. Made once and never destroyed. Slashes, NULs, percent signs
// and a leading dot of a group's name are escaped in the file name.
DefaultsStore& standardDefaults();
DefaultsStore& sdkDefaults();
DefaultsStore& groupDefaults(const std::string& name);

// Called with the store's name ("standard", "sdk", the group's name) at each synchronize(), before the file is written.
// For hosts that trace.
void setSynchronizeHook(std::function<void(const std::string& store)> hook);

// Called with one sentence when a store's file is damaged or cannot be read or written; once for a problem that lasts.
// Called on the thread that used the store, with no lock held.
void setDefaultsProblemHook(std::function<void(const std::string& problem)> hook);

}  // namespace zorvane::platform
