#include "Host/LineFile.h"

#include <unistd.h>

#include <cerrno>

#include "Platform/Formats/JSON.h"

namespace zorvane::host {

void LineFile::write(const platform::Dictionary& line) {
  const std::string text = platform::jsonText(line) + '\n';
  platform::MutexLock lock(mutex_);
  writeBytes(text);
}

void LineFile::writePieces(const std::function<void(const Put& put)>& write) {
  platform::MutexLock lock(mutex_);
  write([this](std::string_view piece) ZR_REQUIRES(mutex_) { writeBytes(piece); });
  writeBytes("\n");
}

void LineFile::writeBytes(std::string_view rest) {
  while (!rest.empty() && !failed_) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      failed_ = true;
    }
  }
}

}  // namespace zorvane::host
