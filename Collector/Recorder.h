// Writes requests to a text file, one JSON object per line.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

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
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // {"method", "path", "headers", "body", "status"}; whole and written when the call returns. The body is written as it
  // came if bodyIsJSON, else as a string; status 0: no response was sent. Throws std::runtime_error if it cannot be
  // written; what was written of it is removed, or stands on a line of its own.
  void write(ReceivedRequest request, bool bodyIsJSON, int status);

 private:
  // False, with errno set, on failure.
  bool append(std::string_view rest);

  const std::string path_;
  const int descriptor_;
  std::mutex mutex_;
  // The last line has no end.
  bool isTorn_ = false;
};

}  // namespace zorvane::collector
