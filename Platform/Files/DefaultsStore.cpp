#include "Platform/Files/DefaultsStore.h"

#include <cerrno>
#include <cstdint>
#include <utility>

#include "Platform/Dispatch/LockedValue.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/HostServices.h"
#include "Platform/Text/Hex.h"

namespace zorvane::platform {
namespace {

constexpr std::size_t kMaxFileSize = std::size_t{16} << 20;

// A callback of the host.
class Hook {
 public:
  using Function = std::function<void(const std::string&)>;

  void set(Function function) { function_.set(std::make_shared<const Function>(std::move(function))); }
  void call(const std::string& text) {
    const auto function = function_.get();
    if (!function || !*function) return;
    try {
      (*function)(text);
    } catch (...) {  // the host's exceptions stop here
    }
  }

 private:
  LockedValue<std::shared_ptr<const Function>> function_;
};

Hook& synchronizeHook() {
  static Hook& hook = *new Hook;
  return hook;
}

Hook& problemHook() {
  static Hook& hook = *new Hook;
  return hook;
}

// Whether the file can never be read as a store. Other errors may pass.
bool isPermanentError(int code) {
  return code == EFBIG || code == EINVAL || code == ELOOP || code == EISDIR;
}

DefaultsStore& makeStore(const std::string& name, const std::string& fileName) {
  return *new DefaultsStore(name, joinPath(hostServices().directories.defaults, fileName));
}

// Replaces each character that a file name cannot have by "%" and two hexadecimal digits. Different groups get
// different names.
std::string safeFileName(const std::string& group) {
  std::string name;
  for (const char c : group) {
    if (c == '/' || c == '\0' || c == '%' || (c == '.' && name.empty())) {
      const auto byte = static_cast<std::uint8_t>(c);
      name += '%';
      appendHex(name, {&byte, 1});
    } else {
      name += c;
    }
  }
  return name;
}

}  // namespace

DefaultsStore::DefaultsStore(std::string name, std::string path) : name_(std::move(name)), path_(std::move(path)) {}

void DefaultsStore::loadIfNeeded() const {
  if (loaded_.load(std::memory_order_acquire)) return;
  Status loaded = Done{};
  {
    MutexLock lock(mutex_);
    if (!loaded_) loaded = load();
  }
  if (!loaded) reportProblem(loaded);
}

Status DefaultsStore::load() const {
  const auto setAside = [this](const std::string& why) -> Status {
    const std::string name = path_.substr(path_.rfind('/') + 1) + ".damaged";
    const Status renamed = renameFile(path_, name);
    return Error{why + (renamed ? "; it is kept as " + name : "; " + renamed.error().message), 0};
  };
  Status result = Done{};
  Dictionary stored;
  if (const Result<std::string> bytes = readFile(path_, kMaxFileSize)) {
    Result<Value> root = parsePropertyList(bytes.value());
    if (root && root.value().isDictionary()) {
      stored = std::move(root.value().mutableDictionary());
    } else {
      result = setAside(path_ + " is damaged: " + (root ? "no dictionary" : root.error().message));
    }
  } else if (isPermanentError(bytes.error().code)) {
    result = setAside(bytes.error().message);
  } else if (bytes.error().code != ENOENT) {
    return bytes.error();
  }
  for (const std::string& key : removedUnread_) stored.remove(key);
  for (const std::string& key : storedUnread_) {
    if (stored.contains(key)) content_.remove(key);
  }
  for (const auto& [key, value] : content_) stored.set(key, value);
  content_ = std::move(stored);
  removedUnread_.clear();
  storedUnread_.clear();
  loaded_.store(true, std::memory_order_release);
  return result;
}

void DefaultsStore::reportProblem(const Status& status) const {
  {
    MutexLock lock(mutex_);
    std::string problem = status ? std::string() : status.error().message;
    if (lastReportedProblem_ == problem) return;
    lastReportedProblem_ = std::move(problem);
  }
  if (!status) problemHook().call(status.error().message);
}

bool DefaultsStore::isRead() const {
  loadIfNeeded();
  return loaded_.load(std::memory_order_acquire);
}

Value DefaultsStore::objectForKey(std::string_view key) const {
  loadIfNeeded();
  MutexLock lock(mutex_);
  return content_.objectForKey(key);
}

bool DefaultsStore::boolForKey(std::string_view key) const {
  const Value value = objectForKey(key);
  return (value.isNumber() || value.isString()) && value.boolValue();
}

std::string DefaultsStore::textForKeyOrStored(std::string_view key, std::string text) {
  loadIfNeeded();
  MutexLock lock(mutex_);
  if (const Value* kept = content_.find(key); kept && kept->isString()) return std::string(*kept->asString());
  if (!loaded_) storedUnread_.emplace_back(key);
  content_.set(key, text);
  countChange(Durability::Lasting);
  return text;
}

void DefaultsStore::countChange(Durability durability) {
  ++changes_;
  if (durability == Durability::Lasting) mustLastChanges_ = changes_;
}

void DefaultsStore::setObjectForKey(Value value, std::string_view key, Durability durability) {
  if (value.isNil()) {
    removeObjectForKey(key, durability);
    return;
  }
  loadIfNeeded();
  MutexLock lock(mutex_);
  // Containers and objects are not compared: that could call the host.
  const Value* const kept = content_.find(key);
  if (kept && kept->kind() == value.kind() && (value.isNumber() || value.isString()) && *kept == value) return;
  content_.set(key, std::move(value));
  countChange(durability);
}

void DefaultsStore::removeObjectForKey(std::string_view key, Durability durability) {
  loadIfNeeded();
  MutexLock lock(mutex_);
  if (!loaded_) {
    removedUnread_.emplace_back(key);
    countChange(durability);
  }
  if (content_.remove(key)) countChange(durability);
}

void DefaultsStore::makeLasting() {
  MutexLock lock(mutex_);
  mustLastChanges_ = changes_;
}

Dictionary DefaultsStore::dictionaryRepresentation() const {
  loadIfNeeded();
  MutexLock lock(mutex_);
  return content_;
}

Status DefaultsStore::synchronize() {
  synchronizeHook().call(name_);
  if (DefaultsStore* const other = other_.load()) (void)other->writeChanges();
  return writeChanges();
}

Status DefaultsStore::writeChanges() {
  {
    MutexLock lock(mutex_);
    if (writtenChanges_ == changes_ && lastingChanges_ >= mustLastChanges_) return Done{};
  }
  Status written = writeContent();
  reportProblem(written);
  if (DefaultsStore* const next = next_.load(); next && written) (void)next->writeChanges();
  return written;
}

Status DefaultsStore::writeContent() {
  for (;;) {
    Dictionary content;
    std::uint64_t changes = 0;
    Durability durability = Durability::Eventual;
    {
      MutexLock lock(mutex_);
      if (!loaded_) {
        // Merge the file's content first, or this write loses it.
        Status loaded = load();
        if (!loaded_) return loaded;
      }
      content = content_;
      changes = changes_;
      if (lastingChanges_ < mustLastChanges_) durability = Durability::Lasting;
    }
    // May call a host's object among the values, so no lock is held.
    const std::string bytes = binaryPropertyList(std::move(content));
    MutexLock writing(writeMutex_);
    {
      MutexLock lock(mutex_);
      if ((durability == Durability::Lasting ? lastingChanges_ : writtenChanges_) >= changes) return Done{};
      // Another thread has written newer content, which may not last yet.
      if (writtenChanges_ > changes) continue;
    }
    Status written = replaceFileAtomically(path_, bytes, durability);
    if (written) {
      MutexLock lock(mutex_);
      writtenChanges_ = changes;
      if (durability == Durability::Lasting) lastingChanges_ = changes;
    }
    return written;
  }
}

DefaultsStore& standardDefaults() {
  static DefaultsStore& store = makeStore("standard", "standard.plist");
  return store;
}

DefaultsStore& sdkDefaults() {
  static DefaultsStore& store = makeStore("sdk", "sdk.plist");
  return store;
}

DefaultsStore& groupDefaults(const std::string& name) {
  struct Groups {
    Mutex mutex;
    std::vector<DefaultsStore*> stores ZR_GUARDED_BY(mutex);
  };
  static Groups& groups = *new Groups;
  MutexLock lock(groups.mutex);
  for (DefaultsStore* store : groups.stores) {
    if (store->name() == name) return *store;
  }
  groups.stores.push_back(&makeStore(name, "groups/" + safeFileName(name) + ".plist"));
  return *groups.stores.back();
}

void setSynchronizeHook(std::function<void(const std::string& store)> hook) {
  synchronizeHook().set(std::move(hook));
}

void setDefaultsProblemHook(std::function<void(const std::string& problem)> hook) {
  problemHook().set(std::move(hook));
}

}  // namespace zorvane::platform
