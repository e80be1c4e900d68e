#include "Platform/Dispatch/Queue.h"

#include <cstdio>
#include <cstdlib>

namespace zorvane::platform {

void Queue::assertCurrent() const {
  if (isCurrent()) return;
  std::fprintf(stderr, "zorvane: code of the queue \"%s\" runs elsewhere\n", label_.c_str());
  std::abort();
}

}  // namespace zorvane::platform
