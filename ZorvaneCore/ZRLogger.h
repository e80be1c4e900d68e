// The SDK's log: one line a message, one record an error, to whatever sink the host set.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Where log lines go. Called from any thread, with no lock held, also while one of the module's objects is made for the
// first time: a sink hands its line on and does not call the module. What it throws is dropped.
class ZRLogSink {
 public:
  virtual ~ZRLogSink() = default;
  virtual void logMessage(std::int64_t type, const std::string& message) = 0;
  // The call stack is empty where the C library gives none.
  virtual void logError(const std::string& file, std::int64_t line, const std::string& operation,
                        const std::string& message, const std::vector<std::string>& callStack) = 0;
};

// Thread-safe. Without a sink nothing is logged.
class ZRLogger {
 public:
  static ZRLogger& sharedInstance();

  void setSink(std::shared_ptr<ZRLogSink> sink);
  // Lets a caller save itself the making of a message.
  bool hasSink() const;

  // The arguments hold the finished message.
  void logWithTypeAndFormatArgs(std::int64_t type, const Array& formatArgs);
  // The arguments hold, in order: source file base name, line number, operation name, message.
  void logErrorWithFormatArgsAndStackTrace(const Array& formatArgs, const std::vector<std::string>& callStack);

 private:
  ZRLogger() = default;
  std::shared_ptr<ZRLogSink> sink() const;

  mutable platform::Mutex mutex_;
  std::shared_ptr<ZRLogSink> sink_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
