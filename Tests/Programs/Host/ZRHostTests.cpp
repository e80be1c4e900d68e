// zrhost as a process: scripts in, output lines and requests out.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <set>

#include "Host/Actions.h"
#include "ZRHostFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(ZRHost, WrongUsageIsSaidInOneLine) {
  const std::string data = directory_.file("app");
  const std::string url = "http://127.0.0.1:1";
  const std::string file = fileWith("file", "[1]");
  const struct {
    std::vector<std::string> arguments;
    std::string said;
  } cases[] = {
      {{"--endpoint", url}, "--data is required (see --help)"},
      {{"--dta", data, "--endpoint", url}, "not expected: --dta (see --help)"},
      {{"--data", data}, "--endpoint is required"},
      {{"--data", data, "--endpoint"}, "--endpoint: 1 required"},
      {{"--data", data, "--endpoint", url, "--data", data}, "--data: At Most 1"},
      {{"--data", data, "--endpoint", "ftp://a"}, "\"ftp://a\""},
      {{"--data", data, "--endpoint", "http:///v1"}, "--endpoint: must be"},
      {{"--data", data, "--endpoint", url, "--clock", "yesterday"}, "--clock: must be"},
      {{"--data", data, "--endpoint", url, "--verbose"}, "not expected: --verbose"},
      {{"--data", data, "--endpoint", url, "--strict=0"}, "strict was given"},
      {{"--data", data, "--endpoint", url, "a", "b"}, "not expected: b"},
      {{"--data", data, "--endpoint", url, directory_.file("none")}, "none: No such file"},
      {{"--data", data, "--endpoint", url, directory_.path()}, "Is a directory"},
      {{"--data", file + "/app", "--endpoint", url}, file},
      {{"--data", data, "--endpoint", url, "--trace", directory_.path()}, "--trace"},
      {{"--data", data, "--endpoint", url, "--config", directory_.file("none")}, "--config"},
      {{"--data", data, "--endpoint", url, "--config", file}, "not a JSON object"},
      {{"--data", data, "--endpoint", url, "--config", fileWith("a", R"({"s_i_d": "x"})")}, "\"s_i_d\" must be"},
      {{"--data", data, "--endpoint", url, "--config", fileWith("b", R"({"colour": 1})")}, "\"colour\""},
  };
  for (const auto& c : cases) {
    const HostResult result = run({}, c.arguments);
    EXPECT_EQ(result.status, 2) << c.said;
    EXPECT_THAT(result.errors, HasSubstr(c.said));
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    EXPECT_TRUE(result.output.empty());
  }
}

TEST_F(ZRHost, EveryExampleOfTheHelpPlays) {
  std::vector<std::string> script;
  for (const zorvane::host::Action& action : zorvane::host::allActions()) {
    // No task of that name has begun.
    if (action.name != "expire" && action.name != "crash") script.push_back(zorvane::host::exampleOf(action));
  }
  // Some editors write a byte order mark.
  script.front().insert(0, "\xEF\xBB\xBF");
  const HostResult result = run(script, arguments({"--config", fileWith("config", "\xEF\xBB\xBF{}")}));
  EXPECT_EQ(result.status, 0) << result.errors;
}

TEST_F(ZRHost, OnATerminalTheLastLineSaysWhatWasSentAndWhatIsLeft) {
  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(terminal >= 0 && ::grantpt(terminal) == 0 && ::unlockpt(terminal) == 0);
  ChildProcess host(ZR_HOST_PROGRAM, arguments(), ::ptsname(terminal));
  for (const char* line :
       {R"({"do": "launch"})", R"({"do": "track", "event": "One"})", R"({"do": "flush"})",
        R"({"do": "track", "event": "Two"})", R"({"do": "save"})", R"({"do": "track", "event": "Three"})"}) {
    host.write(line);
  }
  host.closeInput();
  EXPECT_EQ(host.wait(), 0);
  char text[500];
  const ssize_t size = ::read(terminal, text, sizeof text);
  ::close(terminal);
  EXPECT_EQ(
      std::string(text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))),
      "zrhost: events recorded: 4; requests sent: 1, accepted: 1; left: batches in the file: 1, events not saved: "
      "1\r\n");
}

