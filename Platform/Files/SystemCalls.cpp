#include "Platform/Files/SystemCalls.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>

namespace zorvane::platform {
namespace {

int syncFile(int file) {
#if defined(F_FULLFSYNC)
  if (::fcntl(file, F_FULLFSYNC) == 0) return 0;  // some file systems support only fsync
#endif
  return ::fsync(file);
}

std::atomic<const SystemCalls*> currentCalls{&kRealSystemCalls};

}  // namespace

const SystemCalls kRealSystemCalls{
    [](const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); },
    [](int directory, const char* name, int flags, mode_t mode) { return ::openat(directory, name, flags, mode); },
    [](int file, struct stat* status) { return ::fstat(file, status); },
    [](int directory, const char* name, struct stat* status, int flags) {
      return ::fstatat(directory, name, status, flags);
    },
    ::read,
    ::writev,
    syncFile,
    ::close,
    ::renameat,
    ::unlinkat,
    ::mkdir,
    ::flock,
};

const SystemCalls& systemCalls() {
  return *currentCalls.load(std::memory_order_acquire);
}

void setSystemCalls(const SystemCalls* calls) {
  currentCalls.store(calls ? calls : &kRealSystemCalls, std::memory_order_release);
}

}  // namespace zorvane::platform
