#include "ZRAnalytics/Journal/ZRJournalFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "Platform/Files/FileSystem.h"
#include "Platform/Files/SystemCalls.h"

namespace zorvane::journal {
namespace {

using platform::systemCalls;

// Whether nobody else can have put the file there or can write to it.
bool isOwnFile(int file) {
  struct stat status {};
  return systemCalls().fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
         status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

}  // namespace

platform::Error errorOf(const char* call) {
  return {std::string(call) + ": " + std::generic_category().message(errno), errno};
}

platform::Result<int> openFile(const std::string& path) {
  const auto made = platform::makeDirectories(path.substr(0, path.rfind('/')));
  if (!made) return made.error();
  for (const bool isLast : {false, true}) {
    const int file = systemCalls().open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (file < 0 && errno != ELOOP) return errorOf("open");
    if (file >= 0 && isOwnFile(file)) {
      if (systemCalls().flock(file, LOCK_EX | LOCK_NB) == 0) return file;
      const platform::Error error =
          errno == EWOULDBLOCK ? platform::Error{"another process keeps " + path, EWOULDBLOCK} : errorOf("flock");
      systemCalls().close(file);
      return error;
    }
    if (file >= 0) systemCalls().close(file);
    if (isLast) break;
    const auto removed = platform::removeFile(path);
    if (!removed) return removed.error();
  }
  return platform::Error{path + " is not the owner's file"};
}

bool hasHoles(int file, std::size_t bytes) {
  struct stat status {};
  return systemCalls().fstat(file, &status) != 0 || static_cast<std::size_t>(status.st_blocks) * 512 < bytes;
}

bool writeZeros(int file, std::size_t bytes) {
  static constexpr char kZeros[16384] = {};
  while (bytes > 0) {
    const iovec piece{const_cast<char*>(kZeros), std::min(bytes, sizeof kZeros)};
    const ssize_t written = systemCalls().writev(file, &piece, 1);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes -= static_cast<std::size_t>(written);
  }
  return systemCalls().fsync(file) == 0;
}

bool readAll(int file, std::size_t size, std::string& bytes) {
  bytes.resize(size);
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = systemCalls().read(file, bytes.data() + done, size - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace zorvane::journal