TEST_F(ZRHost, OnlyTheOwnerReadsWhatItWritesAndNoLinkIsFollowed) {
  const std::string trace = directory_.file("trace");
  const mode_t before = ::umask(0);
  const HostResult result = run({R"({"do": "config", "set": {"app_group_id": "group"}})", R"({"do": "launch"})",
                                 R"({"do": "uniqueID", "value": "u"})", R"({"do": "save"})", R"({"do": "inactive"})"},
                                arguments({"--trace", trace}));
  ::umask(before);
  EXPECT_EQ(result.status, 0);
  std::set<std::string> names;
  const auto expectPrivate = [&](const std::filesystem::directory_entry& entry) {
    const int mode = static_cast<int>(entry.status().permissions());
    EXPECT_EQ(mode, entry.is_directory() ? 0700 : 0600) << entry.path();
    names.insert(entry.path().filename());
  };
  expectPrivate(std::filesystem::directory_entry(trace));
  expectPrivate(std::filesystem::directory_entry(directory_.file("app")));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_.file("app"))) expectPrivate(entry);
  for (const char* name : {"Documents", "ZrvData", "ZRSessionInfo", "ZRUserAttributes", "sdk.plist", "groups"}) {
    EXPECT_TRUE(names.contains(name)) << name;
  }

  std::filesystem::create_symlink(directory_.file("elsewhere"), directory_.file("link"));
  const HostResult refused = run({}, arguments({"--trace", directory_.file("link")}));
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.errors, HasSubstr("--trace: cannot write"));
  EXPECT_FALSE(std::filesystem::exists(directory_.file("elsewhere")));
}

TEST_F(ZRHost, LineThatIsNoActionEndsTheScriptAndIsNamed) {
  const struct {
    std::string line;
    std::string said;
  } cases[] = {
      {"launch", "not JSON"},
      {"[]", "not a JSON object"},
      {R"({"event": "a"})", "\"do\" is missing"},
      {R"({"do": "dance"})", "unknown action \"dance\""},
      {R"({"do": "track", "evnt": "Purchase"})", "\"track\" has no key \"evnt\""},
      {R"({"do": "flush", "async": false, "": 1})", "\"flush\" has no key \"\""},
      {R"({"do": "track", "event": "a", "event": "a"})", "the key \"event\" stands twice"},
      {R"({"do": "track", "event": "b:", "attributes": {"c": ["\"", {}], "b": 1, "\u0062": 2}})", "\"b\" stands twice"},
      {R"({"do": "attribute", "key": "a", "value": 1, "date": "x"})", "\"value\" and \"date\" exclude"},
      {R"({"do": "attribute", "key": "a", "date": 5})", "\"date\" must be text"},
      {R"({"do": "attribute", "key": "a", "timestamp": "5"})", "\"timestamp\" must be a number"},
      {R"({"do": "attribute", "key": "a", "location": [1, true]})", "\"location\" must be [latitude"},
      {R"({"do": "pushPreference", "value": 1})", "\"value\" must be true or false"},
      {R"({"do": "optOut", "what": "data"})", "\"value\" is missing"},
      {R"({"do": "optOut", "what": "idf", "value": true})", "\"what\" must be"},
      {R"({"do": "appStatus"})", "\"status\" is missing"},
      {R"({"do": "appStatus", "status": 0, "version": 2})", "\"version\" must be text"},
      {R"({"do": "sdkVersion", "version": null})", "\"version\" must be text"},
      {R"({"do": "track", "event": "a", "builder": 1})", "\"builder\" must be true or false"},
      {R"({"do": "print", "what": "weather"})", "\"weather\""},
      {R"({"do": "launch", "async": 1})", "\"async\" must be true or false"},
      {R"({"do": "track", "event": "a", "attributes": []})", "\"attributes\" must be an object"},
      {R"({"do": "track", "event": "a", "dates": {"d": true}})", "\"d\" must be ISO text or seconds"},
      {R"({"do": "track", "event": "a", "locations": {"l": [1]}})", "\"l\" must be [latitude, longitude]"},
      {R"({"do": "wait", "seconds": "1"})", "\"seconds\" must be a number"},
      {R"({"do": "wait", "seconds": -1})", "\"seconds\" must be from 0"},
      {R"({"do": "interval", "seconds": 2.0})", "\"seconds\" must be an integer"},
      {R"({"do": "clock", "at": "noon"})", "\"at\" must be a time"},
      {R"({"do": "sdkState"})", "\"enabled\" is missing"},
      {R"({"do": "config", "set": {"colour": 1}})", "\"colour\""},
      {R"({"do": "openURL", "url": "a:b", "via": "pigeon"})", "\"via\" must be"},
      {R"({"do": "sources", "sources": [], "own": true})", "\"own\" belongs to \"push\""},
      {R"({"do": "expire", "name": "nobody"})", "\"nobody\""},
  };
  for (const auto& c : cases) {
    const HostResult result = run({"# comment", "", c.line, R"({"do": "settle"})"});
    EXPECT_EQ(result.status, 3) << c.line;
    EXPECT_THAT(result.errors, HasSubstr("line 3: "));
    EXPECT_THAT(result.errors, HasSubstr(c.said));
    EXPECT_TRUE(result.output.empty()) << c.line;
  }
}

