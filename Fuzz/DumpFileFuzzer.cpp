// The event file of earlier releases: it is read, sent and refused, stored in the batch file, and sent again.
#include <cstdio>

#include "Check.h"
#include "Folder.h"
#include "Platform/Dispatch/ManualScheduler.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Platform/Values/Text.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZorvaneCore/CoreSetup.h"

using namespace zorvane;

namespace {

constexpr std::string_view kLastLine = "{\"EVENT_ACTION\":\"last\"}";

// Responds with the status and keeps the last body.
class Service final : public NetworkTransport {
 public:
  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    ++requests;
    auto parsed = platform::parseJSON(request.makeBody());
    fuzz::check(parsed && parsed.value().isDictionary(), "a body is a JSON object");
    body = std::move(parsed.value().mutableDictionary());
    platform::hostServices()
        .scheduler->globalQueue(platform::Priority::Default)
        .async([completion = std::move(completion), code = status] {
          completion({code, "{}", ""});
        });
  }

  int status = 200;
  int requests = 0;
  Dictionary body;
};

// The module in a temporary folder, for the life of the process.
struct Module {
  const std::string& directory = fuzz::temporaryFolder();
  std::shared_ptr<platform::ManualScheduler> scheduler;
  std::shared_ptr<Service> service = std::make_shared<Service>();

  Module() {
    const auto clock = std::make_shared<platform::ManualClock>(Date{1795255200});
    scheduler = std::make_shared<platform::ManualScheduler>(clock);
    platform::HostServices host;
    host.clock = clock;
    host.scheduler = scheduler;
    host.directories = {directory, directory, directory};
    fuzz::check(platform::configureHost(std::move(host)), "the host is configured");
    CoreSetup core;
    core.endpoint = "http://service.test";
    core.appId = "APP";
    core.remoteConfiguration = {{"periodic_flush_enabled", false}, {"unique_id", "u"}};
    core.transport = service;
    configureCore(std::move(core));
  }
};

Module& theModule() {
  static Module* const one = new Module;
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
    fuzz::check(events.empty(), "a file that is not UTF-8 is not read");
    return;
  }
  for (const Value& event : events) fuzz::check(event.isDictionary() || event.isArray(), "a line is a container");
  for (const char* newline : {"\n", "\r\n", "\xC2\x85", "\xE2\x80\xA8"}) {
    std::string longer(content);
    longer.append(newline).append(kLastLine);
    fuzz::check(eventsOf(longer) == joined(events, {platform::parseJSON(kLastLine).value()}),
                "another line is another event");
  }
  const std::string_view half = content.substr(0, content.find('\n'));
  const std::string_view rest = content.substr(std::min(half.size() + 1, content.size()));
  fuzz::check(joined(eventsOf(half), eventsOf(rest)) == events, "lines do not depend on each other");
}

// Refused events go into the batch file; accepted ones are removed.
void checkSending(std::string_view content, std::size_t count) {
  ZREventsHandler& handler = ZREventsHandler::sharedInstance();
  Service& service = *theModule().service;
  writeDump(content);
  service.requests = 0;
  service.status = 500;
  handler.syncToServerFromDumpFile();
  theModule().scheduler->runAll();
  fuzz::check(service.requests == (count == 0 ? 0 : 1), "a file with events is sent once");
  fuzz::check(handler.checkIfFileExists() == (count == 0), "and then removed");
  if (count == 0) return;
  fuzz::check(service.body.objectForKey("viewsCount") == Value(count), "with all its events");

  const auto kept = handler.getBatches();
  fuzz::check(kept && kept->size() == 1, "the refused events are stored");
  service.status = 200;
  int completions = 0;
  handler.flushEventsInBackgroundAndResetWithCompletionBlock(false, false, [&](bool success, bool attempted) {
    fuzz::check(success && attempted, "the stored events are accepted");
    ++completions;
  });
  theModule().scheduler->runAll();
  fuzz::check(completions == 1 && service.requests == 2, "the stored events are sent once");
  fuzz::check(service.body.objectForKey("viewsInfo").asArray()->size() == count, "with all its events again");
  const auto left = handler.getBatches();
  fuzz::check(left && left->empty(), "the accepted events are removed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  (void)theModule();  // configures the host before its first use
  const std::string_view content = fuzz::textOf(data, size);
  const Array events = eventsOf(content);
  checkReading(content, events);
  checkSending(content, events.size());
  return 0;
}
