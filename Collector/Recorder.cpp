#include "Collector/Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace zorvane::collector {

using nlohmann::json;

namespace {

std::string quoted(const std::string& text) {
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

void Recorder::write(const ReceivedRequest& request, bool bodyIsJSON, int status) {
  json headers = json::object();
  for (const auto& [name, value] : request.headers) {
    // HTTP joins the values of a repeated header with a comma.
    headers[name] = headers.contains(name) ? headers[name].get<std::string>() + ", " + value : value;
  }
  std::string body = bodyIsJSON ? request.body : quoted(request.body);
  // In JSON, line breaks occur only between tokens; a space means the same there.
  std::replace(body.begin(), body.end(), '\n', ' ');
  std::replace(body.begin(), body.end(), '\r', ' ');
  const std::string line = "{\"method\": " + quoted(request.method) + ", \"path\": " + quoted(request.target) +
                           ", \"headers\": " + headers.dump(-1, ' ', false, json::error_handler_t::replace) +
                           ", \"body\": " + body + ", \"status\": " + std::to_string(status) + "}\n";
  const std::lock_guard lock(mutex_);
  if (std::fwrite(line.data(), 1, line.size(), file_.get()) != line.size() || std::fflush(file_.get()) != 0) {
    throw std::runtime_error("cannot write the record " + path_ + ": " + std::strerror(errno));
  }
}

}  // namespace zorvane::collector