TEST_F(ZRHost, WhatWasPlayedBeforeABadLineStaysPlayed) {
  const HostResult result =
      run({R"({"do": "launch"})", R"({"do": "track", "event": "a"})", R"({"do": "flush", "async": true})", "{}"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(service_.acceptedEvents(), ElementsAre("a"));
  EXPECT_THAT(run({R"({"do": "launch"})", "{}"}).errors,
              HasSubstr("line 2: \"do\" is missing\nzrhost: left: events not saved: 1\n"));
}

TEST_F(ZRHost, RefusedRequestsAreSaidAndTheirBatchesStay) {
  service_.answerWith(
      [](const Json& body) { return body.at("viewsInfo").at(0).at("EVENT_ACTION") == "b" ? 500 : 200; });
  const HostResult refused =
      run({R"({"do": "launch"})", R"({"do": "track", "event": "a"})", R"({"do": "save"})",
           R"({"do": "track", "event": "b"})", R"({"do": "rawFlush", "background": false})", R"({"do": "save"})",
           R"({"do": "rawFlush", "background": false})", R"({"do": "print", "what": "batches"})"},
          arguments({"--strict"}));
  EXPECT_EQ(refused.status, 4);
  EXPECT_THAT(refused.errors, HasSubstr("1 of 2 requests were not accepted"));
  EXPECT_THAT(refused.errors, HasSubstr("/v1/report/DEMO: HTTP status 500"));
  EXPECT_THAT(refused.output, testing::Contains(Json{
                                  {"completion", "rawFlush"}, {"line", 7}, {"success", false}, {"attempted", true}}));
  EXPECT_EQ(refused.values().at(0).size(), 1u);

  std::vector<std::string> offline = arguments();
  offline[3] = "http://127.0.0.1:1";
  const HostResult unheard = run({R"({"do": "launch"})"}, offline);
  EXPECT_EQ(unheard.status, 0);
  EXPECT_THAT(unheard.errors, HasSubstr("http://127.0.0.1:1/v1/report/DEMO: "));
  EXPECT_THAT(unheard.errors, HasSubstr("zrhost: left: batches in the file: "));

  service_.answerWith([](const Json&) { return 200; });
  const HostResult accepted =
      run({R"({"do": "launch"})", R"({"do": "print", "what": "batches"})"}, arguments({"--strict"}));
  EXPECT_EQ(accepted.status, 0);
  EXPECT_THAT(service_.acceptedEvents(), ElementsAre("a", "b"));
  EXPECT_THAT(accepted.values(), ElementsAre(Json(nullptr)));
  EXPECT_EQ(accepted.errors, "");
}

TEST_F(ZRHost, WhatCannotBeSavedIsSaid) {
  std::filesystem::create_directories(directory_.file("app/Documents/ZorvaneBatchEvents.plist"));
  std::filesystem::create_directories(directory_.file("app/Library/ZrvData/ZRSessionInfo"));
  const HostResult result = run({R"({"do": "launch"})", R"({"do": "track", "event": "a"})", R"({"do": "flush"})"});
  EXPECT_EQ(result.status, 0);
  for (const char* said : {"zrhost: Batch Events plist : cannot read ", "zrhost: Archive : cannot read ",
                           "zrhost: left: a batch file that cannot be read, events not saved: 2\n"}) {
    EXPECT_THAT(result.errors, HasSubstr(said));
  }
}

TEST_F(ZRHost, CrashKeepsWhatWasSaved) {
  const HostResult crashed = run({R"({"do": "launch"})", R"({"do": "track", "event": "saved"})", R"({"do": "save"})",
                                  R"({"do": "track", "event": "unsaved"})", R"({"do": "crash"})"});
  EXPECT_EQ(crashed.status, -SIGKILL);
  EXPECT_EQ(crashed.output.size(), 4u);
  EXPECT_TRUE(service_.bodies().empty());
  run({R"({"do": "launch"})"});
  EXPECT_THAT(service_.acceptedEvents(), ElementsAre("saved"));
}

TEST_F(ZRHost, CtrlCEndsTheScriptAsItsEndDoes) {
  ::signal(SIGINT, SIG_DFL);  // also if the tests run in the background
  // The second script sleeps in real time when the signal comes.
  for (const char* last : {R"({"do": "print", "what": "config"})", R"({"do": "wait", "seconds": 100000})"}) {
    std::vector<std::string> all = arguments();
    all.resize(4);  // no --clock
    HostProcess host(all, directory_.file("stderr"));
    for (const char* line : {R"({"do": "launch"})", R"({"do": "track", "event": "a"})", last}) host.write(line);
    for (int line = 1; line <= 2; ++line) EXPECT_EQ(host.readLine().at("done"), line);
    host.interrupt();
    while (!host.readLine().is_null()) {
    }
    const HostResult result = host.finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, HasSubstr("zrhost: ended by Ctrl-C after line "));
    EXPECT_THAT(result.errors, HasSubstr("zrhost: left: events not saved: 2\n"));
    EXPECT_TRUE(service_.bodies().empty());
  }
}

TEST_F(ZRHost, CtrlCStaysIgnoredInTheBackground) {
  ::signal(SIGINT, SIG_IGN);
  HostProcess host(arguments(), directory_.file("stderr"));
  for (int line = 1; line <= 2; ++line) {
    host.write(R"({"do": "launch"})");
    EXPECT_EQ(host.readLine().at("done"), line);
    host.interrupt();
  }
  const HostResult result = host.finish();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.errors, Not(HasSubstr("Ctrl-C")));
}

