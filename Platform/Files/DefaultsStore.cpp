#include "Platform/Files/DefaultsStore.h"

#include <cerrno>
#include <cstdint>
#include <map>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/HostServices.h"
#include "Platform/Text/RandomBytes.h"

namespace zorvane::platform {
namespace {

constexpr std::size_t kMaxFileSize = std::size_t{16} << 20;

using SynchronizeHook = std::function<void(const std::string& store)>;

struct HookHolder {
  Mutex mutex;
  std::shared_ptr<const SynchronizeHook> hook ZR_GUARDED_BY(mutex);
};

HookHolder& hookHolder() {
  static HookHolder& holder = *new HookHolder;
  return holder;
}

void callSynchronizeHook(const std::string& store) {
  HookHolder& holder = hookHolder();
  std::shared_ptr<const SynchronizeHook> hook;
  {
    MutexLock lock(holder.mutex);
    hook = holder.hook;
  }
  if (!hook || !*hook) return;
  try {
    (*hook)(store);
  } catch (...) {  // a hook that throws costs its own call
  }
}

DefaultsStore& makeStore(const std::string& name, const std::string& fileName) {
  return *new DefaultsStore(name, joinPath(hostServices().directories.defaults, fileName));
}

// Different names stay different: a character that a file name cannot have becomes "%" and its two hexadecimal digits.
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
  if (std::exchange(loaded_, true)) return;
  const Result<std::string> bytes = readFile(path_, kMaxFileSize);
  if (!bytes) return;
  Result<Value> root = parsePropertyList(bytes.value());
  if (root && root.value().isDictionary()) content_ = std::move(root.value().mutableDictionary());
}

Value DefaultsStore::objectForKey(std::string_view key) const {
  MutexLock lock(mutex_);
  loadIfNeeded();
  return content_.objectForKey(key);
}

bool DefaultsStore::boolForKey(std::string_view key) const {
  const Value value = objectForKey(key);
  return (value.isNumber() || value.isString()) && value.boolValue();
}

void DefaultsStore::setObjectForKey(Value value, std::string_view key) {
  if (value.isNil()) {
    removeObjectForKey(key);
    return;
  }
  MutexLock lock(mutex_);
  loadIfNeeded();
  content_.set(key, std::move(value));
  changed_ = true;
}

void DefaultsStore::removeObjectForKey(std::string_view key) {
  MutexLock lock(mutex_);
  loadIfNeeded();
  if (content_.remove(key)) changed_ = true;
}

Dictionary DefaultsStore::dictionaryRepresentation() const {
  MutexLock lock(mutex_);
  loadIfNeeded();
  return content_;
}

Status DefaultsStore::synchronize() {
  callSynchronizeHook(name_);
  return writeChanges();
}

Status DefaultsStore::writeChanges() {
  MutexLock writing(writeMutex_);
  Dictionary content;
  {
    MutexLock lock(mutex_);
    if (!changed_) return Done{};
    content = content_;
    changed_ = false;
  }
  const std::string bytes = binaryPropertyList(std::move(content));
  Status written = replaceFileAtomically(path_, bytes);
  if (!written && written.error().code == ENOENT) {
    const Status made = makeDirectories(path_.substr(0, path_.rfind('/')));
    if (made) written = replaceFileAtomically(path_, bytes);
  }
  if (!written) {
    MutexLock lock(mutex_);
    changed_ = true;
  }
  return written;
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
    std::map<std::string, DefaultsStore*> stores ZR_GUARDED_BY(mutex);
  };
  static Groups& groups = *new Groups;
  MutexLock lock(groups.mutex);
  DefaultsStore*& store = groups.stores[name];
  if (!store) store = &makeStore(name, "groups/" + safeFileName(name) + ".plist");
  return *store;
}

void setSynchronizeHook(std::function<void(const std::string& store)> hook) {
  HookHolder& holder = hookHolder();
  auto shared = std::make_shared<const SynchronizeHook>(std::move(hook));
  MutexLock lock(holder.mutex);
  holder.hook.swap(shared);
}

}  // namespace zorvane::platform
