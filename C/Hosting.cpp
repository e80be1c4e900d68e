#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "C/Handles.h"
#include "C/Module.h"
#include "C/Services.h"
#include "Platform/Dispatch/LockedValue.h"
#include "Platform/HostServices.h"
#include "Platform/Time/Deadline.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZRAnalytics/ZRHosting.h"
#include "ZorvaneCore/ZRStandardErrorLog.h"
#if defined(ZR_C_HTTP)
#include "Transport/CurlTransport.h"
#endif

using namespace zorvane;
using namespace zorvane::c;

struct zr_options {
  // Host: directories, locale, time zone, advertising. Core: all but the default transport.
  ZRStartOptions start;
  platform::MainLoopOptions mainLoop;
  zr_state state = ZR_STATE_ACTIVE;
  BackgroundTaskFunctions backgroundTasks;
};

namespace {

// A transport that the module keeps for ever, but whose thread can be ended. Thread-safe.
class EndableTransport final : public NetworkTransport {
 public:
  explicit EndableTransport(std::shared_ptr<NetworkTransport> transport) : transport_(std::move(transport)) {}

  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    if (const auto transport = transport_.get()) return transport->send(std::move(request), std::move(completion));
    completion({0, "", "the module is closed"});
  }
  // Destroys the transport.
  void end() { transport_.set(nullptr); }

 private:
  platform::LockedValue<std::shared_ptr<NetworkTransport>> transport_;
};

// Of the start that succeeded; never destroyed.
struct Running {
  std::shared_ptr<platform::ThreadScheduler> scheduler;
  std::shared_ptr<HostApplication> application;
  std::shared_ptr<EndableTransport> transport;
};
const Running* running = nullptr;

template <typename Work>
zr_status change(zr_options* options, const Work& work) {
  return guarded([&] {
    requireArgument(options, "options");
    work(*options);
  });
}

// The same with the host's data. If it fails, the data is released.
template <typename Work>
zr_status change(zr_options* options, void* data, zr_release release, const Work& work) {
  return guarded([&] {
    HostDataPointer hostData = HostData::make(data, release);
    requireArgument(options, "options");
    work(*options, std::move(hostData));
  });
}

void requireCallback(bool given) {
  require(given, "the callback is NULL");
}

void useDefaultTransport([[maybe_unused]] ZRStartOptions& start) {
#if defined(ZR_C_HTTP)
  if (!start.core.transport) start.core.transport = std::make_shared<CurlTransport>();
#endif
}

Running start(const zr_options& options) {
  ZRStartOptions start = options.start;
  useDefaultTransport(start);
  start.host.clock = std::make_shared<platform::SystemClock>();
  Running result;
  if (start.core.transport) {
    result.transport = std::make_shared<EndableTransport>(std::move(start.core.transport));
    start.core.transport = result.transport;
  }
  result.scheduler = platform::makeThreadScheduler(start.host.clock, options.mainLoop);
  result.application = std::make_shared<HostApplication>(options.state, options.backgroundTasks);
  start.host.scheduler = result.scheduler;
  start.host.application = result.application;
  if (const auto started = startAnalytics(std::move(start)); !started) {
    fail(ZR_ERROR_CONFIGURATION, started.error().message);
  }
  return result;
}

HostApplication& application() {
  return *running->application;
}

}  // namespace

zr_options* zr_options_new(void) {
  return guardedPointer([] { return new zr_options; });
}

void zr_options_free(zr_options* options) {
  delete options;
}

zr_status zr_options_set_endpoint(zr_options* options, const char* url, size_t length) {
  return change(options, [&](zr_options& changed) { changed.start.core.endpoint = textOf(url, length, "url"); });
}

zr_status zr_options_set_app_id(zr_options* options, const char* app_id, size_t length) {
  return change(options, [&](zr_options& changed) { changed.start.core.appId = textOf(app_id, length, "app_id"); });
}

zr_status zr_options_set_folder(zr_options* options, const char* path, size_t length) {
  return change(options, [&](zr_options& changed) {
    const std::string folder(textOf(path, length, "path"));
    require(!folder.empty(), "path is empty");
    changed.start.host.directories = {folder + "/Documents", folder + "/Library", folder + "/Defaults"};
  });
}

zr_status zr_options_set_folders(zr_options* options, const char* documents, size_t documents_length,
                                 const char* library, size_t library_length, const char* defaults,
                                 size_t defaults_length) {
  return change(options, [&](zr_options& changed) {
    changed.start.host.directories = {std::string(textOf(documents, documents_length, "documents")),
                                      std::string(textOf(library, library_length, "library")),
                                      std::string(textOf(defaults, defaults_length, "defaults"))};
  });
}

zr_status zr_options_set_remote_configuration(zr_options* options, const char* json, size_t length) {
  return change(options,
                [&](zr_options& changed) { changed.start.core.remoteConfiguration = dictionaryOfJSON(json, length); });
}

zr_status zr_options_set_app_status(zr_options* options, int64_t status) {
  return change(options, [&](zr_options& changed) {
    require(status == 0 || status == 1, "the status is neither 0 nor 1");
    changed.start.appStatus = status;
  });
}

