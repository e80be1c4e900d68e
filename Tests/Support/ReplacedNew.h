// Replaces operator new in a test program, to watch its allocations or let them fail. One file of the program includes
// this header and defines allocating(). ThreadSanitizer has an allocator of its own: nothing is replaced there, and
// ZR_REPLACED_NEW is 0.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

namespace zorvane::testing {

// Called before each allocation, on its thread. May throw std::bad_alloc.
void allocating(std::size_t size);

}  // namespace zorvane::testing

#define ZR_REPLACED_NEW 1
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#undef ZR_REPLACED_NEW
#define ZR_REPLACED_NEW 0
#endif
#endif

#if ZR_REPLACED_NEW
void* operator new(std::size_t size) {
  zorvane::testing::allocating(size);
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
// Where g++ inlines these, it takes free for the wrong counterpart of new.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
#endif
