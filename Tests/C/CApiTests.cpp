#include <gtest/gtest.h>
#include <zranalytics.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace {

using Json = std::unique_ptr<char, decltype(&zr_free)>;

std::string jsonOf(const zr_value* value) {
  const Json json(zr_value_to_json(value, nullptr), zr_free);
  return json ? json.get() : zr_last_error();
}

std::string attributesOf(const zr_value* event) {
  return jsonOf(zr_value_find(event, "EVENT_ATTRS", ZR_NUL)) + jsonOf(zr_value_find(event, "EVENT_ATTRS_CUST", ZR_NUL));
}

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

  zorvane::platform::TemporaryDirectory folder_;
  Host host_;
};

TEST_F(CApi, JournalHasTheSizeThatWasSet) {
  zr_options* const made = options();
  ASSERT_EQ(zr_options_set_journal(made, 128u << 10, 0), ZR_OK);
  start(made);
  EXPECT_EQ(std::filesystem::file_size(folder_.file("Library/ZrvData/ZREventJournal")), 128u << 10);
  close();
}

TEST_F(CApi, ValuesOfEachKindAreReadBackAndWrittenAsJSON) {
  struct Row {
    zr_value* value;
    zr_kind kind;
    const char* json;
  };
  const Row rows[] = {
      {zr_value_null(), ZR_KIND_NULL, "null"},
      {zr_value_bool(7), ZR_KIND_BOOL, "true"},
      {zr_value_integer(INT64_MIN), ZR_KIND_INTEGER, "-9223372036854775808"},
      {zr_value_double(2), ZR_KIND_DOUBLE, "2.0"},
      {zr_value_string("a\0ü", 4), ZR_KIND_STRING, "\"a\\u0000ü\""},
      {zr_value_bytes("\xff\x01", 2), ZR_KIND_BYTES, "\"ff01\""},
      {zr_value_bytes(nullptr, 0), ZR_KIND_BYTES, "\"\""},
      {zr_value_date(1.5), ZR_KIND_DATE, "\"1970-01-01T00:00:01.500Z\""},
      {zr_value_url("shop://x", ZR_NUL), ZR_KIND_URL, "\"shop://x\""},
      {zr_value_location(1, -2), ZR_KIND_LOCATION, "\"1.000000,-2.000000\""},
      {zr_value_from_json(" [1, {\"a\": 2.0}] ", ZR_NUL), ZR_KIND_LIST, "[1,{\"a\":2.0}]"},
  };
  zr_value* const map = zr_value_map();
  for (const Row& row : rows) {
    EXPECT_EQ(zr_value_kind(row.value), row.kind) << row.json;
    EXPECT_EQ(jsonOf(row.value), row.json);
    EXPECT_EQ(zr_value_set(map, row.json, ZR_NUL, row.value), ZR_OK);
    EXPECT_EQ(jsonOf(zr_value_find(map, row.json, ZR_NUL)), row.json);
    zr_value_free(row.value);
  }
  EXPECT_EQ(zr_value_count(map), std::size(rows));
  size_t length = 0;
  EXPECT_STREQ(zr_value_get_text(zr_value_item(map, 4), &length), "a");
  EXPECT_EQ(length, 4U);
  EXPECT_EQ(std::string(zr_value_key(map, 4, &length)), "\"a\\u0000ü\"");
  int64_t integer = 0;
  EXPECT_EQ(zr_value_get_integer(zr_value_item(map, 2), &integer), ZR_OK);
  EXPECT_EQ(integer, INT64_MIN);
  double first = 0;
  double second = 0;
  EXPECT_EQ(zr_value_get_double(zr_value_item(map, 7), &first), ZR_OK);
  EXPECT_EQ(first, 1.5);
  EXPECT_EQ(zr_value_get_location(zr_value_item(map, 9), &first, &second), ZR_OK);
  EXPECT_EQ(second, -2);
  EXPECT_EQ(zr_value_item(map, 99), nullptr);
  zr_value_free(map);
}

