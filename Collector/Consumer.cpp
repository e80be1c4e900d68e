#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Collector/Stream.h"
#include "Collector/StreamLink.h"
#include "Collector/StreamMessage.h"
#include "CommandLine/CommandLine.h"

namespace zorvane::collector {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr int kMostMessages = 128;            // of one fetch
constexpr std::size_t kMostBytes = 4u << 20;  // of the bodies of one transaction, and one body more
constexpr nanoseconds kFetchTime = std::chrono::seconds(1), kFetchRestTime = milliseconds(100);
// A consumer that ended without acknowledging: its messages go to another one after this time.
constexpr nanoseconds kAcknowledgeTime = std::chrono::seconds(60);
// Of all consumers together. More than they can have, so that messages which cannot be stored do not stop the others.
constexpr std::int64_t kMostUnacknowledged = 100'000;
constexpr milliseconds kShortestPause{250}, kLongestPause{10'000};
constexpr std::int64_t kEndMilliseconds = 2000;

std::string_view payloadOf(const NATSMessage& message) {
  return {natsMsg_GetData(message.get()), static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
}

// Ends a subscription and sends its last acknowledgements. A message that came too late for its last fetch goes to
// another consumer at once.
struct EndSubscription {
  natsConnection* connection;

  void operator()(natsSubscription* subscription) const {
    natsSubscription_Drain(subscription);
    // Once this is answered, nothing more comes.
    if (natsConnection_FlushTimeout(connection, kEndMilliseconds) == NATS_OK) handBackMessages(subscription);
    natsSubscription_Destroy(subscription);
  }

  void handBackMessages(natsSubscription* subscription) const {
    int number = 0;
    natsSubscription_GetPending(subscription, &number, nullptr);
    if (number == 0) return;
    natsMsgList list{};
    natsSubscription_Fetch(&list, subscription, number, kEndMilliseconds, nullptr);
    for (int i = 0; i < list.Count; ++i) natsMsg_Nak(list.Msgs[i], nullptr);
    natsMsgList_Destroy(&list);
    natsConnection_FlushTimeout(connection, kEndMilliseconds);
  }
};

class NATSConsumer final : public Consumer {
 public:
  NATSConsumer(const std::string& servers, bool quiet, Store& store, Metrics& metrics, Live& live)
      : quiet_(quiet), store_(store), metrics_(metrics), live_(live), links_(servers, quiet) {
    thread_ = std::thread([this] { work(); });
  }
  ~NATSConsumer() override {
    {
      const std::lock_guard lock(mutex_);
      links_.stop();
    }
    stopped_.notify_all();
    thread_.join();
  }

 private:
  using Subscription = std::unique_ptr<natsSubscription, EndSubscription>;
  struct Batch {
    std::vector<AcceptedRequest> requests;
    std::vector<NATSMessage> messages;
    std::size_t bytes = 0;
  };

  void work() {
    while (!links_.isStopping()) {
      try {
        const auto link = links_.connected(std::chrono::steady_clock::now() + kLongestPause);
        const Subscription subscription = subscribe(*link);
        while (!links_.isStopping()) storeNext(*link, subscription.get());
      } catch (const std::exception& error) {
        if (!links_.isStopping()) pauseAfter(error.what());
      }
    }
  }

  Subscription subscribe(StreamLink& link) {
    link.needStream();
    jsErrCode code{};
    jsConsumerInfo* found = nullptr;
    natsStatus status = js_GetConsumerInfo(&found, link.context(), kStream, kConsumer, nullptr, &code);
    jsConsumerInfo_Destroy(found);
    if (code == JSConsumerNotFoundErr) {
      jsConsumerConfig config;
      jsConsumerConfig_Init(&config);
      config.Durable = kConsumer;
      config.AckPolicy = js_AckExplicit;
      config.AckWait = kAcknowledgeTime.count();
      config.MaxDeliver = -1;
      config.MaxAckPending = kMostUnacknowledged;
      status = js_AddConsumer(nullptr, link.context(), kStream, &config, nullptr, &code);
    }
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = kStream;
    options.Consumer = kConsumer;
    natsSubscription* made = nullptr;
    if (status == NATS_OK) {
      status = js_PullSubscribe(&made, link.context(), nullptr, kConsumer, nullptr, &options, &code);
    }
    if (status != NATS_OK) throw StreamError("cannot read the stream: " + natsReason(status));
    return Subscription(made, {link.connection()});
  }

  // Waits for a message, takes those that are there, too, and stores them.
  void storeNext(StreamLink& link, natsSubscription* subscription) {
    std::vector<NATSMessage> messages;
    fetch(subscription, messages, 1, 0);
    if (messages.empty()) {
      metrics_.setPending(0);
      return;
    }
    if (batchSize_ > 1) fetch(subscription, messages, batchSize_ - 1, natsConnection_GetMaxPayload(link.connection()));
    Batch batch;
    try {
      for (NATSMessage& message : messages) {
        const std::uint64_t sequence = observe(message.get());
        add(message, sequence, batch);
        if (batch.bytes < kMostBytes) continue;
        store(std::exchange(batch, {}));
        // The others keep their time.
        for (const NATSMessage& waiting : messages) {
          if (waiting) natsMsg_InProgress(waiting.get(), nullptr);
        }
      }
      store(batch);
    } catch (...) {
      // Perhaps another consumer can store them. Those that are answered already are not answered again.
      std::move(batch.messages.begin(), batch.messages.end(), std::back_inserter(messages));
      for (const NATSMessage& message : messages) {
        if (message) natsMsg_Nak(message.get(), nullptr);
      }
      throw;
    }
  }

  // Adds to the messages. Waits for the first unless there is a limit of bytes.
  void fetch(natsSubscription* subscription, std::vector<NATSMessage>& messages, int number, std::int64_t mostBytes) {
    jsFetchRequest request;
    jsFetchRequest_Init(&request);
    request.Batch = number;
    request.NoWait = mostBytes > 0;
    request.Expires = (request.NoWait ? kFetchRestTime : kFetchTime).count();
    // A message that is larger than the limit would never be delivered.
    request.MaxBytes = mostBytes > 0 ? std::max<std::int64_t>(2 * mostBytes, kMostBytes) : 0;
    natsMsgList list{};
    const natsStatus status = natsSubscription_FetchRequest(&list, subscription, &request);
    for (int i = 0; i < list.Count; ++i) messages.emplace_back(std::exchange(list.Msgs[i], nullptr));
    natsMsgList_Destroy(&list);
    if (status != NATS_OK && status != NATS_TIMEOUT && status != NATS_NOT_FOUND) {
      if (messages.empty()) throw StreamError("cannot read the stream: " + natsReason(status));
    }
  }

  // The message's number in the stream.
  std::uint64_t observe(natsMsg* message) {
    jsMsgMetaData* found = nullptr;
    if (natsMsg_GetMetaData(&found, message) != NATS_OK) return 0;
    const std::unique_ptr<jsMsgMetaData, Destroy<jsMsgMetaData_Destroy>> metadata(found);
    if (found->NumDelivered > 1) metrics_.countRedelivered();
    metrics_.setPending(found->NumPending);
    return found->Sequence.Stream;
  }

  // Takes the message, unless it throws.
  void add(NATSMessage& message, std::uint64_t sequence, Batch& batch) {
    const char* format = nullptr;
    natsMsgHeader_Get(message.get(), kFormatHeader, &format);
    if (format && std::string_view(format) != kFormat) {
      say("message " + std::to_string(sequence) + " of the stream has format " + format +
          "; it stays for a newer release");
      metrics_.count(Consumed::Unreadable);
      natsMsg_NakWithDelay(message.get(), kLongestPause.count(), nullptr);
      message.reset();
      return;
    }
    StreamMessage decoded;
    decoded.row.service = Service::Unknown;
    decoded.row.headers = "{}";
    decoded.body = payloadOf(message);
    try {
      decoded = decodeMessage(decoded.body);
      json body = parseBody(decoded.body);
      checkShape(decoded.row.service, body);
      decoded.row.bid = textAt(body, {"meta", "bid"});
      batch.requests.push_back({std::move(decoded.row), std::move(body)});
      batch.messages.push_back(std::move(message));
      batch.bytes += decoded.body.size();
    } catch (const BadRequest& error) {
      keepUnreadable(std::move(decoded), "message " + std::to_string(sequence) + " of the stream: " + error.what());
      natsMsg_Ack(message.get(), nullptr);
      message.reset();
    }
  }

  // In the database, as a refused request.
  void keepUnreadable(StreamMessage message, const std::string& reason) {
    RequestRow& row = message.row;
    row.status = 400;
    row.bytes = message.body.size();
    row.error = reason;
    row.body = beginningOf(message.body);
    store_.addRefused(row, nullptr);
    say(reason);
    metrics_.count(Consumed::Unreadable);
    live_.announce();
  }

  void store(const Batch& batch) {
    if (batch.requests.empty()) return;
    try {
      const std::vector<bool> isNew = store_.addAcceptedTogether(batch.requests);
      for (const bool each : isNew) metrics_.count(each ? Consumed::Stored : Consumed::Duplicate);
    } catch (const std::exception&) {
      // Perhaps only one cannot be stored. So next each on its own; one that fails again is left alone for a while.
      const std::int64_t delay = batchSize_ == 1 ? kLongestPause.count() : 0;
      for (const NATSMessage& message : batch.messages) {
        natsMsg_NakWithDelay(message.get(), delay, nullptr);
        metrics_.count(Consumed::Failed);
      }
      batchSize_ = 1;
      throw;
    }
    for (const NATSMessage& message : batch.messages) natsMsg_Ack(message.get(), nullptr);
    batchSize_ = std::min(2 * batchSize_, kMostMessages);
    pause_ = kShortestPause;
    failure_.clear();
    live_.announce();
  }

  void pauseAfter(const std::string& reason) {
    if (reason != failure_) say("the stream's requests wait: " + reason);
    failure_ = reason;
    std::unique_lock lock(mutex_);
    stopped_.wait_for(lock, pause_, [this] { return links_.isStopping(); });
    pause_ = std::min(2 * pause_, kLongestPause);
  }

  void say(const std::string& text) const {
    if (!quiet_) std::fprintf(stderr, "zrcollector: %s\n", inOneLine(text).c_str());
  }

  const bool quiet_;
  Store& store_;
  Metrics& metrics_;
  Live& live_;
  StreamLinks links_;
  int batchSize_ = kMostMessages;
  milliseconds pause_ = kShortestPause;
  std::string failure_;  // since the last request was stored
  std::mutex mutex_;
  std::condition_variable stopped_;
  std::thread thread_;
};

}  // namespace

std::unique_ptr<Consumer> startConsumer(const std::string& servers, bool quiet, Store& store, Metrics& metrics,
                                        Live& live) {
  return std::make_unique<NATSConsumer>(servers, quiet, store, metrics, live);
}

}  // namespace zorvane::collector
