// The connection to the NATS servers, and the stream on them.
#pragma once

#include <nats/nats.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zorvane::collector {

inline constexpr const char* kStream = "zrcollector";
inline constexpr const char* kReportSubject = "zrcollector.report";
inline constexpr const char* kDeviceSubject = "zrcollector.device";
inline constexpr const char* kConsumer = "zrcollector-store";
inline constexpr std::int64_t kStreamBytes = std::int64_t{4} << 30;
inline constexpr std::chrono::minutes kDuplicateWindow{10};

template <auto destroy>
struct Destroy {
  template <typename Object>
  void operator()(Object* object) const {
    destroy(object);
  }
};
using NATSMessage = std::unique_ptr<natsMsg, Destroy<natsMsg_Destroy>>;

// The library's text for a status, and its reason for this thread's last failure. In one line.
std::string natsReason(natsStatus status);

// Thread-safe. Connects again by itself, until servers refuse its credentials twice: then it is closed.
class StreamLink {
 public:
  // Throws StreamError as makePublisher() does. It may not be connected yet.
  StreamLink(const std::string& servers, bool quiet);
  StreamLink(const StreamLink&) = delete;
  StreamLink& operator=(const StreamLink&) = delete;

  bool isConnected() const { return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED; }
  // Why it is not connected, in one line.
  std::string failure() const;
  bool isClosed() const { return natsConnection_IsClosed(connection_.get()); }
  // Makes the stream if there is none. Throws StreamError unless it has a leader.
  void needStream() { (void)findStream(); }
  // The same; also throws when more than 99 % of its bytes are taken.
  void needRoom();

  natsConnection* connection() const { return connection_.get(); }
  jsCtx* context() const { return context_.get(); }

 private:
  using StreamInfo = std::unique_ptr<jsStreamInfo, Destroy<jsStreamInfo_Destroy>>;

  // Null for a stream that this call made.
  StreamInfo findStream();
  void makeStream();

  std::unique_ptr<natsConnection, Destroy<natsConnection_Destroy>> connection_;
  std::unique_ptr<jsCtx, Destroy<jsCtx_Destroy>> context_;
};

// Thread-safe. Replaces a link that was closed.
class StreamLinks {
 public:
  // Throws StreamError as makePublisher() does.
  StreamLinks(const std::string& servers, bool quiet)
      : servers_(servers), quiet_(quiet), link_(std::make_shared<StreamLink>(servers, quiet)) {}

  // Connected. Waits for that until the time; throws StreamError then, and after stop().
  std::shared_ptr<StreamLink> connected(std::chrono::steady_clock::time_point until);
  void stop() { stopping_ = true; }
  bool isStopping() const { return stopping_; }

 private:
  std::shared_ptr<StreamLink> open();

  const std::string servers_;
  const bool quiet_;
  std::atomic<bool> stopping_{false};
  std::mutex mutex_;
  std::shared_ptr<StreamLink> link_;
  std::chrono::steady_clock::time_point nextTry_{};
};

}  // namespace zorvane::collector
