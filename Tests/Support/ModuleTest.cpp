#include "Support/ModuleTest.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <ostream>

#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::platform {

void PrintTo(const Value& value, std::ostream* out) {
  *out << jsonText(value);
}
void PrintTo(const Dictionary& dictionary, std::ostream* out) {
  *out << jsonText(dictionary);
}

}  // namespace zorvane::platform

namespace zorvane::testing {

void expectNoLockHeld(const char* where) {
  EXPECT_EQ(platform::locksHeldByThread, 0) << where << " is called under a lock";
}

void LogRecorder::logMessage(std::int64_t type, const std::string& message) {
  expectNoLockHeld("the log");
  EXPECT_EQ(type, 1);
  {
    std::lock_guard lock(mutex_);
    messages_.push_back(message);
  }
  if (const auto call = onMessage) call(message);  // a copy: it may replace itself
}

void LogRecorder::logError(const std::string& file, std::int64_t line, const std::string& operation,
                           const std::string& message, const std::vector<std::string>& /*callStack*/) {
  expectNoLockHeld("the log");
  std::lock_guard lock(mutex_);
  errors_.push_back({file, line, operation, message});
}

std::vector<std::string> LogRecorder::messages() const {
  std::lock_guard lock(mutex_);
  return messages_;
}

std::vector<LogRecorder::ErrorRecord> LogRecorder::errors() const {
  std::lock_guard lock(mutex_);
  return errors_;
}

std::size_t LogRecorder::count(const std::string& message) const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(messages_.begin(), messages_.end(), message));
}

void LogRecorder::clear() {
  std::lock_guard lock(mutex_);
  messages_.clear();
  errors_.clear();
}

std::string FakeService::Request::header(const std::string& name) const {
  const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& pair) { return pair.first == name; });
  return found == headers.end() ? std::string() : found->second;
}

void FakeService::send(TransportRequest request, std::function<void(const TransportResponse&)> completion) {
  expectNoLockHeld("the transport");
  if (isBusy) {
    waiting_.emplace_back(std::move(request), std::move(completion));
    return;
  }
  std::string text;
  try {
    text = request.makeBody();
  } catch (const std::exception& error) {
    return completion(TransportResponse{0, "", error.what()});
  }
  auto body = platform::parseJSON(text);
  Request record{request.url, request.headers, body ? body.value() : Value()};
  EXPECT_TRUE(body) << "a body that is no JSON";
  int status = 0;
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(record);
    if (hold) {
      held_.push_back(std::move(completion));
      return;
    }
    status = decide(record);
  }
  platform::hostServices()
      .scheduler->globalQueue(platform::Priority::Default)
      .async([completion = std::move(completion), status] {
        completion(TransportResponse{status, "{}", ""});
      });
}

void FakeService::proceed() {
  isBusy = false;
  for (auto& [request, completion] : std::exchange(waiting_, {})) send(std::move(request), std::move(completion));
}

void FakeService::answerNext(int status) {
  std::function<void(const TransportResponse&)> completion;
  {
    std::lock_guard lock(mutex_);
    ASSERT_FALSE(held_.empty());
    completion = std::move(held_.front());
    held_.erase(held_.begin());
  }
  completion(TransportResponse{status, "{}", ""});
}

std::size_t FakeService::heldCount() const {
  std::lock_guard lock(mutex_);
  return held_.size();
}

std::vector<FakeService::Request> FakeService::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

ModuleTest::ModuleTest() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zr-test-XXXXXX").string();
  directory_ = mkdtemp(pattern.data());
  for (const char* name : {"Documents", "Library", "Defaults"}) std::filesystem::create_directory(directory_ / name);
  clock_ = std::make_shared<platform::ManualClock>(Date{kStart});
  scheduler_ = std::make_shared<platform::ManualScheduler>(clock_);
  center_ = std::make_shared<platform::NotificationCenter>();
  service_ = std::make_shared<FakeService>();
  log_ = std::make_shared<LogRecorder>();
  core_.endpoint = "http://service.test";
}

ModuleTest::~ModuleTest() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void ModuleTest::start(const Dictionary& configuration, const std::string& appId) {
  platform::HostServices host = host_;
  if (!host.clock) host.clock = clock_;
  if (!host.scheduler) host.scheduler = scheduler_;
  host.notificationCenter = center_;
  host.directories = {(directory_ / "Documents").string(), (directory_ / "Library").string(),
                      (directory_ / "Defaults").string()};
  ASSERT_TRUE(platform::configureHost(std::move(host)));
  ZRLogger::sharedInstance().setSink(log_);
  CoreSetup core = core_;
  core.appId = appId;
  core.remoteConfiguration = configuration;
  if (!core.transport) core.transport = service_;
  configureCore(std::move(core));
}

void ModuleTest::inEarlierLaunch(const std::function<void()>& work) {
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    work();
    std::fflush(nullptr);
    _exit(HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the earlier launch failed";
}

std::string ModuleTest::readAll(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void ModuleTest::writeAll(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

Dictionary ModuleTest::batchFile() const {
  const std::string bytes = readAll(documents("ZorvaneBatchEvents.plist"));
  if (bytes.empty()) return {};
  const auto parsed = platform::parsePropertyList(bytes);
  EXPECT_TRUE(parsed);
  return parsed && parsed.value().isDictionary() ? *parsed.value().asDictionary() : Dictionary();
}

std::vector<Dictionary> ModuleTest::reportedEvents() const {
  std::vector<Dictionary> events;
  for (const auto& request : service_->requests()) {
    if (request.url.find("/v1/report/") == std::string::npos) continue;
    const Value list = request.body.asDictionary()->objectForKey("viewsInfo");
    if (!list.isArray()) continue;
    for (const Value& event : *list.asArray()) events.push_back(*event.asDictionary());
  }
  return events;
}

std::vector<std::string> ModuleTest::eventNames(const Array& events) {
  std::vector<std::string> names;
  for (const Value& event : events) names.push_back(event.asDictionary()->objectForKey("EVENT_ACTION").description());
  return names;
}

}  // namespace zorvane::testing
