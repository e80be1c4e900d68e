// One installation from its first launch to its reinstallation: what reaches the service, as a whole and with the
// process killed at each action in turn.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>

#include "HostRun.h"
#include "Support/TemporaryDirectory.h"

namespace {

enum class Mood { Up, Down, NoDevices };

struct Step {
  enum class Kind { Install, Start, Service, Action };
  Kind kind;
  std::string text;
  std::string line;
};

// Names of countries and languages are sent where they are known.
bool isSent(const std::string& line) {
#ifdef ZR_HAS_ICU
  (void)line;
  return true;
#else
  return !(line.starts_with("<") && line.find("_DISPLAY\"") != std::string::npos);
#endif
}

// The lines of day.txt that are no comment.
std::vector<std::string> dayLines() {
  std::ifstream file(ZR_SOURCE_DIR "/Tests/Programs/Host/day.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.front() != '#' && isSent(line)) lines.push_back(line);
  }
  return lines;
}

std::vector<Step> daySteps() {
  const std::pair<std::string, Step::Kind> prefixes[] = {
      {"= install ", Step::Kind::Install}, {"= start ", Step::Kind::Start}, {"= service ", Step::Kind::Service}};
  std::vector<Step> steps;
  for (const std::string& line : dayLines()) {
    if (line.front() == '{') steps.push_back({Step::Kind::Action, line, line});
    for (const auto& [prefix, kind] : prefixes) {
      if (line.starts_with(prefix)) steps.push_back({kind, line.substr(prefix.size()), line});
    }
  }
  return steps;
}

std::string identifierOf(const Json& report) {
  return report.value("identifiers", Json::object()).value("zrv_user_id", "-");
}

class DayInTheLife : public testing::Test {
 protected:
  struct Request {
    Json body;
    bool accepted;
    bool isDevice() const { return !body.contains("viewsInfo"); }
    std::string batchID() const { return body.at("meta").at("bid"); }
  };

  DayInTheLife() {
    service_.answerWith([this](const Json& body) {
      const std::lock_guard lock(mutex_);
      Request request{body, mood_ == Mood::Up || (mood_ == Mood::NoDevices && body.contains("viewsInfo"))};
      requests_.push_back(request);
      return request.accepted ? 200 : 500;
    });
  }

  void setMood(const std::string& what) {
    const std::map<std::string, Mood> moods{{"up", Mood::Up}, {"down", Mood::Down}, {"no devices", Mood::NoDevices}};
    const std::lock_guard lock(mutex_);
    mood_ = moods.at(what);
  }
  std::vector<Request> takeRequests() {
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
  }

  // Everything but launching: plays a step that is no action.
  void prepare(const Step& step) {
    if (step.kind == Step::Kind::Service) return setMood(step.text);
    finish();
    if (step.kind == Step::Kind::Install) std::filesystem::remove_all(directory_.file("app"));
    configuration_ = {
        {"idfv", "VENDOR"},   {"idfa", "AD"},      {"device_model", "m1"},           {"device_name", "Phone"},
        {"os_version", "17"}, {"locale", "de_AT"}, {"periodic_flush_enabled", false}};
    configuration_.update(Json::parse(step.text.substr(6)));
    clock_ = "2026-11-21T" + step.text.substr(0, 5) + ":00.000Z";
    start();
  }
  void start() {
    std::ofstream(directory_.file("config")) << configuration_;
    const std::vector<std::string> arguments{"--data",   directory_.file("app"),    "--endpoint", service_.url(),
                                             "--config", directory_.file("config"), "--clock",    clock_};
    host_ = std::make_unique<HostProcess>(arguments, directory_.file("stderr"));
  }
  void play(const Step& step) { step.kind == Step::Kind::Action ? void(play(step.text)) : prepare(step); }
  // Plays an action to its end; the value that it gave.
  Json play(const std::string& action) {
    host_->write(action);
    Json answer;
    for (Json line = host_->readLine(); !line.is_null(); line = host_->readLine()) {
      if (line.contains("done")) break;
      if (line.contains("value")) answer = line.at("value");
    }
    return answer;
  }
  void finish() {
    if (!host_) return;
    const HostResult result = host_->finish();
    EXPECT_EQ(result.status, 0) << result.errors;  // refused requests are said, and are no failure
    EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("Sanitizer")));
    host_.reset();
  }

  zorvane::platform::TemporaryDirectory directory_;
  std::mutex mutex_;
  Mood mood_ = Mood::Up;
  std::vector<Request> requests_;
  FakeService service_;
  Json configuration_;
  std::string clock_;
  std::unique_ptr<HostProcess> host_;
};

