// The system calls behind FileSystem.h, so that a test can make any of them fail.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace zorvane::platform {

// Each member behaves as the system call of its name: -1 with errno set on failure.
struct SystemCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  int (*openat)(int directory, const char* name, int flags, mode_t mode);
  int (*fstat)(int file, struct stat* status);
  int (*fstatat)(int directory, const char* name, struct stat* status, int flags);
  ssize_t (*read)(int file, void* bytes, std::size_t count);
  ssize_t (*writev)(int file, const iovec* pieces, int count);
  // To the medium, not only to the device's cache, where the system can tell the two apart.
  int (*fsync)(int file);
  int (*close)(int file);
  int (*renameat)(int fromDirectory, const char* from, int toDirectory, const char* to);
  int (*unlinkat)(int directory, const char* name, int flags);
  int (*mkdir)(const char* path, mode_t mode);
  int (*flock)(int file, int operation);
};

extern const SystemCalls kRealSystemCalls;

const SystemCalls& systemCalls();
// For tests, while no other thread uses files. The table must outlive its use; null restores the real calls.
void setSystemCalls(const SystemCalls* calls);

}  // namespace zorvane::platform
