// A program as a child process, driven through pipes.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

class ChildProcess {
 public:
  // Standard error goes to the file, or to the output where none is named.
  ChildProcess(std::string program, std::vector<std::string> arguments, const std::string& errorsFile = "");
  // Kills it if it still runs.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // A line of its input. Nothing happens if it has ended.
  void write(const std::string& line);
  // The next line of its output; none at the end.
  std::optional<std::string> readLine();
  void closeInput();
  void send(int signal) const;
  // Waits for its end: the exit status, or minus the signal that ended it. Its output must have been read, or be short.
  int wait();

 private:
  pid_t id_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string buffer_;
};
