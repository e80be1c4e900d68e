#include "Collector/Recorder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Collector/Contents.h"

namespace zorvane::collector {

namespace {

// Negative, with errno set, on failure. Symbolic links are refused: others could redirect the output with them. Those
// below /dev ("/dev/stdout") are the system's.
int openPrivate(const std::string& path) {
  const int links = path.starts_with("/dev/") ? 0 : O_NOFOLLOW;
  return ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | links, 0600);
}

// Of a regular file; negative: it is none.
off_t sizeOf(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : -1;
}

}  // namespace

Recorder::Recorder(const std::string& path) : path_(path), descriptor_(openPrivate(path)) {
  if (descriptor_ < 0) throw std::runtime_error("cannot write the record " + path + ": " + std::strerror(errno));
}

Recorder::~Recorder() {
  ::close(descriptor_);
}

void Recorder::write(ReceivedRequest request, bool bodyIsJSON, int status) {
  // JSON has no byte order mark, but parsers skip one.
  bodyIsJSON = bodyIsJSON && !request.body.starts_with("\xEF\xBB\xBF");
  std::string body = bodyIsJSON ? std::move(request.body) : jsonText(request.body);
  // In JSON, line breaks occur only between tokens; a space means the same there.
  std::replace(body.begin(), body.end(), '\n', ' ');
  std::replace(body.begin(), body.end(), '\r', ' ');
  const std::string before = "{\"method\": " + jsonText(request.method) + ", \"path\": " + jsonText(request.target) +
                             ", \"headers\": " + request.headers + ", \"body\": ";
  const std::string after = ", \"status\": " + std::to_string(status) + "}\n";
  const std::lock_guard lock(mutex_);
  if (!append((isTorn_ ? "\n" : "") + before + body + after)) {
    throw std::runtime_error("cannot write the record " + path_ + ": " + std::strerror(errno));
  }
}

bool Recorder::append(std::string_view rest) {
  const off_t start = sizeOf(descriptor_);
  const std::size_t size = rest.size();
  while (!rest.empty()) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      const auto written = static_cast<off_t>(size - rest.size());
      // Not if another process has written behind it.
      const bool isRemoved =
          start >= 0 && sizeOf(descriptor_) == start + written && ::ftruncate(descriptor_, start) == 0;
      isTorn_ = isTorn_ || (written > 0 && !isRemoved);
      errno = error;
      return false;
    }
  }
  isTorn_ = false;
  return true;
}

}  // namespace zorvane::collector
