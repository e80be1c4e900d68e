#include "HostRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

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
    received_.push_back({request.path, std::move(body), response.status});
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
  std::vector<Json> bodies;
  for (const Received& request : received_) bodies.push_back(request.body);
  return bodies;
}

std::vector<std::string> FakeService::paths() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> paths;
  for (const Received& request : received_) paths.push_back(request.path);
  return paths;
}

std::vector<std::string> FakeService::acceptedEvents() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const Received& request : received_) {
    if (request.status != 200) continue;
    for (const Json& event : request.body.value("viewsInfo", Json::array())) {
      const std::string name = event.at("EVENT_ACTION");
      if (!name.starts_with("EVENT_ACTION_") && !name.starts_with("ZRV_")) names.push_back(name);
    }
  }
  return names;
}

std::vector<Json> HostResult::values() const {
  std::vector<Json> values;
  for (const Json& line : output) {
    if (line.contains("value")) values.push_back(line.at("value"));
  }
  return values;
}

HostProcess::HostProcess(const std::vector<std::string>& arguments, std::string errorsFile)
    : errorsFile_(std::move(errorsFile)) {
  ::signal(SIGPIPE, SIG_IGN);
  int in[2];
  int out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  std::vector<char*> argv{const_cast<char*>(ZR_HOST_PROGRAM)};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) {
    const int errors = ::open(errorsFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  input_ = in[1];
  output_ = out[0];
}

HostProcess::~HostProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  if (input_ >= 0) ::close(input_);
  ::close(output_);
}

void HostProcess::write(const std::string& line) {
  const std::string text = line + "\n";
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(input_, text.data() + written, text.size() - written);
    if (count < 0) return;  // it has ended; its status says why
    written += static_cast<std::size_t>(count);
  }
}

bool HostProcess::readMore() {
  char bytes[4096];
  const ssize_t count = ::read(output_, bytes, sizeof bytes);
  if (count > 0) buffer_.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

Json HostProcess::readLine() {
  std::size_t end = 0;
  while ((end = buffer_.find('\n')) == std::string::npos) {
    if (!readMore()) return nullptr;
  }
  Json line = Json::parse(buffer_.substr(0, end));
  buffer_.erase(0, end + 1);
  return line;
}

HostResult HostProcess::finish() {
  ::close(input_);
  input_ = -1;
  HostResult result;
  while (readMore()) {
  }
  std::istringstream lines(buffer_);
  for (std::string line; std::getline(lines, line);) result.output.push_back(Json::parse(line));
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  std::ifstream errors(errorsFile_);
  result.errors.assign(std::istreambuf_iterator<char>(errors), {});
  return result;
}