zr_status zr_options_set_journal(zr_options* options, uint64_t bytes, double sync_seconds) {
  return change(options, [&](zr_options& changed) {
    require(sync_seconds >= 0, "the seconds are negative or not a number");
    ZRJournalOptions journal;
    if (bytes != 0) {
      journal.bytes = static_cast<std::size_t>(std::min<std::uint64_t>(bytes, std::numeric_limits<std::size_t>::max()));
    }
    journal.syncSeconds = sync_seconds;
    changed.start.core.journal = makeEventJournal(journal);
  });
}

zr_status zr_options_set_state(zr_options* options, zr_state state) {
  return change(options, [&](zr_options& changed) {
    require(state >= ZR_STATE_ACTIVE && state <= ZR_STATE_BACKGROUND, "the state is unknown");
    changed.state = state;
  });
}

zr_status zr_options_set_log(zr_options* options, zr_log log, void* data, zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(log);
    changed.start.log = makeLog(log, std::move(hostData));
  });
}

zr_status zr_options_set_log_to_stderr(zr_options* options) {
  return change(options, [](zr_options& changed) { changed.start.log = makeStandardErrorLog(); });
}

int zr_has_http(void) {
#if defined(ZR_C_HTTP)
  return 1;
#else
  return 0;
#endif
}

zr_status zr_options_set_transport(zr_options* options, zr_transport send, void* data, zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(send);
    changed.start.core.transport = makeTransport(send, std::move(hostData));
  });
}

zr_status zr_options_set_main_loop(zr_options* options, zr_post_task post, zr_is_main_thread is_main_thread, void* data,
                                   zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(post && is_main_thread);
    changed.mainLoop = makeMainLoop(post, is_main_thread, std::move(hostData));
  });
}

zr_status zr_options_set_background_tasks(zr_options* options, zr_begin_background_task begin,
                                          zr_end_background_task end, void* data, zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(begin && end);
    changed.backgroundTasks = {begin, end, std::move(hostData)};
  });
}

zr_status zr_options_set_locale(zr_options* options, zr_locale locale, void* data, zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(locale);
    changed.start.host.locale = makeLocale(locale, std::move(hostData));
  });
}

zr_status zr_options_set_time_zone(zr_options* options, zr_time_zone zone, void* data, zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(zone);
    changed.start.host.timeZone = makeTimeZone(zone, std::move(hostData));
  });
}

zr_status zr_options_set_advertising(zr_options* options, zr_advertising advertising, void* data, zr_release release) {
  return change(options, data, release, [&](zr_options& changed, HostDataPointer hostData) {
    requireCallback(advertising);
    changed.start.host.advertising = makeAdvertising(advertising, std::move(hostData));
  });
}

zr_status zr_start(const zr_options* options) {
  return guarded([&] {
    requireArgument(options, "options");
    if (isInCallback()) fail(ZR_ERROR_CALLBACK, "a callback must not start the module");
    beginStart();
    try {
      running = new Running(start(*options));
    } catch (...) {
      // The log is set before a start can fail.
      ZRLogger::sharedInstance().setSink(nullptr);
      endStart(false);
      throw;
    }
    endStart(true);
  });
}

zr_status zr_close(double seconds, int* all_sent) {
  return guarded([&] {
    if (all_sent) *all_sent = 0;
    require(seconds >= 0, "the time is negative or not a number");
    if (isInCallback()) fail(ZR_ERROR_CALLBACK, "a callback must not close the module");
    const platform::Deadline deadline(seconds);
    beginClose(seconds);
    const bool sent = endAnalytics(deadline.secondsLeft());
    running->scheduler->stopMainLoop();
    endClose();
    if (all_sent) *all_sent = sent ? 1 : 0;
    const bool retired = retireAllHostData(deadline.secondsLeft());
    running->scheduler->endThreads();
    if (!retired) fail(ZR_ERROR_TIMEOUT, "a callback is still running");
    // Waits for its thread, which runs no callback any more.
    if (running->transport) running->transport->end();
  });
}

zr_status zr_lifecycle(zr_lifecycle_event event) {
  return callModule([&](const ModuleCall&) {
    require(event >= ZR_DID_BECOME_ACTIVE && event <= ZR_WILL_TERMINATE, "the event is unknown");
    onMainThread([event] { application().tell(event); });
  });
}

zr_status zr_enter_foreground(void) {
  return callModule([](const ModuleCall&) {
    onMainThread([] {
      application().tell(ZR_WILL_ENTER_FOREGROUND);
      application().tell(ZR_DID_BECOME_ACTIVE);
    });
  });
}

zr_status zr_enter_background(void) {
  return callModule([](const ModuleCall&) {
    onMainThread([] {
      application().tell(ZR_WILL_RESIGN_ACTIVE);
      application().tell(ZR_DID_ENTER_BACKGROUND);
    });
  });
}

zr_status zr_background_task_expired(uint64_t task) {
  return guarded([&] {
    requireModule();
    application().expire(task);
  });
}

zr_status zr_open_url(const char* url, size_t length) {
  return callModule([&](const ModuleCall&) { openURL(URL{std::string(textOf(url, length, "url"))}); });
}
