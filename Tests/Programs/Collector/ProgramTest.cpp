// zrcollector as a process: its first line, its exit status, what it says when it cannot start.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "Collector/Options.h"

namespace zorvane::collector {
namespace {

class Process {
 public:
  explicit Process(std::vector<std::string> arguments) {
    int output[2];
    if (::pipe(output) != 0) std::abort();
    arguments.insert(arguments.begin(), ZR_COLLECTOR_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    id_ = ::fork();
    if (id_ == 0) {
      ::dup2(output[1], STDOUT_FILENO);
      ::dup2(output[1], STDERR_FILENO);
      ::close(output[0]);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(output[1]);
    output_ = ::fdopen(output[0], "r");
  }
  ~Process() {
    if (id_ > 0) end(SIGKILL);
    std::fclose(output_);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  std::string line() {
    std::string text;
    for (int c = std::fgetc(output_); c != EOF && c != '\n'; c = std::fgetc(output_)) text += static_cast<char>(c);
    return text;
  }
  int end(int signal) {
    ::kill(id_, signal);
    return wait();
  }
  int wait() {
    int status = 0;
    ::waitpid(id_, &status, 0);
    id_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t id_ = -1;
  std::FILE* output_ = nullptr;
};

const std::string kListening = "{\"listening\": \"http://127.0.0.1:";

TEST(Program, ServesUntilASignalEndsItCleanly) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Process collector({"--quiet"});
    const std::string line = collector.line();
    ASSERT_EQ(line.substr(0, kListening.size()), kListening);
    httplib::Client client("127.0.0.1", std::atoi(line.c_str() + kListening.size()));
    client.set_keep_alive(true);  // and so it is open while the signal comes
    EXPECT_EQ(client.Get("/api/summary")->status, 200);
    EXPECT_EQ(collector.end(signal), 0);
  }
}

TEST(Program, SaysInOneLineWhyItCannotStart) {
  Process first({"--quiet"});
  const std::string port = std::to_string(std::atoi(first.line().c_str() + kListening.size()));
  char name[] = "/tmp/zrcollector-text-XXXXXX";
  const int file = ::mkstemp(name);
  ASSERT_GE(file, 0);
  ::close(file);
  std::ofstream(name) << std::string(5000, 'x');
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string message;
  };
  const std::string help = " (see --help)";
  const Case cases[] = {
      {{"--port", port}, 1, "cannot listen on 127.0.0.1:" + port + ": Address already in use"},
      {{"--db", "/nowhere/a.db"}, 1, "cannot use the database /nowhere/a.db: unable to open database file"},
      {{"--db", name}, 1, std::string("cannot use the database ") + name + ": file is not a database"},
      {{"--record", "/nowhere/r"}, 1, "cannot write the record /nowhere/r: No such file or directory"},
      {{"--port", "65536"}, 2, "--port: Value 65536 not in range 0 to 65535" + help},
      {{"--delay-ms", "-1"}, 2, "--delay-ms: Value -1 not in range 0 to 600000" + help},
      {{"--db"}, 2, "--db: 1 required FILE missing" + help},
      {{"--db", ""}, 2, "--db: must not be empty" + help},
      {{"--db=", "--quiet"}, 2, "--db: must not be empty" + help},
      {{"--verbose"}, 2, "The following argument was not expected: --verbose" + help},
  };
  for (const Case& c : cases) {
    Process collector(c.arguments);
    EXPECT_EQ(collector.line(), "zrcollector: " + c.message);
    EXPECT_EQ(collector.line(), "");
    EXPECT_EQ(collector.wait(), c.status) << c.message;
  }
  ::unlink(name);
  for (const char* option : {"--help", "-h", "--version"}) {
    Process asked({option});
    EXPECT_EQ(asked.line().starts_with("zrcollector 1."), std::string(option) == "--version");
    EXPECT_EQ(asked.wait(), 0);
  }
}

}  // namespace
}  // namespace zorvane::collector
