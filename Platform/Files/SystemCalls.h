// The system calls that files are read and written with, so that a test can make any of them fail.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace zorvane::platform {

// Each member behaves as the call of its name: -1 and errno on failure.
struct SystemCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  int (*openat)(int directory, const char* name, int flags, mode_t mode);
  int (*fstat)(int file, struct stat* status);
  int (*fstatat)(int directory, const char* name, struct stat* status, int flags);
  ssize_t (*read)(int file, void* bytes, std::size_t count);
  ssize_t (*writev)(int file, const iovec* pieces, int count);
  // To the medium, not only to the device's cache, where the system tells the two apart.
  int (*fsync)(int file);
  int (*close)(int file);
  int (*renameat)(int fromDirectory, const char* from, int toDirectory, const char* to);
  int (*unlinkat)(int directory, const char* name, int flags);
  int (*mkdir)(const char* path, mode_t mode);
  int (*flock)(int file, int operation);
};

// The system's own.
extern const SystemCalls kRealSystemCalls;

// The table in force.
const SystemCalls& systemCalls();
// For tests: the table must outlive its use; null brings the real calls back. While no other thread uses files.
void setSystemCalls(const SystemCalls* calls);

}  // namespace zorvane::platform
