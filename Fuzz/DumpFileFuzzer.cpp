// The older release's event file on its whole way: read, sent and refused, kept in the batch file, sent again.
#include <cstdio>

#include "Check.h"
#include "Folder.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Platform/Values/Text.h"
#include "Stepping/ManualScheduler.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZRLogger.h"

using namespace zorvane;

namespace {

constexpr std::string_view kLastLine = "{\"EVENT_ACTION\":\"last\"}";

// Answers with the status; keeps the body.
class Service final : public NetworkTransport {
 public:
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    ++requests;
    auto parsed = platform::parseJSON(request.makeBody());
    fuzz::check(parsed && parsed.value().isDictionary(), "a body is a JSON object");
    body = std::move(parsed.value().mutableDictionary());
    platform::hostServices()
        .scheduler->globalQueue(platform::Priority::Default)
        .async([completion = std::move(completion), answer = status] {
          completion({answer, "{}", ""});
        });
  }

  int status = 200;
  int requests = 0;
  Dictionary body;
};

class SilentLog final : public ZRLogSink {
 public:
  void logMessage(std::int64_t, const std::string&) override {}
  void logError(const std::string&, std::int64_t, const std::string&, const std::string&,
                const std::vector<std::string>&) override {}
};

// The module for the process's life, in a folder that goes with it.
struct World {
  const std::string& directory = fuzz::temporaryFolder();
  std::shared_ptr<platform::ManualScheduler> scheduler;
  std::shared_ptr<Service> service = std::make_shared<Service>();

  World() {
    const auto clock = std::make_shared<platform::ManualClock>(Date{1795255200});
    scheduler = std::make_shared<platform::ManualScheduler>(clock);
    platform::HostServices host;
    host.clock = clock;
    host.scheduler = scheduler;
    host.directories = {directory, directory, directory};
    fuzz::check(platform::configureHost(std::move(host)), "the services can be given");
    ZRLogger::sharedInstance().setSink(std::make_shared<SilentLog>());
    CoreSetup core;
    core.endpoint = "http://service.test";
    core.appId = "APP";
    core.remoteConfiguration = {{"periodic_flush_enabled", false}, {"unique_id", "u"}};
    core.transport = service;
    configureCore(std::move(core));
  }
};

World& world() {
  static World* const one = new World;
  return *one;
}

void writeDump(std::string_view content) {
  const std::string path = ZREventsHandler::sharedInstance().oldDatFilePath();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  fuzz::check(file != nullptr, "the dump file can be made");
  std::fwrite(content.data(), 1, content.size(), file);
  std::fclose(file);
}

Array eventsOf(std::string_view content) {
  writeDump(content);
  return ZREventsHandler::sharedInstance().getEventsFromDumpFile();
}

Array joined(Array left, const Array& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

void checkReading(std::string_view content, const Array& events) {
  if (!platform::isValidUtf8(content)) {
    fuzz::check(events.empty(), "what is no UTF-8 is not read");
    return;
  }
  for (const Value& event : events) fuzz::check(event.isDictionary() || event.isArray(), "a line is a container");
  for (const char* newline : {"\n", "\r\n", "\xC2\x85", "\xE2\x80\xA8"}) {
    std::string longer(content);
    longer.append(newline).append(kLastLine);
    fuzz::check(eventsOf(longer) == joined(events, {platform::parseJSON(kLastLine).value()}),
                "a line more is an event more");
  }
  const std::string_view half = content.substr(0, content.find('\n'));
  const std::string_view rest = content.substr(std::min(half.size() + 1, content.size()));
  fuzz::check(joined(eventsOf(half), eventsOf(rest)) == events, "lines do not depend on each other");
}

// Refused, the events go into the batch file; accepted, they are gone.
void checkSending(std::string_view content, std::size_t count) {
  ZREventsHandler& handler = ZREventsHandler::sharedInstance();
  Service& service = *world().service;
  writeDump(content);
  service.requests = 0;
  service.status = 500;
  handler.syncToServerFromDumpFile();
  world().scheduler->runAll();
  fuzz::check(service.requests == (count == 0 ? 0 : 1), "what holds events is sent once");
  fuzz::check(handler.checkIfFileExists() == (count == 0), "and the file is gone");
  if (count == 0) return;
  fuzz::check(service.body.objectForKey("viewsCount") == Value(count), "with all its events");

  const auto kept = handler.getBatches();
  fuzz::check(kept && kept->size() == 1, "what was refused is kept");
  service.status = 200;
  int completions = 0;
  handler.flushEventsInBackgroundAndResetWithCompletionBlock(false, false, [&](bool success, bool attempted) {
    fuzz::check(success && attempted, "what is kept is accepted");
    ++completions;
  });
  world().scheduler->runAll();
  fuzz::check(completions == 1 && service.requests == 2, "what is kept is sent once");
  fuzz::check(service.body.objectForKey("viewsInfo").asArray()->size() == count, "with all its events again");
  const auto left = handler.getBatches();
  fuzz::check(left && left->empty(), "what was accepted is gone");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  (void)world();  // before the module is used
  const std::string_view content = fuzz::textOf(data, size);
  const Array events = eventsOf(content);
  checkReading(content, events);
  checkSending(content, events.size());
  return 0;
}