// Numbers what is random, in the order in which it is seen.
class Numbers {
 public:
  std::string of(const std::string& text) {
    return std::to_string(numbers_.emplace(text, numbers_.size() + 1).first->second);
  }

 private:
  std::map<std::string, std::size_t> numbers_;
};

std::string textOf(const Json& event) {
  std::string text = event.at("EVENT_ACTION");
  if (event.contains("EVENT_ATTRS")) text += " " + event.at("EVENT_ATTRS").dump();
  if (event.contains("EVENT_ATTRS_CUST")) text += " " + event.at("EVENT_ATTRS_CUST").dump();
  if (event.contains("N_I_E")) text += " non-interactive";
  return text;
}

// The events of a report, one line each. What happens at the same instant on several queues has no order; whether the
// session's end still makes it into the batch that its own sync saves has none either, so it is left out.
std::string eventLinesOf(const Json& report) {
  std::vector<std::string> lines;
  for (const Json& event : report.at("viewsInfo")) {
    if (event.at("EVENT_ACTION") == "EVENT_ACTION_IOS_SESSION_END") continue;
    lines.push_back("<   " + std::string(event.at("EVENT_G_TIME")).substr(11, 8) + " " + textOf(event) + "\n");
  }
  std::sort(lines.begin(), lines.end());
  return std::accumulate(lines.begin(), lines.end(), std::string());
}

TEST_F(DayInTheLife, ReachesTheServiceAsAWhole) {
  Numbers users;
  Numbers sessions;
  const auto described = [&](const Request& request, bool registering) {
    const Json& meta = request.body.at("meta");
    std::string text = request.accepted ? "< " : "<! ";
    text += request.isDevice() ? "device" : "report of " + identifierOf(request.body);
    text += ", unique " + users.of(request.body.at("query_params").at("unique_id"));
    if (meta.contains("dev_pref")) text += ", preferences " + meta.at("dev_pref").dump();
    for (const char* name : {"IDFV", "ADVERTISING_IDENTIFIER"}) {
      if (request.body.contains(name)) text += ", " + std::string(name) + " " + std::string(request.body.at(name));
    }
    if (meta.contains("session")) text += ", session " + sessions.of(meta.at("session").at("session_id"));
    if (!registering && meta.contains("dev_add_res")) text += ", registration " + std::string(meta.at("dev_add_res"));
    return text + "\n" + (request.isDevice() ? "" : eventLinesOf(request.body));
  };

  std::string transcript;
  for (const Step& step : daySteps()) {
    play(step);
    transcript += step.line + "\n";
    std::vector<Request> arrived = takeRequests();
    // The requests of one sync run concurrently.
    std::ranges::stable_sort(
        arrived, {}, [](const Request& request) { return request.isDevice() ? "=" : eventLinesOf(request.body); });
    // A registration that is repeated at this moment may or may not have been answered when a report asks.
    const bool registering = std::ranges::any_of(arrived, &Request::isDevice);
    for (const Request& request : arrived) transcript += described(request, registering);
  }
  finish();
  std::string expected;
  for (const std::string& line : dayLines()) expected += line + "\n";
  EXPECT_EQ(transcript, expected);
}

// What a kill leaves behind, as the next process reads it.
struct Remains {
  std::set<std::string> batches;
  std::string identifier;
  std::optional<std::string> pendingIdentifier;
};

class KilledDay : public DayInTheLife, public testing::WithParamInterface<std::size_t> {
 public:
  // Cases of CTest among which the kills are shared out.
  static constexpr std::size_t kShares = 4;

 protected:
  Remains remains() {
    Remains found;
    const Json batches = play(R"({"do": "print", "what": "batches"})");
    for (const auto& [batchID, batch] : batches.items()) found.batches.insert(batchID);
    const Json identifiers = play(R"({"do": "print", "what": "identifiers"})");
    found.identifier = identifiers.is_null() ? "-" : identifiers.value("zrv_user_id", "-");
    const Json defaults = play(R"({"do": "print", "what": "defaults"})").at("sdk");
    if (defaults.contains("Zrv_MODIFIED_USER_ID")) found.pendingIdentifier = defaults.at("Zrv_MODIFIED_USER_ID");
    return found;
  }

