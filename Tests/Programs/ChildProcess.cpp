#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

ChildProcess::ChildProcess(std::string program, std::vector<std::string> arguments, const std::string& errorsFile) {
  ::signal(SIGPIPE, SIG_IGN);
  int in[2];
  int out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  std::vector<char*> argv{program.data()};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  id_ = ::fork();
  if (id_ == 0) {
    const int errors = errorsFile.empty() ? out[1] : ::open(errorsFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
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

ChildProcess::~ChildProcess() {
  if (id_ > 0) {
    send(SIGKILL);
    wait();
  }
  closeInput();
  ::close(output_);
}

void ChildProcess::write(const std::string& line) {
  const std::string text = line + "\n";
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(input_, text.data() + written, text.size() - written);
    if (count < 0) return;
    written += static_cast<std::size_t>(count);
  }
}

std::optional<std::string> ChildProcess::readLine() {
  std::size_t end = 0;
  while ((end = buffer_.find('\n')) == std::string::npos) {
    char bytes[4096];
    const ssize_t count = ::read(output_, bytes, sizeof bytes);
    if (count <= 0) return buffer_.empty() ? std::nullopt : std::optional(std::exchange(buffer_, {}));
    buffer_.append(bytes, static_cast<std::size_t>(count));
  }
  std::string line = buffer_.substr(0, end);
  buffer_.erase(0, end + 1);
  return line;
}

void ChildProcess::closeInput() {
  if (input_ >= 0) ::close(std::exchange(input_, -1));
}

void ChildProcess::send(int signal) const {
  ::kill(id_, signal);
}

int ChildProcess::wait() {
  int status = 0;
  ::waitpid(std::exchange(id_, -1), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
