#include "C/Services.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "C/Handles.h"
#include "C/Module.h"
#include "Platform/HostServices.h"

struct zr_request {
  zorvane::TransportRequest request;
  std::function<void(const zorvane::TransportResponse&)> completion;
  std::optional<std::string> body;
};

struct zr_task {
  zorvane::platform::Task task;
};

namespace zorvane::c {
namespace {

class HostLog final : public ZRLogSink {
 public:
  HostLog(zr_log log, HostDataPointer data) : log_(log), data_(std::move(data)) {}

  void logMessage(std::int64_t /*type*/, const std::string& message) override {
    write(ZR_LOG_MESSAGE, message, "", 0, "");
  }
  void logError(const std::string& file, std::int64_t line, const std::string& operation, const std::string& message,
                const std::vector<std::string>& /*callStack*/) override {
    write(ZR_LOG_ERROR, message, file.c_str(), line, operation.c_str());
  }

 private:
  void write(zr_log_kind kind, const std::string& message, const char* file, std::int64_t line, const char* operation) {
    if (const HostCall call(data_, HostCall::Kind::Log); call) {
      log_(call.data(), kind, message.c_str(), message.size(), file, static_cast<std::int32_t>(line), operation);
    }
  }

  const zr_log log_;
  const HostDataPointer data_;
};

class HostTransport final : public NetworkTransport {
 public:
  HostTransport(zr_transport transport, HostDataPointer data) : send_(transport), data_(std::move(data)) {}

  void send(TransportRequest request, std::function<void(const TransportResponse&)> completion) override {
    const HostCall call(data_);
    if (!call) return completion({0, "", "the module is closed"});
    send_(call.data(), new zr_request{std::move(request), std::move(completion), std::nullopt});
  }

 private:
  const zr_transport send_;
  const HostDataPointer data_;
};

class HostLocale final : public platform::LocaleService {
 public:
  HostLocale(zr_locale locale, HostDataPointer data) : locale_(locale), data_(std::move(data)) {}

  std::optional<std::string> localeIdentifier() const override { return ask(ZR_LOCALE_IDENTIFIER); }
  std::optional<std::string> countryCode() const override { return ask(ZR_LOCALE_COUNTRY_CODE); }
  std::optional<std::string> languageCode() const override { return ask(ZR_LOCALE_LANGUAGE_CODE); }
  std::optional<std::string> displayNameForCountryCode(const std::string& code) const override {
    return ask(ZR_LOCALE_COUNTRY_NAME, code.c_str());
  }
  std::optional<std::string> displayNameForLanguageCode(const std::string& code) const override {
    return ask(ZR_LOCALE_LANGUAGE_NAME, code.c_str());
  }
  std::optional<std::string> displayNameForIdentifier(const std::string& identifier) const override {
    return ask(ZR_LOCALE_IDENTIFIER_NAME, identifier.c_str());
  }

 private:
  std::optional<std::string> ask(zr_locale_question question, const char* argument = "") const {
    zr_text answer;
    if (const HostCall call(data_); call) locale_(call.data(), question, argument, &answer);
    return answer.text;
  }

  const zr_locale locale_;
  const HostDataPointer data_;
};

class HostTimeZone final : public platform::TimeZone {
 public:
  HostTimeZone(zr_time_zone zone, HostDataPointer data) : zone_(zone), data_(std::move(data)) {}

  std::int64_t secondsFromGMT(Date date) const override {
    const HostCall call(data_);
    return call ? zone_(call.data(), date.secondsSince1970) : 0;
  }

 private:
  const zr_time_zone zone_;
  const HostDataPointer data_;
};

class HostAdvertising final : public platform::AdvertisingService {
 public:
  HostAdvertising(zr_advertising advertising, HostDataPointer data)
      : advertising_(advertising), data_(std::move(data)) {}

  bool isAvailable() const override { return ask().first != ZR_ADVERTISING_UNAVAILABLE; }
  std::optional<int> trackingAuthorizationStatus() const override {
    constexpr int kDenied = 2;
    constexpr int kAuthorized = 3;
    switch (ask().first) {
      case ZR_ADVERTISING_ALLOWED:
        return kAuthorized;
      case ZR_ADVERTISING_LIMITED:
        return std::nullopt;
      case ZR_ADVERTISING_UNAVAILABLE:
      case ZR_ADVERTISING_DENIED:
        break;
    }
    return kDenied;
  }
  bool isAdvertisingTrackingEnabled() const override { return ask().first == ZR_ADVERTISING_ALLOWED; }
  std::optional<std::string> advertisingIdentifier() const override { return ask().second; }

 private:
  std::pair<zr_advertising_permission, std::optional<std::string>> ask() const {
    zr_text identifier;
    const HostCall call(data_);
    const zr_advertising_permission permission =
        call ? advertising_(call.data(), &identifier) : ZR_ADVERTISING_UNAVAILABLE;
    return {permission, std::move(identifier.text)};
  }

