#include "ZRHostFixture.h"

#include <fstream>

FakeService::FakeService() {
  server_.Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
    Json body = Json::parse(request.body);
    std::function<int(const Json&)> status;
    {
      const std::lock_guard lock(mutex_);
      status = status_;
    }
    response.status = status(body);
    const std::lock_guard lock(mutex_);
    for (const Json& event : response.status == 200 ? body.value("viewsInfo", Json::array()) : Json::array()) {
      const std::string name = event.at("EVENT_ACTION");
      if (!name.starts_with("EVENT_ACTION_") && !name.starts_with("ZRV_")) acceptedEvents_.push_back(name);
    }
    paths_.push_back(request.path);
    bodies_.push_back(std::move(body));
  });
  port_ = server_.bind_to_any_port("127.0.0.1");
  thread_ = std::thread([this] { server_.listen_after_bind(); });
  while (!server_.is_running()) std::this_thread::yield();
}

FakeService::~FakeService() {
  server_.stop();
  thread_.join();
}

void FakeService::answerWith(std::function<int(const Json& body)> status) {
  const std::lock_guard lock(mutex_);
  status_ = std::move(status);
}

std::vector<Json> FakeService::bodies() const {
  const std::lock_guard lock(mutex_);
  return bodies_;
}

std::vector<std::string> FakeService::paths() const {
  const std::lock_guard lock(mutex_);
  return paths_;
}

std::vector<std::string> FakeService::acceptedEvents() const {
  const std::lock_guard lock(mutex_);
  return acceptedEvents_;
}

std::vector<Json> HostResult::values() const {
  std::vector<Json> values;
  for (const Json& line : output) {
    if (line.contains("value")) values.push_back(line.at("value"));
  }
  return values;
}

Json HostProcess::readLine() {
  const auto line = process_.readLine();
  return line ? Json::parse(*line) : Json();
}

HostResult HostProcess::finish() {
  process_.closeInput();
  HostResult result;
  for (Json line = readLine(); !line.is_null(); line = readLine()) result.output.push_back(std::move(line));
  result.status = process_.wait();
  std::ifstream errors(errorsFile_);
  result.errors.assign(std::istreambuf_iterator<char>(errors), {});
  return result;
}

std::vector<std::string> ZRHost::arguments(const std::vector<std::string>& more) const {
  std::vector<std::string> all{"--data",  directory_.file("app"),    "--endpoint", service_.url() + "/",
                               "--clock", "2026-11-21T10:00:00.000Z"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

HostResult ZRHost::run(const std::vector<std::string>& script, const std::vector<std::string>& withArguments) const {
  HostProcess host(withArguments, directory_.file("stderr"));
  for (const std::string& line : script) host.write(line);
  HostResult result = host.finish();
  EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("Sanitizer")));
  return result;
}

std::string ZRHost::fileWith(const std::string& name, const std::string& text) const {
  std::ofstream(directory_.file(name)) << text;
  return directory_.file(name);
}

std::vector<Json> ZRHost::linesOf(const std::string& path) {
  std::vector<Json> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) lines.push_back(Json::parse(line));
  return lines;
}
