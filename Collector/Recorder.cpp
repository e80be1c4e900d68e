#include "Collector/Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace zorvane::collector {

using nlohmann::json;

namespace {

std::string jsonString(const std::string& text) {
  return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

// Null, with errno set, on failure. Symbolic links are refused: others could redirect the output with them. Those
// below /dev ("/dev/stdout") are the system's.
std::FILE* openPrivate(const std::string& path) {
  const int links = path.starts_with("/dev/") ? 0 : O_NOFOLLOW;
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | links, 0600);
  if (descriptor < 0) return nullptr;
  std::FILE* const file = ::fdopen(descriptor, "a");
  if (!file) ::close(descriptor);
  return file;
}

}  // namespace

Recorder::Recorder(const std::string& path) : path_(path), file_(openPrivate(path)) {
  if (!file_) throw std::runtime_error("cannot write the record " + path + ": " + std::strerror(errno));
}

void Recorder::write(ReceivedRequest request, bool bodyIsJSON, int status) {
  // JSON has no byte order mark, but parsers skip one.
  bodyIsJSON = bodyIsJSON && !request.body.starts_with("\xEF\xBB\xBF");
  std::string body = bodyIsJSON ? std::move(request.body) : jsonString(request.body);
  // In JSON, line breaks occur only between tokens; a space means the same there.
  std::replace(body.begin(), body.end(), '\n', ' ');
  std::replace(body.begin(), body.end(), '\r', ' ');
  const std::string before = "{\"method\": " + jsonString(request.method) +
                             ", \"path\": " + jsonString(request.target) + ", \"headers\": " + request.headers +
                             ", \"body\": ";
  const std::string after = ", \"status\": " + std::to_string(status) + "}\n";
  const std::lock_guard lock(mutex_);
  bool written = true;
  for (const std::string& part : {std::cref(before), std::cref(body), std::cref(after)}) {
    written = std::fwrite(part.data(), 1, part.size(), file_.get()) == part.size() && written;
  }
  if (std::fflush(file_.get()) != 0 || !written) {
    throw std::runtime_error("cannot write the record " + path_ + ": " + std::strerror(errno));
  }
}

}  // namespace zorvane::collector
