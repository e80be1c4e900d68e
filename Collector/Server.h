// The HTTP server: checks, stores, records and answers requests.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Collector/Inspector.h"
#include "Collector/Listener.h"
#include "Collector/Live.h"
#include "Collector/Metrics.h"
#include "Collector/Options.h"
#include "Collector/Reader.h"
#include "Collector/Recorder.h"
#include "Collector/Store.h"
#include "Collector/Stream.h"

namespace zorvane::collector {

class Server {
 public:
  // Binds the port (loopback only) and opens the files. Throws std::runtime_error that says what failed and where.
  explicit Server(const Options& options, const ConnectionLimits& limits = {});
  // Calls stop().
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  int port() const { return port_; }

  // Serves on its own threads. Returns when it accepts connections. Call once.
  void start();
  // Accepts no more requests and returns when those in progress are answered. Not from a serving thread.
  void stop();

 private:
  void setRoutes();
  void setOperationRoutes();
  void takePost(Service service, const std::string& appID, const httplib::Request& request, httplib::Response& response,
                const httplib::ContentReader& reader);
  int readBody(const httplib::Request& request, const httplib::ContentReader& reader);
  int judge(RequestRow& row, const httplib::Request& request, json& body);
  void refusePath(const httplib::Request& request, httplib::Response& response);
  bool judgeAndStore(RequestRow& row, const httplib::Request& request, httplib::Response& response, bool drop);
  void publish(const RequestRow& row, httplib::Response& response);
  void addRefused(const RequestRow& row, const json& body);
  void countAccepted(bool isNew, std::chrono::steady_clock::time_point start, httplib::Response& response);
  void delay();
  void finish(const httplib::Request& request, httplib::Response& response);

  const Options options_;
  BodyBudget budget_;
  Live live_;
  Metrics metrics_;
  Listener listener_;
  const int port_;
  // Either a store, what reads it, and perhaps a consumer; or a publisher.
  std::unique_ptr<Store> store_;
  std::unique_ptr<Reader> reader_;
  std::unique_ptr<Inspector> inspector_;
  std::unique_ptr<Publisher> publisher_;
  std::unique_ptr<Consumer> consumer_;
  std::unique_ptr<Recorder> recorder_;
  // Held while a large body is parsed and stored: its values take many times its size.
  std::mutex largeBody_;
  std::thread thread_;
  std::atomic<std::uint64_t> posts_{0}, otherPosts_{0};
  std::mutex stopMutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
};

}  // namespace zorvane::collector
