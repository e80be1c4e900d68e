// A serial queue over a pool of threads.
#pragma once

#include <memory>
#include <string>

#include "Platform/Dispatch/Queue.h"
#include "Platform/Dispatch/WorkerPool.h"

namespace zorvane::platform {

class SerialQueue final : public Queue {
 public:
  SerialQueue(std::string label, std::shared_ptr<WorkerPool> pool, std::shared_ptr<QueueContext> context);

  void async(Task task) override;
  bool isCurrent() const override;

 private:
  // Lives until the last task has run.
  struct State;
  struct Turn;
  std::shared_ptr<State> state_;
};

}  // namespace zorvane::platform
