// One request to the HTTP library before the first test. Debian's build of it is not instrumented: what it makes on its
// first request would look like a race between its threads to ThreadSanitizer.
#include <gtest/gtest.h>
#include <httplib.h>

#include <thread>

namespace {

class WarmHttpLibrary final : public ::testing::Environment {
 public:
  void SetUp() override {
    httplib::Server server;
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread listener([&server] { server.listen_after_bind(); });
    httplib::Client client("127.0.0.1", port);
    for (int i = 0; i < 1000 && !client.Get("/"); ++i) std::this_thread::yield();
    server.stop();
    listener.join();
  }
};

[[maybe_unused]] const auto* const environment = ::testing::AddGlobalTestEnvironment(new WarmHttpLibrary);

}  // namespace
