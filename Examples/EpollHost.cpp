// A host with an epoll loop of its own, such as a service of a car: the loop is the module's main queue.
//
// EpollHost ENDPOINT FOLDER: reads lines from standard input. "background" and "foreground" change the application's
// state, "quit" and the end of the input end it, any other line is an event.

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Transport/CurlTransport.h"
#include "ZRAnalytics/All.h"

using namespace zorvane;

namespace {

// The tasks that the module wants run on the main thread. An eventfd wakes the loop.
class PostedTasks {
 public:
  int descriptor() const { return wake_; }

  // Any thread.
  void post(platform::Task task) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    const std::uint64_t one = 1;
    (void)!write(wake_, &one, sizeof one);
  }
  void run() {
    std::uint64_t count = 0;
    (void)!read(wake_, &count, sizeof count);
    std::deque<platform::Task> tasks;
    {
      const std::lock_guard lock(mutex_);
      tasks.swap(tasks_);
    }
    for (platform::Task& task : tasks) task();
  }

 private:
  const int wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::mutex mutex_;
  std::deque<platform::Task> tasks_;
};

// The state that the module sees. A process that nobody suspends needs no background tasks.
class CarApplication final : public platform::Application {
 public:
  platform::ApplicationState state() const override { return state_; }
  platform::BackgroundTaskId beginBackgroundTask(std::string_view, std::function<void()>) override {
    return platform::kNoBackgroundTask;
  }
  void endBackgroundTask(platform::BackgroundTaskId) override {}

  // Main thread. First the state, then the notification: observers ask for the state.
  void enter(platform::ApplicationState state, std::string_view notification) {
    state_ = state;
    platform::hostServices().notificationCenter->post(notification);
  }

 private:
  std::atomic<platform::ApplicationState> state_{platform::ApplicationState::Active};
};

void obey(std::string_view line, CarApplication& application) {
  using enum platform::ApplicationState;
  if (line == "background") {
    application.enter(Inactive, platform::kWillResignActiveNotification);
    application.enter(Background, platform::kDidEnterBackgroundNotification);
  } else if (line == "foreground") {
    application.enter(Inactive, platform::kWillEnterForegroundNotification);
    application.enter(Active, platform::kDidBecomeActiveNotification);
  } else if (!line.empty()) {
    ZRAnalytics::sharedInstance().trackEventWithProperties(line, nullptr);
  }
}

// Obeys the whole lines of the text and removes them. False after "quit".
bool obeyLines(std::string& text, CarApplication& application) {
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
    const std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    if (line == "quit") return false;
    obey(line, application);
  }
  return true;
}

void runLoop(PostedTasks& posted, int signals, CarApplication& application) {
  const int loop = epoll_create1(EPOLL_CLOEXEC);
  for (const int descriptor : {posted.descriptor(), signals, STDIN_FILENO}) {
    epoll_event interest{};
    interest.events = EPOLLIN;
    interest.data.fd = descriptor;
    epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &interest);
  }
  std::string input;
  for (bool goesOn = true; goesOn;) {
    epoll_event event{};
    if (epoll_wait(loop, &event, 1, -1) != 1) continue;
    if (event.data.fd == posted.descriptor()) {
      posted.run();
    } else if (event.data.fd == STDIN_FILENO) {
      char bytes[4096];
      const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
      if (count > 0) input.append(bytes, static_cast<std::size_t>(count));
      goesOn = obeyLines(input, application) && count > 0;
    } else {
      goesOn = false;
    }
  }
  close(loop);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  // Before the module starts threads: they inherit the mask, so the signals reach only the loop.
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  sigprocmask(SIG_BLOCK, &ending, nullptr);

  // Never destroyed: the module's threads outlive main().
  static PostedTasks& posted = *new PostedTasks;
  const auto application = std::make_shared<CarApplication>();
  platform::MainLoopOptions mainLoop;
  mainLoop.postToHostLoop = [](platform::Task task) { posted.post(std::move(task)); };
  mainLoop.isMainThread = [main = std::this_thread::get_id()] { return std::this_thread::get_id() == main; };

  const std::string folder = argv[2];
  ZRStartOptions options;
  options.host.clock = std::make_shared<platform::SystemClock>();
  options.host.scheduler = platform::makeThreadScheduler(options.host.clock, std::move(mainLoop));
  options.host.application = application;
  options.host.directories = {folder + "/Documents", folder + "/Library", folder + "/Defaults"};
  options.core.endpoint = argv[1];
  options.core.appId = "CAR";
  options.core.transport = std::make_shared<CurlTransport>();
  if (const auto started = startAnalytics(std::move(options)); !started) {
    std::fprintf(stderr, "%s\n", started.error().message.c_str());
    return 1;
  }
  runLoop(posted, signalfd(-1, &ending, SFD_CLOEXEC), *application);
  return endAnalytics(10) ? 0 : 2;
}
