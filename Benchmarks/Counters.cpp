#include "Counters.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::int64_t> allAllocations{0};
thread_local std::int64_t ownAllocations = 0;
std::atomic<std::int64_t> allSyncs{0};

}  // namespace

// Not inlined, else the compiler warns of a mismatched new and delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++ownAllocations;
  allAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

extern "C" int fsync(int file) {
  allSyncs.fetch_add(1, std::memory_order_relaxed);
  return static_cast<int>(syscall(SYS_fsync, file));
}
extern "C" int fdatasync(int file) {
  allSyncs.fetch_add(1, std::memory_order_relaxed);
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

namespace zorvane::bench {

std::int64_t allocations() {
  return allAllocations.load(std::memory_order_relaxed);
}
std::int64_t allocationsOfThread() {
  return ownAllocations;
}
std::int64_t syncs() {
  return allSyncs.load(std::memory_order_relaxed);
}

}  // namespace zorvane::bench
