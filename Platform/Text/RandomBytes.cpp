#include "Platform/Text/RandomBytes.h"

#include <fcntl.h>
#include <unistd.h>
#if __has_include(<sys/random.h>)
#include <sys/random.h>
#endif

#include <cerrno>
#include <stdexcept>

namespace zorvane::platform {
namespace {

// For kernels without getentropy.
bool readFromDevice(std::span<std::uint8_t> bytes) {
  const int file = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  while (!bytes.empty()) {
    const ssize_t count = ::read(file, bytes.data(), bytes.size());
    if (count > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      break;
    }
  }
  ::close(file);
  return bytes.empty();
}

}  // namespace

void fillWithRandomBytes(std::span<std::uint8_t> bytes) {
  if (::getentropy(bytes.data(), bytes.size()) == 0 || readFromDevice(bytes)) return;
  throw std::runtime_error("no source of random bytes");
}

}  // namespace zorvane::platform
