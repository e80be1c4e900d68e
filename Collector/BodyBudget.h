// Bounds the bytes of large request bodies that are in memory at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace zorvane::collector {

// Thread-safe.
class BodyBudget {
 public:
  // When the bytes are used up, one body at a time may go beyond them, so that bodies that wait for each other end.
  BodyBudget(std::size_t bytes, std::chrono::milliseconds patience) : bytes_(bytes), patience_(patience) {}

  // The part of one body; gives it back when destroyed. Used by one thread.
  class Share {
   public:
    explicit Share(BodyBudget& budget) : budget_(budget) {}
    ~Share() { giveBack(); }
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;

    // Waits for that many bytes more. False if there is no room after the budget's patience, or it is closed.
    bool take(std::size_t bytes);
    void giveBack();

   private:
    BodyBudget& budget_;
    std::size_t taken_ = 0;
  };

  // From now on nothing waits.
  void close();

 private:
  const std::size_t bytes_;
  const std::chrono::milliseconds patience_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t used_ = 0;
  const Share* beyond_ = nullptr;
  bool closed_ = false;
};

}  // namespace zorvane::collector