TEST_F(ZRHost, DefaultsShowGroupsOfAnyName) {
  const HostResult result =
      run({R"({"do": "config", "set": {"app_group_id": ".a/b%2F"}})", R"({"do": "launch"})",
           R"({"do": "uniqueID", "value": "u"})", R"({"do": "flush"})",
           R"({"do": "config", "set": {"app_group_id": ""}})", R"({"do": "print", "what": "defaults"})"});
  EXPECT_EQ(result.values().at(0).at("groups"),
            Json::parse(R"({".a/b%2F": {"DEMO": {"zrv_identifiers": {"zrv_user_id": "u"}}}})"));
}

TEST_F(ZRHost, EachLineIsAnsweredBeforeTheNextIsWritten) {
  HostProcess host(arguments({"--app-id", "SHOP"}), directory_.file("stderr"));
  host.write(R"({"do": "launch"})");
  EXPECT_EQ(host.readLine(), (Json{{"done", 1}, {"do", "launch"}}));
  host.write("# nothing");
  host.write(R"({"do": "track", "event": "a", "handler": true})");
  EXPECT_EQ(host.readLine(), (Json{{"completion", "track"}, {"line", 3}}));
  EXPECT_EQ(host.readLine(), (Json{{"done", 3}, {"do", "track"}}));
  host.write(R"({"do": "flush"})");
  EXPECT_EQ(host.readLine(), (Json{{"completion", "flush"}, {"line", 4}, {"success", true}}));
  EXPECT_EQ(host.readLine(), (Json{{"done", 4}, {"do", "flush"}}));
  EXPECT_THAT(service_.paths(), ElementsAre("/v1/report/SHOP"));
  EXPECT_EQ(host.finish().status, 0);
}

