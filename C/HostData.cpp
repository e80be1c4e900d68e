#include "C/HostData.h"

#include <chrono>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "Platform/Dispatch/Mutex.h"

namespace zorvane::c {

namespace {

thread_local int callbackDepth = 0;
thread_local int logDepth = 0;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

// The list of all data, and the number of calls that are running, releases included. Never destroyed.
class HostCalls {
 public:
  static HostCalls& shared() {
    static HostCalls& instance = *new HostCalls;
    return instance;
  }

  void add(HostData& data) {
    platform::MutexLock lock(mutex_);
    data.retired_ = closed_;
    data.next_ = first_;
    if (first_) first_->previous_ = &data;
    first_ = &data;
  }

  // Releases the data, unless that was done.
  void remove(HostData& data) {
    bool release = false;
    {
      platform::MutexLock lock(mutex_);
      (data.previous_ ? data.previous_->next_ : first_) = data.next_;
      if (data.next_) data.next_->previous_ = data.previous_;
      data.retired_ = true;
      release = claimRelease(data);
    }
    if (!release) return;
    callRelease(data.release_, data.data_);
    done(1);
  }

  bool begin(HostData& data) {
    platform::MutexLock lock(mutex_);
    if (data.retired_) return false;
    ++data.running_;
    ++running_;
    return true;
  }

  void end(HostData& data) {
    bool release = false;
    {
      platform::MutexLock lock(mutex_);
      --data.running_;
      release = claimRelease(data);
    }
    if (release) callRelease(data.release_, data.data_);
    done(release ? 2 : 1);
  }

  bool retireAll(double seconds) {
    const double end = now() + seconds;
    std::vector<std::pair<zr_release, void*>> released;
    {
      platform::MutexLock lock(mutex_);
      closed_ = true;
      for (HostData* data = first_; data; data = data->next_) {
        data->retired_ = true;
        if (claimRelease(*data)) released.emplace_back(data->release_, data->data_);
      }
    }
    for (const auto& [release, data] : released) callRelease(release, data);
    done(static_cast<std::int64_t>(released.size()));
    platform::MutexLock lock(mutex_);
    for (double left = end - now(); running_ > 0 && left > 0; left = end - now()) idle_.waitFor(mutex_, left);
    return running_ == 0;
  }

 private:
  // True if the caller must release the data now; the release counts as running until done().
  bool claimRelease(HostData& data) ZR_REQUIRES(mutex_) {
    if (!data.retired_ || data.running_ > 0 || !data.release_ || std::exchange(data.released_, true)) return false;
    ++running_;
    return true;
  }

  static void callRelease(zr_release release, void* data) {
    ++callbackDepth;
    release(data);
    --callbackDepth;
  }

  void done(std::int64_t count) {
    platform::MutexLock lock(mutex_);
    running_ -= count;
    if (running_ == 0 && closed_) idle_.notifyAll();
  }

  platform::Mutex mutex_;
  platform::Condition idle_;
  HostData* first_ ZR_GUARDED_BY(mutex_) = nullptr;
  std::int64_t running_ ZR_GUARDED_BY(mutex_) = 0;
  bool closed_ ZR_GUARDED_BY(mutex_) = false;
};

HostDataPointer HostData::make(void* data, zr_release release) {
  auto* const made = new (std::nothrow) HostData(data, release);
  if (!made) {
    if (release) release(data);
    throw std::bad_alloc();
  }
  HostCalls::shared().add(*made);
  return HostDataPointer(made);
}

HostData::~HostData() {
  HostCalls::shared().remove(*this);
}

HostCall::HostCall(HostDataPointer data, Kind kind)
    : data_(std::move(data)), kind_(kind), allowed_(HostCalls::shared().begin(*data_)) {
  ++callbackDepth;
  if (kind_ == Kind::Log) ++logDepth;
}

HostCall::~HostCall() {
  --callbackDepth;
  if (kind_ == Kind::Log) --logDepth;
  if (allowed_) HostCalls::shared().end(*data_);
}

bool isInCallback() {
  return callbackDepth > 0;
}

bool isInLogCallback() {
  return logDepth > 0;
}

bool retireAllHostData(double seconds) {
  return HostCalls::shared().retireAll(seconds);
}

}  // namespace zorvane::c
