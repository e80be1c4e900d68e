// A desktop application on GLib: the main loop of GApplication is the module's main queue, and a background task keeps
// the application alive.
//
// GLibHost ENDPOINT FOLDER: plays a visit without a window. The application is activated, tracks events, is hidden,
// waits until what it sent in the background is answered, is shown again and quits.

#include <gio/gio.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Transport/CurlTransport.h"
#include "ZRAnalytics/All.h"

using namespace zorvane;

namespace {

// Runs the work once on the thread of the default main context. Any thread.
template <typename Work>
void invokeLater(Work work) {
  GSource* const source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        (*static_cast<Work*>(data))();
        return G_SOURCE_REMOVE;
      },
      new Work(std::move(work)), [](gpointer data) { delete static_cast<Work*>(data); });
  g_source_attach(source, nullptr);
  g_source_unref(source);
}

class DesktopApplication final : public platform::Application {
 public:
  explicit DesktopApplication(GApplication* application) : application_(application) {}

  platform::ApplicationState state() const override { return state_; }
  // Without windows the application ends when nobody holds it. The desktop never calls the expiration handler.
  platform::BackgroundTaskId beginBackgroundTask(std::string_view, std::function<void()>) override {
    invokeLater([this] {
      ++running_;
      g_application_hold(application_);
    });
    return ++lastTask_;
  }
  // The module may end a task twice, and after the main loop.
  void endBackgroundTask(platform::BackgroundTaskId id) override {
    invokeLater([this, id] {
      if (id == platform::kNoBackgroundTask || running_ == 0) return;
      g_application_release(application_);
      if (--running_ == 0 && whenIdle) std::exchange(whenIdle, nullptr)();
    });
  }

  // Main thread. First the state, then the notification: observers ask for the state.
  void enter(platform::ApplicationState state, std::string_view notification) {
    state_ = state;
    platform::hostServices().notificationCenter->post(notification);
  }

  // Called on the main thread when the last background task has ended.
  std::function<void()> whenIdle;

 private:
  GApplication* const application_;
  std::atomic<platform::ApplicationState> state_{platform::ApplicationState::Active};
  std::atomic<platform::BackgroundTaskId> lastTask_{platform::kNoBackgroundTask};
  // Main thread.
  int running_ = 0;
};

struct Host {
  std::string endpoint;
  std::string folder;
  std::shared_ptr<DesktopApplication> application;
  int status = 1;
};

bool start(const Host& host) {
  platform::MainLoopOptions mainLoop;
  mainLoop.postToHostLoop = [](platform::Task task) { invokeLater(std::move(task)); };
  mainLoop.isMainThread = [main = std::this_thread::get_id()] { return std::this_thread::get_id() == main; };
  ZRStartOptions options;
  options.host.clock = std::make_shared<platform::SystemClock>();
  options.host.scheduler = platform::makeThreadScheduler(options.host.clock, std::move(mainLoop));
  options.host.application = host.application;
  options.host.directories = {host.folder + "/Documents", host.folder + "/Library", host.folder + "/Defaults"};
  options.core.endpoint = host.endpoint;
  options.core.appId = "DESKTOP";
  options.core.transport = std::make_shared<CurlTransport>();
  const auto started = startAnalytics(std::move(options));
  if (!started) std::fprintf(stderr, "%s\n", started.error().message.c_str());
  return static_cast<bool>(started);
}

void activated(GApplication* application, gpointer data) {
  auto& host = *static_cast<Host*>(data);
  g_application_hold(application);
  if (!start(host)) return g_application_quit(application);

  ZRAnalytics& analytics = ZRAnalytics::sharedInstance();
  analytics.trackEventWithProperties("Document opened", ZRProperties::initWithAttributes({{"pages", 12}}));
  analytics.setUserAttributeForKey("dark", "theme");

  using enum platform::ApplicationState;
  DesktopApplication& desktop = *host.application;
  desktop.whenIdle = [application, &desktop] {
    desktop.enter(Inactive, platform::kWillEnterForegroundNotification);
    desktop.enter(Active, platform::kDidBecomeActiveNotification);
    ZRAnalytics::sharedInstance().trackEventWithProperties("Document closed", nullptr);
    g_application_quit(application);
  };
  desktop.enter(Inactive, platform::kWillResignActiveNotification);
  desktop.enter(Background, platform::kDidEnterBackgroundNotification);
}

// The main loop has ended, the process is about to.
void shutDown(GApplication*, gpointer data) {
  static_cast<Host*>(data)->status = endAnalytics(10) ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  GApplication* const application = g_application_new("com.example.desktop", G_APPLICATION_NON_UNIQUE);
  // Never destroyed: the module keeps the application object.
  auto& host = *new Host{argv[1], argv[2], std::make_shared<DesktopApplication>(application)};
  g_signal_connect(application, "activate", G_CALLBACK(activated), &host);
  g_signal_connect(application, "shutdown", G_CALLBACK(shutDown), &host);
  g_application_run(application, 1, argv);
  return host.status;
}
