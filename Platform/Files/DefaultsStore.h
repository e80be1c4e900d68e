// A small key-value store kept in one property-list file.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Thread-safe. Values are held in memory; synchronize() brings them to the file, as one atomic replacement, when
// anything changed, and makes the file's directory if need be. A missing file is an empty store; so is a damaged one,
// which is kept aside under its name and ".damaged" (the last such one) and told to the problem hook. A file that the
// system refuses to read at the moment is tried again at each use and never written over: until then the store holds
// what was set, which goes on top of the file's content. What other processes write to the file in the meantime is not
// seen.
class DefaultsStore {
 public:
  // The file is read at the first use.
  DefaultsStore(std::string name, std::string path);

  Value objectForKey(std::string_view key) const;
  // False when the key is missing or its value has no boolean reading.
  bool boolForKey(std::string_view key) const;
  // The text under the key; where there is none, the given one is stored and returned, as one step.
  std::string textForKeyOrStored(std::string_view key, std::string text);
  // Nil removes the key.
  void setObjectForKey(Value value, std::string_view key);
  void removeObjectForKey(std::string_view key);
  Dictionary dictionaryRepresentation() const;
  // After a failure the change is still in memory and goes with the next call. Readers and writers of the store do not
  // wait for the file.
  Status synchronize();
  // The same without the synchronize hook: for the owner's own bookkeeping.
  Status writeChanges();

  const std::string& name() const { return name_; }

 private:
  // Tells the problem hook what stood in the way, with no lock held.
  void loadIfNeeded() const ZR_EXCLUDES(mutex_);
  Status load() const ZR_REQUIRES(mutex_);
  Status writeContent() ZR_REQUIRES(writeMutex_) ZR_EXCLUDES(mutex_);
  // Once, until the problem is another one or nothing.
  void tellProblem(const Status& status) const ZR_EXCLUDES(mutex_);

  const std::string name_;
  const std::string path_;
  Mutex writeMutex_;  // held while the file is written; taken before mutex_
  mutable Mutex mutex_;
  mutable std::atomic<bool> loaded_{false};  // set while mutex_ is held
  mutable Dictionary content_ ZR_GUARDED_BY(mutex_);
  // What was removed before the file could be read.
  mutable std::vector<std::string> removedUnread_ ZR_GUARDED_BY(mutex_);
  mutable std::string toldProblem_ ZR_GUARDED_BY(mutex_);
  bool changed_ ZR_GUARDED_BY(mutex_) = false;
};

// The application's standard defaults ("standard.plist"), the SDK's own ("sdk.plist") and an application group's suite
// ("groups/NAME.plist") in the host's defaults directory. Made once and never destroyed. A group name with a slash, a
// NUL or a leading dot is made safe for the file name.
DefaultsStore& standardDefaults();
DefaultsStore& sdkDefaults();
DefaultsStore& groupDefaults(const std::string& name);

// Called with the store's name ("standard", "sdk", the group's name) at each synchronize(), before the file is written.
// For hosts that trace.
void setSynchronizeHook(std::function<void(const std::string& store)> hook);

// Called with one sentence for each problem of a store's file: it is damaged, it cannot be read or written. A problem
// that goes on is told once. On the thread that used the store, with no lock held.
void setDefaultsProblemHook(std::function<void(const std::string& problem)> hook);

}  // namespace zorvane::platform
