#include "Transport/CurlTransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <limits>
#include <mutex>
#include <set>
#include <stdexcept>

namespace zorvane {
namespace {

using ::testing::HasSubstr;

// Runs an httplib server on a thread, on a free port.
template <typename Server>
class Running {
 public:
  template <typename... Arguments>
  explicit Running(Arguments&&... arguments) : server(std::forward<Arguments>(arguments)...) {
    server.set_keep_alive_max_count(std::numeric_limits<int>::max());
    server.set_tcp_nodelay(true);
    server.new_task_queue = [] { return new httplib::ThreadPool(16); };
    port = server.bind_to_any_port("127.0.0.1");
  }
  ~Running() {
    server.stop();
    if (thread_.joinable()) thread_.join();
  }
  // Call after setting the handlers.
  void listen() {
    thread_ = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield();
  }

  Server server;
  int port = 0;

 private:
  std::thread thread_;
};

class CurlTransportTest : public ::testing::Test {
 protected:
  std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(http_.port) + path; }

  static TransportRequest request(std::string url, std::string body = "{}") {
    TransportRequest made;
    made.url = std::move(url);
    made.makeBody = [body = std::move(body)] { return body; };
    return made;
  }
  static TransportResponse answerTo(CurlTransport& transport, TransportRequest made) {
    std::promise<TransportResponse> answer;
    transport.send(std::move(made), [&answer](const TransportResponse& response) { answer.set_value(response); });
    return answer.get_future().get();
  }