// Each row is wrong in every state, for the same reason.
TEST_F(CApi, MisuseReturnsAnErrorWithAMessage) {
  zr_options* const options = zr_options_new();
  zr_value* const text = zr_value_string("text", ZR_NUL);
  zr_value* const list = zr_value_list();
  zr_properties* const properties = zr_properties_new();
  zr_builder* const builder = zr_builder_new(nullptr);
  const auto made = [](const void* handle) { return handle ? ZR_OK : zr_last_status(); };
  int64_t integer = 0;
  const struct {
    const char* what;
    zr_status status;
    zr_status expected;
  } rows[] = {
      {"a NULL text", made(zr_value_string(nullptr, 0)), ZR_ERROR_ARGUMENT},
      {"bytes without bytes", made(zr_value_bytes(nullptr, 1)), ZR_ERROR_ARGUMENT},
      {"a text that is cut", made(zr_value_string("ü", 1)), ZR_ERROR_UTF8},
      {"a name that is no UTF-8", zr_properties_add_bool(properties, "\xff", ZR_NUL, 1), ZR_ERROR_UTF8},
      {"an empty name", zr_properties_add_bool(properties, "", 0, 1), ZR_ERROR_ARGUMENT},
      {"a date that is none", zr_properties_add_iso_date(properties, "d", 1, "2026", ZR_NUL), ZR_ERROR_ARGUMENT},
      {"no properties", zr_properties_add_bool(nullptr, "a", 1, 1), ZR_ERROR_ARGUMENT},
      {"a NULL value", zr_properties_add(properties, "a", 1, nullptr), ZR_ERROR_ARGUMENT},
      {"bad JSON", made(zr_value_from_json("{", 1)), ZR_ERROR_JSON},
      {"JSON that is no object", made(zr_properties_from_json("[]", 2)), ZR_ERROR_JSON},
      {"an empty name in JSON", made(zr_properties_from_json("{\"\": 1}", ZR_NUL)), ZR_ERROR_ARGUMENT},
      {"a journal synced at a negative interval", zr_options_set_journal(options, 0, -1), ZR_ERROR_ARGUMENT},
      {"properties of a list", made(zr_properties_from_map(list)), ZR_ERROR_ARGUMENT},
      {"a text as a list", zr_value_append(text, text), ZR_ERROR_ARGUMENT},
      {"a list as a map", zr_value_set(list, "a", 1, text), ZR_ERROR_ARGUMENT},
      {"a text as a number", zr_value_get_integer(text, &integer), ZR_ERROR_ARGUMENT},
      {"a number without a place", zr_value_get_integer(text, nullptr), ZR_ERROR_ARGUMENT},
      {"a timestamp of 0", zr_builder_set_timestamp(builder, "a", 1, 0), ZR_ERROR_ARGUMENT},
      {"a latitude of 0", zr_builder_set_location(builder, "a", 1, 0, 1), ZR_ERROR_ARGUMENT},
      {"a condition of bad JSON", made(zr_condition_from_json("x", 1)), ZR_ERROR_JSON},
      {"a source of no map", made(zr_source_from_map(text)), ZR_ERROR_ARGUMENT},
      {"an unknown state", zr_options_set_state(options, static_cast<zr_state>(3)), ZR_ERROR_ARGUMENT},
      {"a remote configuration of bad JSON", zr_options_set_remote_configuration(options, "{]", 2), ZR_ERROR_JSON},
      {"a NULL callback", zr_options_set_log(options, nullptr, &host_, Host::release), ZR_ERROR_ARGUMENT},
      {"no options", zr_options_set_transport(nullptr, Host::send, &host_, Host::release), ZR_ERROR_ARGUMENT},
      {"a start without options", zr_start(nullptr), ZR_ERROR_ARGUMENT},
      {"a request that is none", zr_request_respond(nullptr, 200, "", 0, nullptr), ZR_ERROR_ARGUMENT},
      {"an event before the start", zr_track("a", 1, nullptr), ZR_ERROR_NOT_STARTED},
      {"a flush before the start", zr_flush(Host::complete, &host_, Host::release), ZR_ERROR_NOT_STARTED},
      {"a close before the start", zr_close(1, nullptr), ZR_ERROR_NOT_STARTED},
      {"a negative time", zr_close(-1, nullptr), ZR_ERROR_ARGUMENT},
  };
  for (const auto& row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
  EXPECT_EQ(zr_last_status(), ZR_ERROR_ARGUMENT);
  EXPECT_STREQ(zr_last_error(), "the time is negative or not a number");
  // The three rows that gave one.
  EXPECT_EQ(host_.released, 3);
  EXPECT_EQ(host_.calls, 0);
  zr_options_free(options);
  zr_value_free(text);
  zr_value_free(list);
  zr_properties_free(properties);
  zr_builder_free(builder);
}

TEST_F(CApi, AWrongConfigurationCanBeCorrectedAndStartsOnce) {
  zr_options* const made = options();
  ASSERT_EQ(zr_options_set_remote_configuration(made, "{\"no such key\": 1}", ZR_NUL), ZR_OK);
  EXPECT_EQ(zr_start(made), ZR_ERROR_CONFIGURATION);
  EXPECT_NE(std::string(zr_last_error()).find("no such key"), std::string::npos);
  ASSERT_EQ(zr_options_set_remote_configuration(made, "{\"device_model\": \"M\"}", ZR_NUL), ZR_OK);
  EXPECT_EQ(zr_start(made), ZR_OK) << zr_last_error();
  EXPECT_EQ(zr_start(made), ZR_ERROR_STARTED);
  EXPECT_EQ(zr_update_remote_configuration("{\"s_i_d\": \"x\"}", ZR_NUL), ZR_ERROR_CONFIGURATION);
  close();
  EXPECT_EQ(zr_start(made), ZR_ERROR_CLOSED);
  zr_options_free(made);
}

TEST_F(CApi, AttributesArriveTheSameInEachForm) {
  start();
  zr_value* const list = zr_value_from_json("[1]", ZR_NUL);
  zr_attribute flat[11] = {};
  const zr_kind kinds[] = {ZR_KIND_NULL, ZR_KIND_BOOL, ZR_KIND_INTEGER, ZR_KIND_DOUBLE,   ZR_KIND_STRING, ZR_KIND_BYTES,
                           ZR_KIND_URL,  ZR_KIND_LIST, ZR_KIND_JSON,    ZR_KIND_LOCATION, ZR_KIND_DATE};
  const std::string names = "abcdefghijk";
  for (size_t i = 0; i < names.size(); ++i) {
    flat[i] = {&names[i], 1, kinds[i], 0, 5, 1.5, 2.5, "7", 1, list};
  }
  struct Seen {
    Signal recorded;
    std::string attributes;
  } seen;
  const auto trigger = [](void* data, const char* name, size_t length, zr_value* event) {
    if (std::string(name, length) != "Flat") return;
    auto& to = *static_cast<Seen*>(data);
    to.attributes = attributesOf(event);
    to.recorded.set();
  };
  ASSERT_EQ(zr_set_trigger(ZR_TRIGGER_IN_APP, trigger, &seen, nullptr), ZR_OK);
  ASSERT_EQ(zr_track_attributes("Flat", ZR_NUL, flat, std::size(flat), sizeof flat[0]), ZR_OK) << zr_last_error();
  seen.recorded.wait();
  const std::string expected = R"({"a":"","b":true,"c":5,"d":1.5,"e":"7","f":"37","g":"7","h":[1],"i":7})"
                               R"({"timestamp":[{"k":1500.0}],"location":[{"j":"1.500000,2.500000"}]})";
  EXPECT_EQ(seen.attributes, expected);

  zr_properties* const properties = zr_properties_new();
  zr_properties_add_null(properties, "a", 1);
  zr_properties_add_bool(properties, "b", 1, 5);
  zr_properties_add_integer(properties, "c", 1, 5);
  zr_properties_add_double(properties, "d", 1, 1.5);
  zr_properties_add_string(properties, "e", 1, "7", 1);
  zr_properties_add_bytes(properties, "f", 1, "7", 1);
  zr_properties_add_url(properties, "g", 1, "7", 1);
  zr_properties_add(properties, "h", 1, list);
  zr_properties_add_integer(properties, "i", 1, 7);
  zr_properties_add_location(properties, "j", 1, 1.5, 2.5);
  zr_properties_add_date(properties, "k", 1, 1.5);
  zr_value* const event = zr_event_record("Flat", ZR_NUL, properties);
  EXPECT_EQ(attributesOf(event), expected);
  // An event that was tracked keeps what the handle held.
  ASSERT_EQ(zr_track("Before", ZR_NUL, properties), ZR_OK);
  zr_properties_add_string(properties, "e", 1, "changed", ZR_NUL);
  ASSERT_EQ(zr_track("After", ZR_NUL, properties), ZR_OK);
  zr_properties_free(properties);
  zr_value_free(event);
  zr_value_free(list);
  flat[3].kind = 99;
  EXPECT_EQ(zr_track_attributes("Flat", ZR_NUL, flat, std::size(flat), sizeof flat[0]), ZR_ERROR_ARGUMENT);
  EXPECT_EQ(zr_track_attributes("Flat", ZR_NUL, flat, 1, 8), ZR_ERROR_ARGUMENT);
  close();
  EXPECT_TRUE(host_.sent(R"("EVENT_ACTION":"Before","EVENT_ATTRS":{"a":"","b":true,"c":5,"d":1.5,"e":"7")"));
  EXPECT_TRUE(host_.sent(R"("EVENT_ACTION":"After","EVENT_ATTRS":{"a":"","b":true,"c":5,"d":1.5,"e":"changed")"));
}

TEST_F(CApi, TheHostsServicesAreAskedAndAllIsReleasedByTheClose) {
  start();
  EXPECT_GT(host_.insideLog, 0);
  ASSERT_EQ(zr_set_trigger(
                ZR_TRIGGER_MESSAGING, [](void* data, const char*, size_t, zr_value*) { Host::at(data); }, &host_,
                Host::release),
            ZR_OK);
  for (const auto operation : {zr_flush, zr_reset_user, zr_update_device}) {
    ASSERT_EQ(operation(Host::complete, &host_, Host::release), ZR_OK);
  }
  ASSERT_EQ(zr_enter_background(), ZR_OK);
  ASSERT_EQ(zr_enter_foreground(), ZR_OK);
  const Json registration(zr_copy_device_registration(nullptr), zr_free);
  EXPECT_NE(std::string(registration.get()).find("query_params"), std::string::npos);
  close();
  EXPECT_TRUE(host_.sent(R"("LOCALE_COUNTRY_DISPLAY":"Österreich")"));
  EXPECT_TRUE(host_.sent("+0530"));
  EXPECT_TRUE(host_.sent(R"("ADVERTISING_IDENTIFIER":"AD-ID")"));
  EXPECT_EQ(std::count(host_.ended.begin(), host_.ended.end(), "ZRVTask ended"), 2);
  EXPECT_EQ(host_.released, kCallbacks + 4);
  // The module's own threads still live: whatever they do, the host hears nothing of it.
  const int calls = host_.calls;
  EXPECT_EQ(zr_track("late", 4, nullptr), ZR_ERROR_CLOSED);
  EXPECT_EQ(zr_flush(Host::complete, &host_, Host::release), ZR_ERROR_CLOSED);
  EXPECT_EQ(zr_close(1, nullptr), ZR_ERROR_CLOSED);
  EXPECT_EQ(host_.calls, calls);
  EXPECT_EQ(host_.released, kCallbacks + 5);
}

// Also if a later one of the same name has begun: the module knows the last one alone.
TEST_F(CApi, ABackgroundTaskEndsWhenItExpires) {
  std::mutex mutex;
  bool isOpen = false;
  std::vector<zr_request*> held;
  host_.answer = [&, answer = host_.answer](zr_request* request) {
    {
      const std::lock_guard lock(mutex);
      if (!isOpen) return held.push_back(request);
    }
    answer(request);
  };
  start();
  // The registration is not answered, so each time the application leaves the foreground it is repeated.
  ASSERT_EQ(zr_enter_background(), ZR_OK);
  ASSERT_EQ(zr_enter_foreground(), ZR_OK);
  ASSERT_EQ(zr_enter_background(), ZR_OK);
  ASSERT_EQ(zr_disable_periodic_flush(), ZR_OK);  // waits for the main thread
  const auto task = [&](std::size_t from) {
    const std::lock_guard lock(host_.mutex);
    return std::find(host_.ended.begin() + static_cast<std::ptrdiff_t>(from), host_.ended.end(),
                     "ZRVDeviceUpdateTask") -
           host_.ended.begin();
  };
  const auto first = static_cast<std::size_t>(task(0));
  ASSERT_LT(static_cast<std::size_t>(task(first + 1)), host_.ended.size());
  ASSERT_EQ(zr_background_task_expired(first + 1), ZR_OK);
  ASSERT_EQ(zr_disable_periodic_flush(), ZR_OK);
  EXPECT_EQ(host_.ended[first], "ZRVDeviceUpdateTask ended");
  {
    const std::lock_guard lock(mutex);
    isOpen = true;
  }
  for (zr_request* const request : held) EXPECT_EQ(zr_request_respond(request, 200, "{}", ZR_NUL, nullptr), ZR_OK);
  close();
  EXPECT_EQ(std::count(host_.ended.begin(), host_.ended.end(), "ZRVDeviceUpdateTask ended"), 2);
}

TEST_F(CApi, ACloseInACallbackIsRefusedAndACallbackThatStillRunsIsTold) {
  struct Blocking {
    std::atomic<bool> blocks{false};
    std::atomic<zr_status> inside{ZR_OK};
    Signal entered;
    Signal goesOn;
    Signal released;
  } blocking;
  const auto send = [](void* data, zr_request* request) {
    auto& to = *static_cast<Blocking*>(data);
    if (to.blocks) {
      to.inside = zr_close(60, nullptr);
      to.entered.set();
      to.goesOn.wait();
    }
    EXPECT_EQ(zr_request_respond(request, 200, nullptr, 0, nullptr), ZR_OK);
  };
  zr_options* const made = options();
  ASSERT_EQ(
      zr_options_set_transport(made, send, &blocking, [](void* data) { static_cast<Blocking*>(data)->released.set(); }),
      ZR_OK);
  EXPECT_EQ(host_.released, 1);
  // Nothing can be written: the module goes on after the close, while the test removes its folder.
  ASSERT_EQ(zr_options_set_folder(made, "/dev/null/none", ZR_NUL), ZR_OK);
  start(made);
  blocking.blocks = true;
  std::thread caller([] { EXPECT_EQ(zr_push_token_updated(), ZR_OK); });
  blocking.entered.wait();
  EXPECT_EQ(blocking.inside, ZR_ERROR_CALLBACK);
  int sent = 1;
  EXPECT_EQ(zr_close(0, &sent), ZR_ERROR_TIMEOUT);
  EXPECT_EQ(sent, 0);
  blocking.goesOn.set();
  blocking.released.wait();
  caller.join();
  // Another callback may have been running, too.
  while (host_.released < kCallbacks) std::this_thread::yield();
}

TEST_F(CApi, AResponseAfterTheCloseIsTakenAndTheHostHearsNothing) {
  std::vector<zr_request*> held;
  std::mutex mutex;
  host_.answer = [&](zr_request* request) {
    const std::lock_guard lock(mutex);
    held.push_back(request);
  };
  zr_options* const made = options();
  ASSERT_EQ(zr_options_set_folder(made, "/dev/null/none", ZR_NUL), ZR_OK);
  start(made);
  ASSERT_EQ(zr_update_device(Host::complete, &host_, Host::release), ZR_OK);
  EXPECT_NE(zr_close(0, nullptr), ZR_ERROR_NOT_STARTED);
  while (host_.released < kCallbacks + 1) std::this_thread::yield();
  const int calls = host_.calls;
  // The module handles it on this thread.
  ASSERT_FALSE(held.empty());
  for (zr_request* const request : held) EXPECT_EQ(zr_request_respond(request, 200, "{}", ZR_NUL, nullptr), ZR_OK);
  EXPECT_EQ(host_.calls, calls);
}

// The names of this process's threads.
std::string threadNames() {
  std::string names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    names += name + ' ';
  }
  return names;
}

