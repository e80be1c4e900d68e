// zrcollector as a process: first line, exit status, error messages.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <soci/sqlite3/soci-sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "Collector/SQLite.h"

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
  const std::string foreign = std::string(name) + ".foreign", damaged = std::string(name) + ".damaged";
  for (const std::string& database : {foreign, damaged}) {
    soci::session session;
    database == damaged ? zorvane::collector::sqlite().open(session, database) : session.open(soci::sqlite3, database);
    session << "CREATE TABLE more (text)";
    session << "INSERT INTO more VALUES ('a')";
    session << "PRAGMA journal_mode = DELETE";
  }
  // The last page is the new table's.
  std::fstream(damaged, std::ios::in | std::ios::out).seekp(-4096, std::ios::end) << std::string(100, 'x');
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string message;
  };
  const std::string help = " (see --help)";
  const Case cases[] = {
      {{"--port", port}, 1, "cannot listen on 127.0.0.1:" + port + ": Address already in use"},
      {{"--db", "/nowhere/a.db"},
       1,
       "cannot use the database /nowhere/a.db: unable to open database file: No such file or directory"},
      {{"--db", name}, 1, std::string("cannot use the database ") + name + ": file is not a database"},
      {{"--db", foreign}, 1, "cannot use the database " + foreign + ": another program wrote it; name a new file"},
      {{"--db", damaged},
       1,
       "cannot use the database " + damaged + ": it is damaged; name a new file, or repair it with sqlite3's .recover"},
      {{"--record", "/nowhere/r"}, 1, "cannot write the record /nowhere/r: No such file or directory"},
      {{"--port", "65536"}, 2, "--port: must be a whole number from 0 to 65535, not \"65536\"" + help},
      {{"--delay-ms", "-1"}, 2, "--delay-ms: must be a whole number from 0 to 600000, not \"-1\"" + help},
      {{"--db"}, 2, "--db: 1 required FILE missing" + help},
      {{"--db", "a", "--db", "b"}, 2, "--db: At Most 1 required but received 2" + help},
      {{"--db", ""}, 2, "--db: must not be empty" + help},
      {{"--db=", "--quiet"}, 2, "--db: must not be empty" + help},
      {{"--stream", "http://a:b@host"},
       2,
       "--stream: must be addresses like nats://HOST:PORT, separated by commas" + help},
      {{"--from", "nats://host,tls://"},
       2,
       "--from: must be addresses like nats://HOST:PORT, separated by commas" + help},
      {{"--from", "nats://host"}, 2, "--from requires --db" + help},
      {{"--stream", "nats://host", "--db", "a.db"}, 2, "--db excludes --stream" + help},
      {{"--verbose"}, 2, "The following argument was not expected: --verbose" + help},
  };
  for (const Case& c : cases) {
    Collector collector(c.arguments);
    EXPECT_EQ(collector.line(), "zrcollector: " + c.message);
    EXPECT_EQ(collector.readLine(), std::nullopt);
    EXPECT_EQ(collector.wait(), c.status) << c.message;
  }
  for (const std::string& path : {std::string(name), foreign, damaged}) std::filesystem::remove(path);
  ChildProcess unheard("/bin/sh", {"-c", ZR_COLLECTOR_PROGRAM " --quiet >/dev/full"});
  EXPECT_EQ(unheard.readLine(), "zrcollector: cannot write to the standard output");
  EXPECT_EQ(unheard.wait(), 1);
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
