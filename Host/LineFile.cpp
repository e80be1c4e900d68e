#include "Host/LineFile.h"

#include <unistd.h>

#include <cerrno>

#include "Platform/Formats/JSON.h"

namespace zorvane::host {

void LineFile::write(const platform::Dictionary& line) {
  writeText(platform::jsonText(line));
}

void LineFile::writeText(std::string line) {
  line += '\n';
  platform::MutexLock lock(mutex_);
  std::string_view rest = line;
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
