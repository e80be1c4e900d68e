#include "Host/Runtime.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <string_view>
#include <utility>

#include "Host/Interruption.h"
#include "Host/Script.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Transport/CurlTransport.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#ifdef ZR_HAS_ICU
#include "Locale/ICULocale.h"
#endif

namespace zorvane::host {
namespace {

constexpr std::size_t kMaximumConfigurationFile = 16u << 20;

// Reads the advertising identifier from the current configuration.
class ConfiguredAdvertising final : public platform::AdvertisingService {
 public:
  bool isAvailable() const override { return effectiveConfiguration().objectForKey("idfa").isString(); }
  std::optional<int> trackingAuthorizationStatus() const override {
    const std::int64_t status = effectiveConfiguration().objectForKey("idfa_authorization").integerValue();
    return std::in_range<int>(status) ? static_cast<int>(status) : -1;
  }
  std::optional<std::string> advertisingIdentifier() const override {
    const Value identifier = effectiveConfiguration().objectForKey("idfa");
    return identifier.isString() ? std::optional<std::string>(*identifier.asString()) : std::nullopt;
  }
};

// The configured locale, else the machine's.
class ConfiguredLocale final : public platform::LocaleService {
 public:
  std::optional<std::string> localeIdentifier() const override {
    const Value name = effectiveConfiguration().objectForKey("locale");
    return name.isString() ? platform::identifierOfLocaleName(*name.asString()) : machine_->localeIdentifier();
  }
  std::optional<std::string> countryCode() const override {
    return platform::countryCodeOfLocale(localeIdentifier().value_or(""));
  }
  std::optional<std::string> languageCode() const override {
    return platform::languageCodeOfLocale(localeIdentifier().value_or(""));
  }

 private:
  const std::shared_ptr<platform::LocaleService> machine_ = platform::makeProcessLocale();
};

std::shared_ptr<platform::LocaleService> makeLocale() {
  auto locale = std::make_shared<ConfiguredLocale>();
#ifdef ZR_HAS_ICU
  return makeICULocale(std::move(locale));
#else
  return locale;
#endif
}

std::string usableDirectory(const std::string& path) {
  char* const resolved = ::realpath(path.c_str(), nullptr);
  if (!resolved || ::access(resolved, R_OK | W_OK | X_OK) != 0) {
    throw UsageError("--data: cannot write in " + path + ": " + std::strerror(errno));
  }
  std::string absolute = resolved;
  std::free(resolved);
  return absolute;
}

platform::Directories makeContainer(const std::string& path) {
  auto made = platform::makeDirectories(path);
  if (!made) throw UsageError("--data: " + made.error().message);
  platform::Directories directories{platform::joinPath(path, "Documents"), platform::joinPath(path, "Library"),
                                    platform::joinPath(path, "Defaults")};
  // One sync for the three. What cannot be made is not usable.
  bool isNew = false;
  for (std::string* directory : {&directories.documents, &directories.library, &directories.defaults}) {
    if (::mkdir(directory->c_str(), 0700) == 0) {
      isNew = true;
    } else if (errno != EEXIST) {
      throw UsageError("--data: cannot make " + *directory + ": " + std::strerror(errno));
    }
    *directory = usableDirectory(*directory);
  }
  if (isNew) made = platform::syncDirectoryOf(directories.documents);
  if (!made) throw UsageError("--data: " + made.error().message);
  return directories;
}

int openTrace(const std::string& path) {
  if (path.empty()) return -1;
  // Symbolic links are refused: others could redirect the output with them. Those below /dev are the system's.
  const int links = path.starts_with("/dev/") ? 0 : O_NOFOLLOW;
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | links, 0600);
  if (descriptor < 0) throw UsageError("--trace: cannot write " + path + ": " + std::strerror(errno));
  return descriptor;
}

Dictionary readConfiguration(const std::string& path) {
  if (path.empty()) return {};
  const auto file = platform::readFile(path, kMaximumConfigurationFile);
  if (!file) throw UsageError("--config: " + file.error().message);
  const std::string_view text = withoutByteOrderMark(file.value());
  auto parsed = platform::parseJSON(text);
  if (!parsed) throw UsageError("--config: " + path + " is not JSON: " + parsed.error().message);
  if (!parsed.value().isDictionary()) throw UsageError("--config: " + path + " is not a JSON object");
  if (const auto key = repeatedKey(text)) {
    throw UsageError("--config: " + path + ": the key \"" + *key + "\" stands twice");
  }
  return *parsed.value().asDictionary();
}

void reportUncaught(const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zrhost: an exception left a task: %s\n", error.what());
  } catch (...) {
    std::fprintf(stderr, "zrhost: an exception left a task\n");
  }
}

}  // namespace