TEST_F(CApi, TheThreadsEndAfterTheClose) {
  start();
  ASSERT_EQ(zr_track("A", 1, nullptr), ZR_OK);
  ASSERT_NE(threadNames().find("zr."), std::string::npos);
  close();
  while (threadNames().find("zr.") != std::string::npos) std::this_thread::yield();
}

TEST_F(CApi, TheHostsLoopRunsTheTasks) {
  struct Loop {
    const std::thread::id main = std::this_thread::get_id();
    std::mutex mutex;
    std::vector<zr_task*> tasks;
    Signal posted;
  } loop;
  const auto post = [](void* data, zr_task* task) {
    auto& to = *static_cast<Loop*>(data);
    const std::lock_guard lock(to.mutex);
    to.tasks.push_back(task);
    to.posted.set();
  };
  const auto isMain = [](void* data) {
    return static_cast<int>(static_cast<Loop*>(data)->main == std::this_thread::get_id());
  };
  zr_options* const made = options();
  ASSERT_EQ(zr_options_set_main_loop(made, post, isMain, &loop, nullptr), ZR_OK);
  start(made);
  std::thread([] { EXPECT_EQ(zr_enter_background(), ZR_OK); }).join();
  loop.posted.wait();
  ASSERT_FALSE(loop.tasks.empty());
  std::thread([&] { EXPECT_EQ(zr_task_run(loop.tasks.front()), ZR_ERROR_THREAD); }).join();
  // The close runs what waits; the tasks themselves are freed later.
  close();
  EXPECT_TRUE(host_.sent("EVENT_ACTION_IOS_SESSION_END"));
  for (zr_task* const task : loop.tasks) EXPECT_EQ(zr_task_run(task), ZR_OK);
}

