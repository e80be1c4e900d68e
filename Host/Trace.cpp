#include "Host/Trace.h"

#include <cstdio>
#include <utility>

#include "CommandLine/CommandLine.h"
#include "Platform/Files/DefaultsStore.h"
#include "Platform/HostServices.h"
#include "ZorvaneCore/ZRLogger.h"

namespace zorvane::host {

namespace {

// A line of the log that the user must see, too: something could not be saved or read.
bool isFailure(std::string_view message) {
  if (message.starts_with("Journal : ")) return !message.ends_with(" of an earlier launch are saved");
  return message.starts_with("Batch Events plist : ") || message.starts_with("Archive : ") ||
         message.starts_with("Defaults : ");
}

}  // namespace

class Trace::LogSink final : public ZRLogSink {
 public:
  explicit LogSink(Trace& trace) : trace_(trace) {}
  void logMessage(std::int64_t /*type*/, const std::string& message) override {
    if (isFailure(message)) {
      trace_.failureLogged_ = true;
      std::fprintf(stderr, "zrhost: %s\n", inOneLine(message).c_str());
    }
    trace_.write({{"t", "log"}, {"message", message}});
  }
  void logError(const std::string& file, std::int64_t line, const std::string& operation, const std::string& message,
                const std::vector<std::string>& /*callStack*/) override {
    trace_.write({{"t", "error"}, {"file", file}, {"line", line}, {"operation", operation}, {"message", message}});
  }

 private:
  Trace& trace_;
};

class Trace::TriggerDelegate final : public ZREventTriggerDelegate {
 public:
  TriggerDelegate(Trace& trace, std::string_view name, bool counts) : trace_(trace), name_(name), counts_(counts) {}
  void eventTrackedWithNameAndEventAttr(const Value& eventName, Dictionary& /*eventAttr*/) override {
    if (counts_) trace_.eventsRecorded_.fetch_add(1, std::memory_order_relaxed);
    trace_.write({{"t", "trigger"}, {"delegate", name_}, {"event", eventName}});
  }

 private:
  Trace& trace_;
  const std::string_view name_;
  const bool counts_;
};

std::shared_ptr<ZREventTriggerDelegate> Trace::makeDelegate(std::string_view name, bool counts) {
  return std::make_shared<TriggerDelegate>(*this, name, counts);
}

void Trace::hookIn() {
  ZRLogger::sharedInstance().setSink(std::make_shared<LogSink>(*this));
  if (!writes_) return;
  platform::hostServices().notificationCenter->setPostHook([this](std::string_view name) {
    write({{"t", "notification"}, {"name", name}});
  });
  platform::setSynchronizeHook([this](const std::string& store) { write({{"t", "synchronize"}, {"store", store}}); });
}

void Trace::hookInto(CoreSetup& setup) {
  if (!writes_) return;
  const auto bidValue = [](const std::optional<std::string>& bid) { return bid ? Value(*bid) : Value(null); };
  setup.willSendRequest = [this, bidValue](std::int64_t service, const std::optional<std::string>& bid) {
    write({{"t", "request"}, {"service", service}, {"bid", bidValue(bid)}});
  };
  setup.didReceiveResponse = [this, bidValue](std::int64_t service, const std::optional<std::string>& bid,
                                              bool success) {
    write({{"t", "response"}, {"service", service}, {"bid", bidValue(bid)}, {"success", success}});
  };
}

void Trace::task(std::string_view phase, std::string_view name, std::uint64_t id) {
  write({{"t", "task"}, {"phase", phase}, {"name", name}, {"id", id}});
}

void Trace::write(Dictionary line) {
  if (!writes_) return;
  if (platform::hostServices().scheduler->mainQueue().isCurrent()) line.set("main", true);
  file_.write(line);
}

}  // namespace zorvane::host
