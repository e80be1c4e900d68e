// The fixture of the C API's tests, and its host.
#pragma once

#include <gtest/gtest.h>
#include <zranalytics.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zorvane::testing {

using Json = std::unique_ptr<char, decltype(&zr_free)>;

// A latch between two threads.
class Signal {
 public:
  void set() {
    const std::lock_guard lock(mutex_);
    set_ = true;
    changed_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return set_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

// A host that gives every callback, counts calls and releases, and answers each request with 200.
struct Host {
  std::atomic<int> calls{0};
  std::atomic<int> released{0};
  std::atomic<int> insideLog{0};
  std::mutex mutex;
  std::vector<std::string> bodies;
  std::vector<std::string> ended;
  std::function<void(zr_request*)> answer = [](zr_request* request) {
    EXPECT_EQ(zr_request_respond(request, 200, "{}", ZR_NUL, nullptr), ZR_OK);
  };

  static Host& at(void* data) {
    auto& host = *static_cast<Host*>(data);
    ++host.calls;
    return host;
  }
  static void release(void* data) { ++static_cast<Host*>(data)->released; }

  static void log(void* data, zr_log_kind, const char*, size_t, const char*, int32_t, const char*) {
    Host& host = at(data);
    if (zr_track("from the log", ZR_NUL, nullptr) == ZR_ERROR_CALLBACK) ++host.insideLog;
  }
  static void send(void* data, zr_request* request) {
    Host& host = at(data);
    {
      const std::lock_guard lock(host.mutex);
      host.bodies.emplace_back(zr_request_body(request, nullptr));
    }
    host.answer(request);
  }
  static void locale(void* data, zr_locale_question question, const char* argument, zr_text* answer) {
    at(data);
    if (question == ZR_LOCALE_COUNTRY_CODE) zr_text_set(answer, "AT", ZR_NUL);
    if (question == ZR_LOCALE_COUNTRY_NAME && std::string(argument) == "AT") zr_text_set(answer, "Österreich", ZR_NUL);
  }
  static int64_t zone(void* data, double) {
    at(data);
    return 19800;
  }
  static zr_advertising_permission advertising(void* data, zr_text* identifier) {
    at(data);
    zr_text_set(identifier, "AD-ID", ZR_NUL);
    return ZR_ADVERTISING_ALLOWED;
  }
  static void begin(void* data, uint64_t task, const char* name) {
    Host& host = at(data);
    const std::lock_guard lock(host.mutex);
    const auto count = static_cast<std::size_t>(task);
    host.ended.resize(std::max(host.ended.size(), count));
    host.ended[count - 1] = name;
  }
  static void end(void* data, uint64_t task) {
    Host& host = at(data);
    const std::lock_guard lock(host.mutex);
    host.ended[static_cast<std::size_t>(task) - 1] += " ended";
  }
  static void complete(void* data, int) { at(data); }

  bool sent(const std::string& text) {
    const std::lock_guard lock(mutex);
    return std::any_of(bodies.begin(), bodies.end(),
                       [&](const auto& body) { return body.find(text) != std::string::npos; });
  }
};

class CApi : public ::testing::Test {
 protected:
  // Every callback but the main loop's.
  zr_options* options() {
    zr_options* const made = zr_options_new();
    EXPECT_EQ(zr_options_set_endpoint(made, "http://127.0.0.1:9", ZR_NUL), ZR_OK);
    EXPECT_EQ(zr_options_set_app_id(made, "APP", ZR_NUL), ZR_OK);
    EXPECT_EQ(zr_options_set_folder(made, folder_.path().c_str(), ZR_NUL), ZR_OK);
    EXPECT_EQ(zr_options_set_log(made, Host::log, &host_, Host::release), ZR_OK);
    EXPECT_EQ(zr_options_set_transport(made, Host::send, &host_, Host::release), ZR_OK);
    EXPECT_EQ(zr_options_set_locale(made, Host::locale, &host_, Host::release), ZR_OK);
    EXPECT_EQ(zr_options_set_time_zone(made, Host::zone, &host_, Host::release), ZR_OK);
    EXPECT_EQ(zr_options_set_advertising(made, Host::advertising, &host_, Host::release), ZR_OK);
    EXPECT_EQ(zr_options_set_background_tasks(made, Host::begin, Host::end, &host_, Host::release), ZR_OK);
    return made;
  }
  static constexpr int kCallbacks = 6;

  void start() { start(options()); }
  static void start(zr_options* made) {
    ASSERT_EQ(zr_start(made), ZR_OK) << zr_last_error();
    zr_options_free(made);
  }
  // All of what the module asks of its host is idle afterwards: the counts are final.
  void close() {
    int sent = 0;
    ASSERT_EQ(zr_close(60, &sent), ZR_OK) << zr_last_error();
    EXPECT_EQ(sent, 1);
  }

  platform::TemporaryDirectory folder_;
  Host host_;
};

}  // namespace zorvane::testing