// Also those that are tracked while the module closes.
TEST_F(CApi, EventsOfFourThreadsThatAreAcceptedArriveOnce) {
  constexpr size_t kThreads = 4;
  std::atomic<size_t> accepted{0};
  std::vector<size_t> acceptedBy(kThreads);
  std::vector<std::thread> threads;
  start();
  for (size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (size_t& i = acceptedBy[thread];; ++i, ++accepted) {
        const std::string json = "{\"n\":" + std::to_string(thread + kThreads * i) + ",\"end\":0}";
        if (zr_track_json("Counted", ZR_NUL, json.data(), json.size()) != ZR_OK) break;
      }
      EXPECT_EQ(zr_last_status(), ZR_ERROR_CLOSED);
    });
  }
  while (accepted < 4000) std::this_thread::yield();
  close();
  for (std::thread& thread : threads) thread.join();
  std::string all;
  for (const std::string& body : host_.bodies) all += body;
  std::vector<int> arrived(kThreads * *std::max_element(acceptedBy.begin(), acceptedBy.end()) + kThreads);
  const std::string key = "\"n\":";
  for (size_t at = all.find(key); at != std::string::npos; at = all.find(key, at + 1)) {
    ++arrived.at(std::stoul(all.substr(at + key.size(), 10)));
  }
  for (size_t n = 0; n < arrived.size(); ++n) {
    ASSERT_EQ(arrived[n], n / kThreads < acceptedBy[n % kThreads] ? 1 : 0) << n;
  }
}

}  // namespace
