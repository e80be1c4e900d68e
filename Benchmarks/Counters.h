// Counts what this executable and the libraries in it ask of the system. The counting functions stand in Counters.cpp
// in place of the C and C++ libraries', so link it into the executable itself.
#pragma once

#include <cstdint>

namespace zorvane::bench {

// Calls of operator new, by all threads and by the calling thread.
std::int64_t allocations();
std::int64_t allocationsOfThread();
// Calls of fsync and fdatasync, by all threads.
std::int64_t syncs();

}  // namespace zorvane::bench
