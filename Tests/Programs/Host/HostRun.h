// zrhost as a child process, and the service that it talks to.
#pragma once

#include <httplib.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

using Json = nlohmann::ordered_json;

// Answers every POST, and keeps what it was sent.
class FakeService {
 public:
  FakeService();
  ~FakeService();

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  // Decides the status of each answer by the request's body, on the service's threads. May block.
  void answerWith(std::function<int(const Json& body)> status);

  std::vector<Json> bodies() const;
  std::vector<std::string> paths() const;
  // The names of the application's own events in all accepted reports.
  std::vector<std::string> acceptedEvents() const;

 private:
  struct Received {
    std::string path;
    Json body;
    int status;
  };

  httplib::Server server_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::function<int(const Json&)> status_ = [](const Json&) { return 200; };
  std::vector<Received> received_;
  std::thread thread_;
};

struct HostResult {
  // 0 to 255, or minus the signal that ended it.
  int status = 0;
  std::vector<Json> output;
  std::string errors;

  // The values that "print" gave, in order.
  std::vector<Json> values() const;
};

// One running zrhost, driven through pipes.
class HostProcess {
 public:
  HostProcess(const std::vector<std::string>& arguments, std::string errorsFile);
  ~HostProcess();

  void write(const std::string& line);
  Json readLine();
  // Ends the script and waits for the end of the process.
  HostResult finish();

 private:
  bool readMore();

  std::string errorsFile_;
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string buffer_;
};