Runtime::Runtime(const Options& options) : output_(STDOUT_FILENO), trace_(openTrace(options.trace)) {
  const Dictionary configuration = readConfiguration(options.config);
  if (options.clock) {
    standingClock_ = std::make_shared<StandingClock>(*options.clock);
    clock_ = standingClock_;
  } else {
    clock_ = std::make_shared<RunningClock>();
  }
  platform::MainLoopOptions mainLoop;
  mainLoop.adoptedByHost = true;
  scheduler_ = platform::makeThreadScheduler(clock_, std::move(mainLoop));
  scheduler_->setUncaughtHandler(reportUncaught);
  application_ = std::make_shared<HostApplication>(trace_);
  transport_ = std::make_shared<CountingTransport>(std::make_shared<CurlTransport>());

  platform::HostServices services;
  services.clock = clock_;
  services.scheduler = scheduler_;
  services.notificationCenter = std::make_shared<platform::NotificationCenter>();
  services.notificationCenter->setUncaughtHandler(reportUncaught);
  services.application = application_;
  services.advertising = std::make_shared<ConfiguredAdvertising>();
  services.locale = makeLocale();
  services.directories = makeContainer(options.data);
  if (!platform::configureHost(std::move(services))) throw std::logic_error("the host's services are in use already");
  trace_.hookIn();

  CoreSetup setup;
  setup.endpoint = options.endpoint;
  setup.appId = options.appId;
  setup.remoteConfiguration = configuration;
  setup.transport = transport_;
  if (options.journal) setup.journal = makeEventJournal();
  trace_.hookInto(setup);
  setup.didReceiveResponse = [this, traced = std::move(setup.didReceiveResponse)](
                                 std::int64_t service, const std::optional<std::string>& bid, bool success) {
    if (service == kServiceReportAdd) noteResponse(bid.value_or(""), success);
    if (traced) traced(service, bid, success);
  };
  try {
    configureCore(std::move(setup));
  } catch (const ValueError& error) {
    throw UsageError("--config: " + options.config + ": " + error.what());
  }
}

ZRAnalytics& Runtime::analytics() {
  static std::once_flag listening;
  ZRAnalytics& facade = ZRAnalytics::sharedInstance();
  std::call_once(listening, [&] {
    facade.setInappTriggerDelegate(trace_.inappDelegate());
    facade.setMessagingTriggerDelegate(trace_.messagingDelegate());
  });
  return facade;
}

void Runtime::enterState(platform::ApplicationState state, std::string_view notification) {
  onMainThread([&] {
    application_->setState(state);
    platform::hostServices().notificationCenter->post(notification);
  });
}

void Runtime::settle() {
  while (true) {
    const auto before = transport_->counts();
    scheduler_->waitUntilIdle();
    transport_->waitUntilAnswered();
    const auto after = transport_->counts();
    // No request was pending before the queues were idle, and none has started since.
    if (before.answered == before.started && after.started == before.started) return;
  }
}

void Runtime::noteResponse(const std::string& bid, bool success) {
  const std::lock_guard lock(refusedMutex_);
  if (success) {
    refused_.erase(bid);
  } else {
    refused_.insert(bid);
  }
}

void Runtime::passTime(double seconds) {
  if (!standingClock_) {
    sleepUninterrupted(std::chrono::duration<double>(seconds));
    return;
  }
  // Tasks posted earlier run before time passes.
  scheduler_->waitUntilIdle();
  const std::int64_t end = standingClock_->ticks() + StandingClock::ticksOf(seconds);
  while (!isInterrupted()) {
    const double deadline = scheduler_->nextTimerDeadline();
    if (deadline < 0 || StandingClock::ticksOfDeadline(deadline) > end) break;
    standingClock_->advanceTo(StandingClock::ticksOfDeadline(deadline));
    scheduler_->fireDueTimers();
    settle();
  }
  if (!isInterrupted()) standingClock_->advanceTo(end);
}

std::optional<std::size_t> Runtime::savedBatches() const {
  ZRBatchFile file(batchFilePath());
  const auto stored = file.load();
  return stored ? std::optional(stored->size()) : std::nullopt;
}

std::size_t Runtime::refusedUnsentBatches() {
  const std::lock_guard lock(refusedMutex_);
  if (refused_.empty()) return 0;
  ZRBatchFile file(batchFilePath());
  const auto stored = file.load();
  // A file that cannot be read may hold all of them.
  if (!stored) return refused_.size();
  // A request without an identifier may have been that of any batch.
  const bool any = refused_.contains("");
  const auto inFile =
      static_cast<std::size_t>(std::count_if(stored->begin(), stored->end(), [&](const ZRStoredBatch& batch) {
        return any || refused_.contains(batch.id());
      }));
  if (inFile != 0) return inFile;
  // Refused events of a dump file that could not be stored have joined the current batch.
  return ZREventsHandler::sharedInstance().viewsInfoArray().value_or(Array()).empty() ? 0 : 1;
}

std::string batchFilePath() {
  return platform::joinPath(platform::hostServices().directories.documents, "ZorvaneBatchEvents.plist");
}

}  // namespace zorvane::host