TEST_F(ZRHost, AsyncActionGoesOnWhileItsRequestWaits) {
  std::promise<void> mayAnswer;
  service_.answerWith([answer = mayAnswer.get_future().share()](const Json&) { return answer.wait(), 200; });
  HostProcess host(arguments({"--quiet"}), directory_.file("stderr"));
  for (const char* line :
       {R"({"do": "launch"})", R"({"do": "track", "event": "a"})", R"({"do": "flush", "async": true})",
        R"({"do": "print", "what": "config", "async": true})"}) {
    host.write(line);
  }
  EXPECT_EQ(host.readLine().at("line"), 4);
  mayAnswer.set_value();
  host.write(R"({"do": "settle"})");
  host.write(R"({"do": "print", "what": "currentBatch"})");
  EXPECT_EQ(host.readLine(), (Json{{"completion", "flush"}, {"line", 3}, {"success", true}}));
  EXPECT_EQ(host.readLine(), (Json{{"line", 6}, {"value", nullptr}}));
  EXPECT_EQ(host.finish().status, 0);
}

TEST_F(ZRHost, EventsHaveTheValuesOfTheirFields) {
  const std::string track =
      R"({"do": "track", "event": "e", "attributes": {"whole": 2, "half": 2.0, "big": 9007199254740993, "yes": true, )"
      R"("list": [1, 2.0, false], "text": "ä\"", "zrv_non_interactive": 0}, "dates": {"d": "1970-01-01T00:00:02Z", )"
      R"("s": 1.5}, "locations": {"p": [1, 2], "q": [0, 2]}, "nonInteractive": true, "builder": )";
  const HostResult result = run({R"({"do": "launch"})", track + "false}", track + "true}",
                                 track + R"(true, "handler": true})", R"({"do": "print", "what": "currentBatch"})"});
  const Json batch = result.values().at(0);
  ASSERT_EQ(batch.size(), 4u);
  for (std::size_t i = 1; i < batch.size(); ++i) {
    const bool isBuilt = i > 1;
    EXPECT_EQ(batch[i].at("EVENT_ATTRS").dump(), R"({"whole":2,"half":2.0,"big":9007199254740993,"yes":true,)"
                                                 R"("list":[1,2.0,false],"text":"ä\""})");
    EXPECT_EQ(batch[i].contains("N_I_E"), isBuilt) << "the builder reads its dictionary first";
    // The builder has its own scale of dates, and refuses a latitude of zero.
    EXPECT_EQ(batch[i].at("EVENT_ATTRS_CUST"),
              Json::parse(isBuilt ? R"({"timestamp": [{"d": 2000000.0}, {"s": 1500.0}],)"
                                    R"( "location": [{"p": "1.000000,2.000000"}]})"
                                  : R"({"timestamp": [{"d": 2000.0}, {"s": 1500.0}],)"
                                    R"( "location": [{"p": "1.000000,2.000000"}, {"q": "0.000000,2.000000"}]})"));
  }
}

TEST_F(ZRHost, WaitingFiresTheFlushTimerAndAJumpOfTheClockDoesNot) {
  HostProcess host(arguments({"--quiet"}), directory_.file("stderr"));
  const auto eventsAfter = [&](const std::string& line) {
    host.write(line);
    host.write(R"({"do": "print", "what": "sources"})");
    host.readLine();
    return service_.acceptedEvents().size();
  };
  host.write(R"({"do": "launch"})");
  EXPECT_EQ(eventsAfter(R"({"do": "track", "event": "a"})"), 0u);
  EXPECT_EQ(eventsAfter(R"({"do": "clock", "at": "2026-11-21T12:00:00Z"})"), 0u);
  EXPECT_EQ(eventsAfter(R"({"do": "wait", "seconds": 59.9})"), 0u);
  EXPECT_EQ(eventsAfter(R"({"do": "wait", "seconds": 0.1})"), 1u);
  EXPECT_EQ(eventsAfter(R"({"do": "track", "event": "b"})"), 1u);
  EXPECT_EQ(eventsAfter(R"({"do": "wait", "seconds": 6000})"), 2u);
  EXPECT_EQ(host.finish().status, 0);
  EXPECT_EQ(service_.bodies().at(0).at("meta").at("request_time"), "2026-11-21T12:01:00.000Z");
  EXPECT_EQ(service_.bodies().at(1).at("meta").at("request_time"), "2026-11-21T12:02:00.000Z");
}

