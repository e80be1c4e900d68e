// zrhost as a child process, and a service for it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>

#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "Support/TemporaryDirectory.h"

using Json = nlohmann::ordered_json;

// Answers every POST with 200 and keeps its body.
class FakeService {
 public:
  FakeService();
  ~FakeService();

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  // Sets the function that chooses the status from the request's body. Called on the service's threads; may block.
  void answerWith(std::function<int(const Json& body)> status);

  std::vector<Json> bodies() const;
  std::vector<std::string> paths() const;
  // Names of the events in accepted reports, without the module's own.
  std::vector<std::string> acceptedEvents() const;

 private:
  httplib::Server server_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::function<int(const Json&)> status_ = [](const Json&) { return 200; };
  std::vector<Json> bodies_;
  std::vector<std::string> paths_;
  std::vector<std::string> acceptedEvents_;
  std::thread thread_;
};

struct HostResult {
  int status = 0;  // of ChildProcess::wait
  std::vector<Json> output;
  std::string errors;

  // The values that "print" gave, in order.
  std::vector<Json> values() const;
};

// One running zrhost.
class HostProcess {
 public:
  HostProcess(std::vector<std::string> arguments, std::string errorsFile)
      : process_(ZR_HOST_PROGRAM, std::move(arguments), errorsFile), errorsFile_(std::move(errorsFile)) {}

  void write(const std::string& line) { process_.write(line); }
  // Null at the end of the output.
  Json readLine();
  void interrupt() const { process_.send(SIGINT); }
  // Ends the script and waits for the end of the process.
  HostResult finish();

 private:
  ChildProcess process_;
  const std::string errorsFile_;
};

// Runs zrhost with a new container against a FakeService.
class ZRHost : public testing::Test {
 protected:
  std::vector<std::string> arguments(const std::vector<std::string>& more = {}) const;
  HostResult run(const std::vector<std::string>& script, const std::vector<std::string>& withArguments) const;
  HostResult run(const std::vector<std::string>& script) const { return run(script, arguments()); }
  // The path of a new file with the text.
  std::string fileWith(const std::string& name, const std::string& text) const;
  static std::vector<Json> linesOf(const std::string& path);

  zorvane::platform::TemporaryDirectory directory_;
  FakeService service_;
};
