#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Collector/Stream.h"
#include "Collector/StreamLink.h"
#include "Collector/StreamMessage.h"

namespace zorvane::collector {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kPatience{5000};
constexpr milliseconds kPause{100};

NATSMessage makeMessage(const RequestRow& row, const std::string& payload) {
  natsMsg* made = nullptr;
  const char* const subject = row.service == Service::Device ? kDeviceSubject : kReportSubject;
  natsStatus status = natsMsg_Create(&made, subject, nullptr, payload.data(), static_cast<int>(payload.size()));
  NATSMessage message(made);
  if (status == NATS_OK) status = natsMsgHeader_Set(made, kFormatHeader, kFormat);
  if (status != NATS_OK) throw StreamError("cannot make a message: " + natsReason(status));
  return message;
}

class NATSPublisher final : public Publisher {
 public:
  NATSPublisher(const std::string& servers, bool quiet) : links_(servers, quiet) {}

  bool publish(const RequestRow& row, const std::string& body) override {
    const std::string payload = encodeMessage(row, body);
    const std::optional<std::string> id = messageID(row);
    const auto until = Clock::now() + kPatience;
    while (true) {
      const std::shared_ptr<StreamLink> link = links_.connected(until);
      const NATSMessage message = makeMessage(row, payload);
      jsPubOptions options;
      jsPubOptions_Init(&options);
      options.ExpectStream = kStream;
      options.MsgId = id ? id->c_str() : nullptr;
      options.MaxWait = std::max<std::int64_t>(1, std::chrono::ceil<milliseconds>(until - Clock::now()).count());
      jsPubAck* acknowledged = nullptr;
      jsErrCode code{};
      const natsStatus status = js_PublishMsg(&acknowledged, link->context(), message.get(), &options, &code);
      const std::unique_ptr<jsPubAck, Destroy<jsPubAck_Destroy>> acknowledgement(acknowledged);
      if (status == NATS_OK) return !acknowledgement->Duplicate;
      if (status == NATS_MAX_PAYLOAD || code == JSStreamMessageExceedsMaximumErr) {
        throw StreamError("the request takes " + std::to_string(payload.size()) +
                              " bytes, more than the stream's servers allow (max_payload, " +
                              std::to_string(natsConnection_GetMaxPayload(link->connection())) + " bytes)",
                          true);
      }
      const std::string reason = natsReason(status);
      // Nobody listens: the stream was never made, or elects a leader. It is certain that nobody has the message.
      if (status != NATS_NO_RESPONDERS || Clock::now() + kPause >= until || links_.isStopping()) {
        throw StreamError("the stream did not acknowledge the request: " + reason);
      }
      makeStream(*link);
      std::this_thread::sleep_for(kPause);
    }
  }

  void checkReady() override { links_.connected(Clock::now())->needRoom(); }

  void stop() override { links_.stop(); }

 private:
  // One thread at a time.
  void makeStream(StreamLink& link) {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock) return;
    try {
      link.needStream();
    } catch (const StreamError&) {
      // The next attempt to publish shows it.
    }
  }

  StreamLinks links_;
  std::mutex mutex_;
};

}  // namespace

std::unique_ptr<Publisher> makePublisher(const std::string& servers, bool quiet) {
  return std::make_unique<NATSPublisher>(servers, quiet);
}

}  // namespace zorvane::collector