TEST_F(ZRHost, LinksAndPushesBecomeSources) {
  const HostResult result = run(
      {R"({"do": "launch"})", R"({"do": "openURL", "url": "shop://a?utm_source=mail"})",
       R"({"do": "print", "what": "sources"})", R"({"do": "sources", "push": {"utm_medium": "push"}})",
       R"({"do": "print", "what": "sources"})",
       R"({"do": "sources", "own": true, "push": {"app_extra": {"screenData": {"utm_source": "own"}}}})",
       R"({"do": "sources", "push": {"aps": {}}})", R"({"do": "print", "what": "sources"})",
       R"({"do": "sources", "sources": [{"source": "x"}, {"source": "y"}]})", R"({"do": "print", "what": "sources"})"});
  EXPECT_THAT(result.values(),
              ElementsAre(Json::array({{{"source", "mail"}, {"source_url", "shop://a?utm_source=mail"}}}),
                          Json::array({{{"medium", "push"}}}), Json::array({{{"source", "own"}}}),
                          Json::array({{{"source", "x"}}, {{"source", "y"}}})));
}

TEST_F(ZRHost, OpenedURLsGoThroughTheProxyWhileItIsRegistered) {
  const struct {
    std::vector<std::string> script;
    std::size_t seen;  // of the links opened via "app", "proxy", "activity", "facade"
  } cases[] = {{{R"({"do": "launch"})"}, 3},
               {{R"({"do": "launch"})", R"({"do": "unswizzle"})", R"({"do": "swizzle"})"}, 0},
               {{}, 2},
               {{R"({"do": "swizzle"})"}, 3}};
  for (const auto& [before, seen] : cases) {
    std::vector<std::string> script = before;
    for (const char* via : {"app", "proxy", "activity", "facade"}) {
      script.push_back(Json{{"do", "openURL"}, {"via", via}, {"url", std::string("a:b?source=") + via}}.dump());
    }
    const std::string trace = directory_.file("trace");
    std::ofstream{trace};
    EXPECT_EQ(run(script, arguments({"--trace", trace})).status, 0);
    std::size_t incoming = 0;
    for (const Json& line : linesOf(trace)) {
      if (line.value("message", "").starts_with("Incoming URL")) ++incoming;
    }
    EXPECT_EQ(incoming, seen) << before.size();
  }
}

TEST_F(ZRHost, TraceTellsWhatHappensInOrder) {
  const std::string trace = directory_.file("trace");
  run({R"({"do": "launch"})", R"({"do": "track", "event": "a"})", R"({"do": "flush"})"}, arguments({"--trace", trace}));
  std::vector<std::string> told;
  std::vector<Json> requests;
  for (const Json& line : linesOf(trace)) {
    const std::string type = line.at("t");
    if (type == "log") continue;
    if (type == "request" || type == "response") requests.push_back(line);
    told.push_back(type + (line.contains("main") ? " main " : " ") + line.value("name", "") +
                   line.value("delegate", "") + line.value("store", ""));
  }
  EXPECT_THAT(told, ElementsAre("synchronize main standard", "synchronize main sdk",
                                "notification main UIApplicationDidBecomeActiveNotification", "trigger inapp",
                                "trigger messaging", "trigger inapp", "trigger messaging", "request ", "response "));
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].at("bid"), service_.bodies().at(0).at("meta").at("bid"));
  EXPECT_EQ(requests[1].at("bid"), requests[0].at("bid"));
  EXPECT_EQ(requests[1].at("success"), true);
}

}  // namespace
