// A fixture that runs the module on a manual scheduler and clock, a fake transport and a temporary directory.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Platform/HostServices.h"
#include "Stepping/ManualScheduler.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZRLogger.h"

namespace zorvane::platform {

// For the messages of failed comparisons.
void PrintTo(const Value& value, std::ostream* out);
void PrintTo(const Dictionary& dictionary, std::ostream* out);

}  // namespace zorvane::platform

namespace zorvane::testing {

// Fails the test when the calling thread holds a lock of the module. Only builds that count locks see it (Mutex.h).
void expectNoLockHeld(const char* where);

// Records what the module logs. Thread-safe.
class LogRecorder final : public ZRLogSink {
 public:
  struct ErrorRecord {
    std::string file;
    std::int64_t line;
    std::string operation;
    std::string message;
    friend bool operator==(const ErrorRecord&, const ErrorRecord&) = default;
  };

  void logMessage(std::int64_t type, const std::string& message) override;
  void logError(const std::string& file, std::int64_t line, const std::string& operation, const std::string& message,
                const std::vector<std::string>& callStack) override;

  std::vector<std::string> messages() const;
  std::vector<ErrorRecord> errors() const;
  // How often this message was logged.
  std::size_t count(const std::string& message) const;
  bool has(const std::string& message) const { return count(message) > 0; }
  void clear();

  // Called after each message, with no lock held. Set it while no other thread logs.
  std::function<void(const std::string& message)> onMessage;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> messages_;
  std::vector<ErrorRecord> errors_;
};

// A network transport whose responses the test decides. Thread-safe.
class FakeService final : public NetworkTransport {
 public:
  struct Request {
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    Value body;  // parsed
    std::string header(const std::string& name) const;
  };

  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override;

  // The status of each request; 200 by default. With hold set, requests wait for answerNext().
  std::function<int(const Request&)> decide = [](const Request&) { return 200; };
  bool hold = false;
  // Requests wait for proceed(), without their bodies.
  bool isBusy = false;
  void proceed();

  // Answers the oldest held request on the calling thread; the caller then runs the scheduler.
  void answerNext(int status);
  std::size_t heldCount() const;
  std::vector<Request> requests() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Request> requests_;
  std::vector<std::function<void(const TransportResponse&)>> held_;
  std::vector<std::pair<TransportRequest, std::function<void(const TransportResponse&)>>> waiting_;
};

class ModuleTest : public ::testing::Test {
 protected:
  static constexpr double kStart = 1795255200;  // 2026-11-21 10:00:00 UTC

  ModuleTest();
  ~ModuleTest() override;

  // Configures the host services and the core. Call it before the first use of the module. The directories exist
  // already, so that a test can put files there first.
  void start(const Dictionary& configuration = {}, const std::string& appId = "APP");
  // Runs the work in a child process over the same directories: an earlier launch. Call it before start(). The test
  // fails when the work does, or when it exits with another status than 0.
  static void inEarlierLaunch(const std::function<void()>& work);
  // Runs all tasks, responses of the service included.
  void settle() { scheduler_->runAll(); }

  std::string documents(const std::string& name) const { return (directory_ / "Documents" / name).string(); }
  std::string library(const std::string& name) const { return (directory_ / "Library" / name).string(); }
  static std::string readAll(const std::string& path);
  static void writeAll(const std::string& path, const std::string& content);
  // The content of the batch file; empty without a file.
  Dictionary batchFile() const;
  // The records of all events that were sent so far, in order.
  std::vector<Dictionary> reportedEvents() const;
  static std::vector<std::string> eventNames(const Array& events);

  // What a test may change before start(). An empty clock, scheduler or transport is the fixture's.
  platform::HostServices host_;
  CoreSetup core_;
  std::filesystem::path directory_;
  std::shared_ptr<platform::ManualClock> clock_;
  std::shared_ptr<platform::ManualScheduler> scheduler_;
  std::shared_ptr<platform::NotificationCenter> center_;
  std::shared_ptr<FakeService> service_;
  std::shared_ptr<LogRecorder> log_;
};

}  // namespace zorvane::testing
