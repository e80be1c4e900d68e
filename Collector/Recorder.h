// Writes requests to a text file, one JSON object per line.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace zorvane::collector {

struct ReceivedRequest {
  std::string method;
  std::string target;   // path and query, as received
  std::string headers;  // a JSON object
  std::string body;
};

// Thread-safe.
class Recorder {
 public:
  // Appends to the file, creates it with mode 0600. Symbolic links are refused, except below "/dev". Throws
  // std::runtime_error if it cannot be opened.
  explicit Recorder(const std::string& path);

  // {"method", "path", "headers", "body", "status"}; whole and flushed when the call returns. The body is written as it
  // came if bodyIsJSON, else as a string; status 0: no response was sent. Throws std::runtime_error.
  void write(ReceivedRequest request, bool bodyIsJSON, int status);

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::string path_;
  std::unique_ptr<std::FILE, Close> file_;
  std::mutex mutex_;
};

}  // namespace zorvane::collector
