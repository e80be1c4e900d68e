#include "Platform/Application/Application.h"

namespace zorvane::platform {

namespace {

class PortableApplication final : public Application {
 public:
  ApplicationState state() const override { return ApplicationState::Active; }
  BackgroundTaskId beginBackgroundTask(std::string_view, std::function<void()>) override { return kNoBackgroundTask; }
  void endBackgroundTask(BackgroundTaskId) override {}
};

}  // namespace

std::shared_ptr<Application> makePortableApplication() {
  return std::make_shared<PortableApplication>();
}

}  // namespace zorvane::platform