  Running<httplib::Server> http_;
};

TEST_F(CurlTransportTest, ARequestArrivesAsItWasMadeAndItsAnswerComesBack) {
  httplib::Headers headers;
  http_.server.Post("/v1/report/A", [&headers](const httplib::Request& received, httplib::Response& response) {
    headers = received.headers;
    response.status = 202;
    response.set_content(received.body + "!", "text/plain");
  });
  http_.listen();
  CurlTransport transport;
  TransportRequest made = request(url("/v1/report/A"), std::string("{\"a\": \"\0\"}", 10));
  made.headers = {{"ZRV-REQUEST-ID", "ABC"}};
  const TransportResponse response = answerTo(transport, std::move(made));
  EXPECT_EQ(response.status, 202);
  EXPECT_EQ(response.body, std::string("{\"a\": \"\0\"}!", 11));
  EXPECT_EQ(response.error, "");
  const auto header = [&headers](const char* name) {
    const auto found = headers.find(name);
    return found == headers.end() ? "absent" : found->second;
  };
  EXPECT_EQ(header("Content-Type"), "application/json; charset=utf-8");
  EXPECT_EQ(header("ZRV-REQUEST-ID"), "ABC");
  EXPECT_EQ(header("Expect"), "absent");
}

TEST_F(CurlTransportTest, ManyRequestsShareSixConnectionsAndHoldSixBodies) {
  std::mutex mutex;
  std::set<int> ports;
  http_.server.Post("/", [&](const httplib::Request& received, httplib::Response&) {
    const std::lock_guard lock(mutex);
    ports.insert(received.remote_port);
  });
  http_.listen();
  // Counts bodies between makeBody and the completion.
  std::atomic<int> bodies{0}, most{0}, answered{0};
  std::vector<int> order;
  CurlTransport transport;
  for (int i = 0; i < 200; ++i) {
    TransportRequest made = request(url("/"));
    made.makeBody = [&, i] {
      order.push_back(i);
      most = std::max(most.load(), ++bodies);
      return std::string(50'000, 'x');
    };
    transport.send(std::move(made), [&](const TransportResponse& response) {
      --bodies;
      answered += response.status == 200;
    });
  }
  transport.waitUntilIdle();
  EXPECT_EQ(transport.outstanding(), 0u);
  EXPECT_EQ(answered, 200);
  EXPECT_LE(ports.size(), 6u);
  EXPECT_LE(most, 6);
  EXPECT_GT(most, 1);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(CurlTransportTest, EveryFailureIsAnAnswerWithItsReason) {
  Running<httplib::Server> elsewhere;
  std::atomic<int> followed{0};
  for (httplib::Server* server : {&http_.server, &elsewhere.server}) {
    server->Post("/target", [&followed](const httplib::Request&, httplib::Response&) { ++followed; });
    server->Get("/target", [&followed](const httplib::Request&, httplib::Response&) { ++followed; });
  }
  http_.server.Post("/moved/(\\d+)/(\\d+)", [](const httplib::Request& received, httplib::Response& response) {
    response.set_redirect("http://127.0.0.1:" + received.matches[1].str() + "/target",
                          std::atoi(received.matches[2].str().c_str()));
  });
  http_.server.Post("/large", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(std::string(1001, 'x'), "text/plain");
  });
  http_.server.Post("/full", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(std::string(1000, 'x'), "text/plain");
  });
  http_.listen();
  elsewhere.listen();
  // Accepts connections once it listens, but sends no response.
  const int silent = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(silent, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::getsockname(silent, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const std::string silentURL = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));

  CurlTransportOptions options;
  options.maxResponseBytes = 1000;
  CurlTransport transport(options);
  for (const int port : {http_.port, elsewhere.port}) {
    for (const int status : {301, 302, 303, 307, 308}) {
      const std::string path = "/moved/" + std::to_string(port) + "/" + std::to_string(status);
      EXPECT_EQ(answerTo(transport, request(url(path))).status, status);
    }
  }
  EXPECT_EQ(followed, 0);
  EXPECT_EQ(answerTo(transport, request(url("/absent"))).status, 404);
  EXPECT_EQ(answerTo(transport, request(url("/full"))).body.size(), 1000u);

  TransportRequest throwing = request(url("/full"));
  throwing.makeBody = []() -> std::string { throw std::runtime_error("no body today"); };
  TransportRequest badHeader = request(url("/full"));
  badHeader.headers = {{"X-Two", "1\r\nX-Three: 2"}};
  struct Case {
    TransportRequest made;
    const char* error;
  };
  Case cases[] = {
      {request(url("/large")), "the response is larger than 1000 bytes"},
      {request(silentURL), "connect"},  // bound, but nobody listens
      {request("file:///etc/passwd"), "not supported"},
      {request("http://"), "URL"},
      {std::move(throwing), "no body today"},
      {std::move(badHeader), "a header is not valid: X-Two"},
  };
  for (Case& c : cases) {
    const TransportResponse response = answerTo(transport, std::move(c.made));
    EXPECT_EQ(response.status, 0);
    EXPECT_EQ(response.body, "");
    EXPECT_THAT(response.error, HasSubstr(c.error));
  }

  // With nobody there, what waits fails without its body; what goes elsewhere is sent.
  std::promise<void> queued;
  std::atomic<int> bodies{0}, failures{0}, sent{0};
  for (int i = 0; i < 30; ++i) {
    TransportRequest made = request(silentURL);
    made.makeBody = [&, i] {
      if (i == 0) queued.get_future().wait();
      return std::to_string(++bodies);
    };
    transport.send(std::move(made), [&](const auto& response) { failures += response.status == 0; });
  }
  transport.send(request(url("/full")), [&](const auto& response) { sent += response.status == 200; });
  queued.set_value();
  transport.waitUntilIdle();
  EXPECT_EQ(failures, 30);
  EXPECT_EQ(bodies, 6);
  EXPECT_EQ(sent, 1);

  ASSERT_EQ(::listen(silent, 8), 0);
  options.totalTimeout = std::chrono::milliseconds(50);
  CurlTransport hasty(options);
  EXPECT_THAT(answerTo(hasty, request(silentURL)).error, HasSubstr("timed out"));
  {
    std::vector<std::string> errors;
    {
      CurlTransport closed;
      for (int i = 0; i < 10; ++i) {
        closed.send(request(silentURL), [&](const TransportResponse& response) { errors.push_back(response.error); });
      }
      EXPECT_EQ(closed.outstanding(), 10u);
    }
    EXPECT_EQ(errors, std::vector<std::string>(10, "the transport was closed"));
  }
  ::close(silent);
}

TEST_F(CurlTransportTest, ACompletionMayThrowSendAndDestroy) {
  http_.server.Post("/", [](const httplib::Request&, httplib::Response&) {});
  http_.listen();
  auto transport = std::make_unique<CurlTransport>();
  std::promise<int> last;
  transport->send(request(url("/")), [&](const TransportResponse&) {
    transport->send(request(url("/")), [&](const TransportResponse& response) {
      transport.reset();
      last.set_value(response.status);
    });
    throw std::runtime_error("a completion's own trouble");
  });
  EXPECT_EQ(last.get_future().get(), 200);
}

// Servers with certificates of the test's authority, or of one that is not trusted.
class TLSTest : public CurlTransportTest {
 protected:
  using SecureServer = Running<httplib::SSLServer>;

