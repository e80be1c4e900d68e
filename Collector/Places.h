// The threads that serve connections, one each.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace zorvane::collector {

// Thread-safe.
class Places {
 public:
  // Starts threads as they are needed, at most count.
  explicit Places(std::size_t count);
  // Call finish() first.
  ~Places();
  Places(const Places&) = delete;
  Places& operator=(const Places&) = delete;

  // Calls it on a thread of its own. It waits its turn while all are taken.
  void serve(std::function<void()> connection);
  // Returns when everything is served and the threads have ended.
  void finish();

  // Only within a served function. True: end soon, another one waits for this place.
  bool giveWay();
  // Readable while giveWay() would be true.
  int wanted() const { return wanted_; }

 private:
  void work();
  // How many of those that wait will find no place.
  std::size_t missing() const;
  void updateWanted();

  const std::size_t count_;
  const int wanted_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  std::vector<std::thread> threads_;
  std::size_t free_ = 0;     // threads that serve nothing
  std::size_t leaving_ = 0;  // that give way
  bool isWanted_ = false, finishing_ = false;
};

}  // namespace zorvane::collector
