// The SDK's log: passes messages and errors to the host's sink.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Dispatch/LockedValue.h"
#include "Platform/Export.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Receives log lines, on any thread, with no lock held. It may be called while one of the module's singletons is being
// constructed, so it must not call the module. Exceptions are dropped.
class ZR_PUBLIC ZRLogSink {
 public:
  virtual ~ZRLogSink() = default;
  // The type is 1.
  virtual void logMessage(std::int64_t type, const std::string& message) = 0;
  // The call stack is empty if the C library provides none.
  virtual void logError(const std::string& file, std::int64_t line, const std::string& operation,
                        const std::string& message, const std::vector<std::string>& callStack) = 0;
};

// Thread-safe. Without a sink nothing is logged.
class ZR_PUBLIC ZRLogger {
 public:
  // Never destroyed.
  static ZRLogger& sharedInstance();

  // Null removes the sink. A call in progress on another thread may still use the old one.
  void setSink(std::shared_ptr<ZRLogSink> sink);
  // Lets a caller skip building a message.
  bool hasSink() const;

  // The arguments hold the formatted message.
  void logWithTypeAndFormatArgs(std::int64_t type, const Array& formatArgs);
  // The arguments hold, in order: source file base name, line number, operation name, message.
  void logErrorWithFormatArgsAndStackTrace(const Array& formatArgs, const std::vector<std::string>& callStack);

 private:
  ZRLogger() = default;

  platform::LockedValue<std::shared_ptr<ZRLogSink>> sink_;
};

}  // namespace zorvane