  void crash() {
    host_->write(R"({"do": "crash"})");
    EXPECT_EQ(host_->finish().status, -SIGKILL);
    host_.reset();
  }

  // What the host application knows: who is logged in after these steps.
  static std::string loggedIn(const std::vector<Step>& steps, std::size_t count) {
    std::string user;
    for (std::size_t i = 0; i < count; ++i) {
      if (steps[i].kind == Step::Kind::Install) user.clear();
      if (steps[i].kind != Step::Kind::Action) continue;
      const Json action = Json::parse(steps[i].text);
      if (action.at("do") == "uniqueID" || action.at("do") == "alias") user = action.at("value");
      if (action.at("do") == "reset") user.clear();
    }
    return user;
  }

  void playKilledAt(const std::vector<Step>& steps, std::size_t killed, bool atRest);
};

void KilledDay::playKilledAt(const std::vector<Step>& steps, std::size_t killed, bool atRest) {
  setMood("up");
  takeRequests();
  for (std::size_t i = 0; i < killed; ++i) {
    play(steps[i]);
  }
  Json action = Json::parse(steps[killed].text);
  action["async"] = !atRest;
  play(action.dump());
  crash();
  const std::size_t requestsBefore = [this] {
    const std::lock_guard lock(mutex_);
    return requests_.size();
  }();

  start();
  const Remains left = remains();
  play(R"({"do": "launch"})");
  const Remains then = remains();
  EXPECT_FALSE(then.pendingIdentifier);
  if (left.pendingIdentifier) {
    // Where another user is cached that one is logged out first, while the launch's own flush may be running.
    const bool another = left.identifier != "-" && left.identifier != *left.pendingIdentifier;
    EXPECT_TRUE(then.identifier == *left.pendingIdentifier || (another && then.identifier == "(null)"))
        << then.identifier;
  }
  const std::string user = loggedIn(steps, killed + 1);
  if (!user.empty()) play(Json{{"do", "uniqueID"}, {"value", user}}.dump());
  // The rest of this launch, and a last one.
  std::size_t next = killed + 1;
  for (; next < steps.size() && steps[next].kind != Step::Kind::Install && steps[next].kind != Step::Kind::Start;
       ++next) {
    play(steps[next]);
  }
  setMood("up");
  play(R"({"do": "save"})");
  finish();
  start();
  play(R"({"do": "launch"})");
  play(R"({"do": "flush"})");
  finish();

  std::set<std::string> accepted;
  std::set<std::int64_t> events;
  std::size_t index = 0;
  for (const Request& request : takeRequests()) {
    const bool beforeTheKill = index++ < requestsBefore;
    if (request.isDevice() || !request.accepted || !accepted.insert(request.batchID()).second) continue;
    const std::string identifier = identifierOf(request.body);
    for (const Json& event : request.body.at("viewsInfo")) {
      const Json attributes = event.value("EVENT_ATTRS", Json::object());
      if (!attributes.contains("of")) continue;
      EXPECT_TRUE(events.insert(attributes.at("n").get<std::int64_t>()).second) << "twice: " << attributes;
      const std::string owner = attributes.at("of");
      // Whoever is cached when a batch leaves names it: beyond its owner that can be nobody (the data was cleared), or
      // who was in the file after the kill.
      EXPECT_TRUE(identifier == "-" || identifier.starts_with(owner) ||
                  (!beforeTheKill && identifier == left.identifier))
          << attributes << " under " << identifier;
    }
  }
  for (const std::string& batchID : left.batches) EXPECT_TRUE(accepted.contains(batchID)) << "lost: " << batchID;
}

TEST_P(KilledDay, LosesNoSavedEventAndMixesNoUsers) {
  const std::vector<Step> steps = daySteps();
  std::size_t actions = 0;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (steps[i].kind != Step::Kind::Action || actions++ % kShares != GetParam()) continue;
    for (const bool atRest : {false, true}) {
      SCOPED_TRACE(steps[i].text + (atRest ? " at rest" : " on its way"));
      playKilledAt(steps, i, atRest);
      if (HasFailure()) return;
    }
  }
}
INSTANTIATE_TEST_SUITE_P(Shares, KilledDay, testing::Range<std::size_t>(0, KilledDay::kShares));

}  // namespace