  void SetUp() override {
    char name[] = "/tmp/zrtransport-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    directory_ = name;
    for (const std::string authority : {"authority", "stranger"}) {
      run("openssl req -x509 " + kNewKey + "-days 2 -subj /CN=" + authority + " -keyout " + file(authority, ".key") +
          " -out " + file(authority, ".pem"));
    }
    options_.certificateFile = file("authority", ".pem");
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string file(const std::string& who, const char* ending) const { return directory_ + "/" + who + ending; }
  static void run(const std::string& command) {
    ASSERT_EQ(std::system((command + " 2>/dev/null").c_str()), 0) << command;
  }
  // Valid from now for so many days.
  std::unique_ptr<SecureServer> serverWith(const std::string& subject, const std::string& authority, int days) {
    run("openssl req -new " + kNewKey + "-subj /CN=server -addext subjectAltName=" + subject + " -keyout " +
        file("server", ".key") + " -out " + file("server", ".csr"));
    run("openssl x509 -req -in " + file("server", ".csr") + " -copy_extensions copy -CAcreateserial -CA " +
        file(authority, ".pem") + " -CAkey " + file(authority, ".key") + " -days " + std::to_string(days) + " -out " +
        file("server", ".pem"));
    auto made = std::make_unique<SecureServer>(file("server", ".pem").c_str(), file("server", ".key").c_str());
    made->server.Post("/", [this](const httplib::Request& received, httplib::Response& response) {
      ++served_;
      response.set_content(received.body, "text/plain");
    });
    made->listen();
    return made;
  }
  static std::string urlOf(const SecureServer& server) {
    return "https://127.0.0.1:" + std::to_string(server.port) + "/";
  }

  const std::string kNewKey = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
  std::string directory_;
  CurlTransportOptions options_;
  std::atomic<int> served_{0};
};

TEST_F(TLSTest, OnlyATrustedServerIsTalkedTo) {
  const struct {
    const char* subject;
    const char* authority;
    int days;
    const char* error;
  } cases[] = {
      {"IP:127.0.0.1", "authority", -1, "expired"},
      {"DNS:example.com", "authority", 2, "127.0.0.1"},
      {"IP:127.0.0.1", "stranger", 2, "certificate problem"},
  };
  CurlTransport transport(options_);
  for (const auto& [subject, authority, days, error] : cases) {
    const auto server = serverWith(subject, authority, days);
    const TransportResponse response = answerTo(transport, request(urlOf(*server)));
    EXPECT_EQ(response.status, 0);
    EXPECT_THAT(response.error, HasSubstr(error));
  }
  const auto server = serverWith("IP:127.0.0.1", "authority", 2);
  CurlTransport usual;
  EXPECT_THAT(answerTo(usual, request(urlOf(*server))).error, HasSubstr("certificate problem")) << "not the system's";
  EXPECT_EQ(served_, 0);
  EXPECT_EQ(answerTo(transport, request(urlOf(*server), "[1]")).body, "[1]");
}

TEST_F(TLSTest, TheProcessMayExitWithRequestsUnderWay) {
  const auto server = serverWith("IP:127.0.0.1", "authority", 2);
  for (int answers = 0; answers < 12; ++answers) {
    const std::string command = std::string(ZR_EXITING_SENDER) + " " + urlOf(*server) + " " + options_.certificateFile +
                                " " + std::to_string(answers);
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << "status " << status;
  }
}

}  // namespace
}  // namespace zorvane
