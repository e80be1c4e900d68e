// A host of the C API: its callbacks, threads and main loop, and the close.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "C/CApiTest.h"

namespace zorvane::testing {
namespace {

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
  // The module may still begin tasks of other names.
  const auto tasks = [&] {
    const std::lock_guard lock(host_.mutex);
    return host_.ended;
  };
  const std::vector<std::string> begun = tasks();
  const auto firstTask = std::find(begun.begin(), begun.end(), "ZRVDeviceUpdateTask");
  ASSERT_EQ(std::count(firstTask, begun.end(), "ZRVDeviceUpdateTask"), 2);
  const auto first = static_cast<std::size_t>(firstTask - begun.begin());
  ASSERT_EQ(zr_background_task_expired(first + 1), ZR_OK);
  ASSERT_EQ(zr_disable_periodic_flush(), ZR_OK);
  EXPECT_EQ(tasks()[first], "ZRVDeviceUpdateTask ended");
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
}  // namespace zorvane::testing