  const zr_advertising advertising_;
  const HostDataPointer data_;
};

}  // namespace

std::shared_ptr<ZRLogSink> makeLog(zr_log log, HostDataPointer data) {
  return std::make_shared<HostLog>(log, std::move(data));
}

std::shared_ptr<NetworkTransport> makeTransport(zr_transport send, HostDataPointer data) {
  return std::make_shared<HostTransport>(send, std::move(data));
}

platform::MainLoopOptions makeMainLoop(zr_post_task post, zr_is_main_thread isMainThread, HostDataPointer data) {
  platform::MainLoopOptions options;
  options.postToHostLoop = [post, data](platform::Task task) {
    if (const HostCall call(data); call) post(call.data(), new zr_task{std::move(task)});
  };
  options.isMainThread = [isMainThread, data] {
    const HostCall call(data);
    return call && isMainThread(call.data()) != 0;
  };
  return options;
}

std::shared_ptr<platform::LocaleService> makeLocale(zr_locale locale, HostDataPointer data) {
  return std::make_shared<HostLocale>(locale, std::move(data));
}

std::shared_ptr<platform::TimeZone> makeTimeZone(zr_time_zone zone, HostDataPointer data) {
  return std::make_shared<HostTimeZone>(zone, std::move(data));
}

std::shared_ptr<platform::AdvertisingService> makeAdvertising(zr_advertising advertising, HostDataPointer data) {
  return std::make_shared<HostAdvertising>(advertising, std::move(data));
}

HostApplication::HostApplication(zr_state state, BackgroundTaskFunctions functions)
    : state_(static_cast<platform::ApplicationState>(state)), functions_(std::move(functions)) {}

platform::BackgroundTaskId HostApplication::beginBackgroundTask(std::string_view name,
                                                                std::function<void()> expiration) {
  if (!functions_.begin) return platform::kNoBackgroundTask;
  platform::BackgroundTaskId id = platform::kNoBackgroundTask;
  {
    platform::MutexLock lock(mutex_);
    id = ++lastTask_;
    tasks_.emplace(id, std::move(expiration));
  }
  if (const HostCall call(functions_.data); call) functions_.begin(call.data(), id, std::string(name).c_str());
  return id;
}

void HostApplication::endBackgroundTask(platform::BackgroundTaskId id) {
  std::function<void()> expiration;
  {
    platform::MutexLock lock(mutex_);
    const auto found = tasks_.find(id);
    if (found == tasks_.end()) return;
    expiration.swap(found->second);
    tasks_.erase(found);
  }
  if (const HostCall call(functions_.data); call) functions_.end(call.data(), id);
}

void HostApplication::expire(platform::BackgroundTaskId id) {
  std::function<void()> expiration;
  {
    platform::MutexLock lock(mutex_);
    const auto found = tasks_.find(id);
    if (found == tasks_.end()) return;
    expiration = found->second;
  }
  onMainThread([this, id, run = std::move(expiration)] {
    // Ends the last task of this name, which may be a later one.
    run();
    endBackgroundTask(id);
  });
}

void HostApplication::tell(zr_lifecycle_event event) {
  using enum platform::ApplicationState;
  std::string_view notification;
  switch (event) {
    case ZR_DID_BECOME_ACTIVE:
      state_ = Active;
      notification = platform::kDidBecomeActiveNotification;
      break;
    case ZR_WILL_RESIGN_ACTIVE:
      state_ = Inactive;
      notification = platform::kWillResignActiveNotification;
      break;
    case ZR_WILL_ENTER_FOREGROUND:
      state_ = Inactive;
      notification = platform::kWillEnterForegroundNotification;
      break;
    case ZR_DID_ENTER_BACKGROUND:
      state_ = Background;
      notification = platform::kDidEnterBackgroundNotification;
      break;
    case ZR_WILL_TERMINATE:
      notification = platform::kWillTerminateNotification;
      break;
  }
  platform::hostServices().notificationCenter->post(notification);
}

}  // namespace zorvane::c

using namespace zorvane;
using namespace zorvane::c;

const char* zr_request_url(const zr_request* request, size_t* length) {
  return guardedPointer([&] {
    requireArgument(request, "request");
    if (length) *length = request->request.url.size();
    return request->request.url.c_str();
  });
}

const char* zr_request_header_name(const zr_request* request, size_t index) {
  if (!request || index >= request->request.headers.size()) return nullptr;
  return request->request.headers[index].first.c_str();
}

const char* zr_request_header_value(const zr_request* request, size_t index) {
  if (!request || index >= request->request.headers.size()) return nullptr;
  return request->request.headers[index].second.c_str();
}

const char* zr_request_body(zr_request* request, size_t* length) {
  return guardedPointer([&] {
    requireArgument(request, "request");
    if (!request->body) request->body = request->request.makeBody();
    if (length) *length = request->body->size();
    return request->body->c_str();
  });
}

zr_status zr_request_respond(zr_request* request, int32_t http_status, const char* body, size_t body_length,
                             const char* error) {
  return guarded([&] {
    requireArgument(request, "request");
    const std::unique_ptr<zr_request> owned(request);
    TransportResponse response;
    response.status = http_status;
    try {
      // The body is not text for sure: the module checks it.
      if (body_length > 0) requireArgument(body, "body");
      if (body) response.body = body_length == ZR_NUL ? std::string(body) : std::string(body, body_length);
      if (error) response.error = error;
    } catch (...) {
      // The module waits for an answer in any case.
      owned->completion({0, "", "the response cannot be read"});
      throw;
    }
    owned->completion(response);
  });
}

zr_status zr_task_run(zr_task* task) {
  return guarded([&] {
    requireArgument(task, "task");
    if (phase() != Phase::Closed && !platform::hostServices().scheduler->mainQueue().isCurrent()) {
      fail(ZR_ERROR_THREAD, "this is not the main thread");
    }
    const std::unique_ptr<zr_task> owned(task);
    if (phase() != Phase::Closed) owned->task();
  });
}

zr_status zr_text_set(zr_text* answer, const char* text, size_t length) {
  return guarded([&] {
    requireArgument(answer, "answer");
    answer->text = std::string(textOf(text, length, "text"));
  });
}
