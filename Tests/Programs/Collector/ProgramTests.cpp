// zrcollector as a process: first line, exit status, error messages.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace {

struct Collector : ChildProcess {
  explicit Collector(std::vector<std::string> arguments) : ChildProcess(ZR_COLLECTOR_PROGRAM, std::move(arguments)) {}
  std::string line() { return readLine().value_or(""); }
};

const std::string kListening = "{\"listening\": \"http://127.0.0.1:";

TEST(Program, ServesUntilASignalEndsItCleanly) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Collector collector({"--quiet"});
    const std::string line = collector.line();
    ASSERT_EQ(line.substr(0, kListening.size()), kListening);
    httplib::Client client("127.0.0.1", std::atoi(line.c_str() + kListening.size()));
    client.set_keep_alive(true);  // an idle connection must not delay the end
    EXPECT_EQ(client.Get("/api/summary")->status, 200);
    collector.send(signal);
    EXPECT_EQ(collector.wait(), 0);
  }
}

TEST(Program, SaysInOneLineWhyItCannotStart) {
  Collector first({"--quiet"});
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
    Collector collector(c.arguments);
    EXPECT_EQ(collector.line(), "zrcollector: " + c.message);
    EXPECT_EQ(collector.readLine(), std::nullopt);
    EXPECT_EQ(collector.wait(), c.status) << c.message;
  }
  ::unlink(name);
  for (const char* option : {"--help", "-h", "--version"}) {
    Collector asked({option});
    std::string text;
    while (const auto line = asked.readLine()) text += *line + "\n";
    EXPECT_EQ(text.starts_with("zrcollector 1."), std::string(option) == "--version") << text;
    EXPECT_EQ(text.find("--port 8080") != text.npos, std::string(option) != "--version") << text;
    EXPECT_EQ(asked.wait(), 0);
  }
}

}  // namespace
