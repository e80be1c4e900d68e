// Calls into the host: which are allowed, which are running, and when the host's data is released.
#pragma once

#include <memory>

#include "C/zranalytics.h"

namespace zorvane::c {

// The data that a host gave with a callback, and the function that releases it. Thread-safe.
class HostData {
 public:
  // If it throws, the data is released.
  static std::shared_ptr<HostData> make(void* data, zr_release release);
  // Releases the data, unless that was done.
  ~HostData();
  HostData(const HostData&) = delete;
  HostData& operator=(const HostData&) = delete;

 private:
  friend class HostCall;
  friend class HostCalls;
  HostData(void* data, zr_release release) : data_(data), release_(release) {}

  void* const data_;
  const zr_release release_;
  // Guarded by the mutex of all calls.
  HostData* previous_ = nullptr;
  HostData* next_ = nullptr;
  int running_ = 0;
  bool retired_ = false;
  bool released_ = false;
};

using HostDataPointer = std::shared_ptr<HostData>;

// A call into the host, as long as this object lives.
class HostCall {
 public:
  enum class Kind { Ordinary, Log };
  // The data must not be null.
  explicit HostCall(HostDataPointer data, Kind kind = Kind::Ordinary);
  ~HostCall();
  HostCall(const HostCall&) = delete;
  HostCall& operator=(const HostCall&) = delete;

  // False: the data is retired. Do not call.
  explicit operator bool() const { return allowed_; }
  void* data() const { return data_->data_; }

 private:
  const HostDataPointer data_;
  const Kind kind_;
  const bool allowed_;
};

// Whether the calling thread runs within a host's callback, or within its log callback.
bool isInCallback();
bool isInLogCallback();

// Retires all data, also that which is made later, and waits until no call runs. False if one still runs after that
// many seconds.
bool retireAllHostData(double seconds);

}  // namespace zorvane::c
