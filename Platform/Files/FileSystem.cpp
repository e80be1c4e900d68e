#include "Platform/Files/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/SystemCalls.h"
#include "Platform/Text/Hex.h"
#include "Platform/Text/RandomBytes.h"

namespace zorvane::platform {
namespace {

Error errorOf(const char* action, const std::string& path, int code, const char* call) {
  std::string message = "cannot ";
  message += action;
  message += ' ';
  message += path;
  message += ": ";
  message += std::generic_category().message(code);
  message += " (";
  message += call;
  message += ')';
  return {std::move(message), code};
}

bool isUsablePath(const std::string& path) {
  return !path.empty() && path.find('\0') == std::string::npos;
}

// Repeats the call while a signal interrupts it.
template <typename Call>
auto retryOnEINTR(Call call) {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

// Owns a file descriptor.
class File {
 public:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  ~File() { static_cast<void>(close()); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  explicit operator bool() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  // A close that fails with EINTR has closed the file.
  bool close() {
    const int descriptor = std::exchange(descriptor_, -1);
    return descriptor < 0 || systemCalls().close(descriptor) == 0 || errno == EINTR;
  }

 private:
  int descriptor_;
};

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

int openDirectory(const std::string& path) {
  return retryOnEINTR([&] { return systemCalls().open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0); });
}

// EINVAL: the file system cannot sync directories. Nothing more can be done.
bool syncDirectory(int directory) {
  return retryOnEINTR([&] { return systemCalls().fsync(directory); }) == 0 || errno == EINVAL;
}

int statusOf(const std::string& path, struct stat& status, int flags) {
  return retryOnEINTR([&] { return systemCalls().fstatat(AT_FDCWD, path.c_str(), &status, flags); });
}

constexpr std::string_view kTemporaryPrefix = ".zrv-";
constexpr std::size_t kTemporaryRandomBytes = 10;

bool isTemporaryName(std::string_view name) {
  return name.size() == kTemporaryPrefix.size() + 2 * kTemporaryRandomBytes && name.starts_with(kTemporaryPrefix) &&
         name.find_first_not_of(kLowerHexDigits, kTemporaryPrefix.size()) == std::string_view::npos;
}

// Empty when the directory cannot be listed.
std::vector<std::string> temporaryFilesIn(const std::string& path) {
  std::vector<std::string> names;
  DIR* const listing = ::opendir(path.c_str());
  if (!listing) return names;
  while (const dirent* entry = ::readdir(listing)) {
    if (isTemporaryName(entry->d_name)) names.emplace_back(entry->d_name);
  }
  ::closedir(listing);
  return names;
}

// The directories in which stale files were removed.
struct SweptDirectories {
  Mutex mutex;
  std::vector<std::string> paths ZR_GUARDED_BY(mutex);
};

// Removes the temporary files of killed processes, once per directory and process. Whoever replaces a file holds a lock
// on its directory, so nothing is removed without the exclusive lock. Without it the next replacement tries again.
void removeStaleTemporaryFiles(const std::string& path, int directory) {
  static SweptDirectories& swept = *new SweptDirectories;
  {
    const MutexLock lock(swept.mutex);
    for (const std::string& known : swept.paths) {
      if (known == path) return;
    }
  }
  if (systemCalls().flock(directory, LOCK_EX | LOCK_NB) != 0) return;
  for (const std::string& name : temporaryFilesIn(path)) systemCalls().unlinkat(directory, name.c_str(), 0);
  const MutexLock lock(swept.mutex);
  swept.paths.push_back(path);
}

// A write beyond the process's file-size limit (RLIMIT_FSIZE) raises SIGXFSZ on this thread, which ends the process by
// default. While this object lives, such a write only fails with EFBIG.
class FileSizeSignalBlock {
 public:
  FileSizeSignalBlock() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signal_, &previousMask_);
    wasPending_ = isPending();
  }
  ~FileSizeSignalBlock() {
    int taken = 0;
    if (!wasPending_ && isPending()) sigwait(&signal_, &taken);
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
  }
  FileSizeSignalBlock(const FileSizeSignalBlock&) = delete;
  FileSizeSignalBlock& operator=(const FileSizeSignalBlock&) = delete;

 private:
  static bool isPending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
  }

  sigset_t signal_;
  sigset_t previousMask_;
  bool wasPending_ = false;
};

// Writes all pieces. False with errno set on failure.
bool writeAll(int file, std::span<const std::string_view> pieces) {
  constexpr std::size_t kMaxPieces = 256;
  constexpr std::size_t kMaxBytes = std::size_t{1} << 30;  // some systems refuse more in one call
  const FileSizeSignalBlock block;
  std::size_t next = 0;    // the next piece to write
  std::size_t offset = 0;  // bytes of it already written
  while (next < pieces.size()) {
    std::array<iovec, kMaxPieces> vectors;
    std::size_t count = 0;
    std::size_t bytes = 0;
    for (std::size_t i = next; i < pieces.size() && count < kMaxPieces && bytes < kMaxBytes; ++i) {
      const std::string_view rest = pieces[i].substr(i == next ? offset : 0);
      if (rest.empty()) continue;
      const std::size_t length = std::min(rest.size(), kMaxBytes - bytes);
      vectors[count++] = {const_cast<char*>(rest.data()), length};
      bytes += length;
    }
    std::size_t written = 0;
    if (count > 0) {
      const ssize_t result =
          retryOnEINTR([&] { return systemCalls().writev(file, vectors.data(), static_cast<int>(count)); });
      if (result == 0) errno = EIO;
      if (result <= 0) return false;
      written = static_cast<std::size_t>(result);
    }
    while (next < pieces.size() && written >= pieces[next].size() - offset) {
      written -= pieces[next].size() - offset;
      offset = 0;
      ++next;
    }
    offset += written;
  }
  return true;
}

// Creates a file with an unpredictable name in the directory. Returns its descriptor, or -1 with errno set.
int createTemporaryFile(int directory, std::string& name) {
  constexpr int kAttempts = 16;
  for (int attempt = 1;; ++attempt) {
    std::array<std::uint8_t, kTemporaryRandomBytes> random;
    fillWithRandomBytes(random);
    name = kTemporaryPrefix;
    appendHex(name, random);
    const int file = retryOnEINTR([&] {
      return systemCalls().openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    });
    if (file >= 0 || errno != EEXIST || attempt == kAttempts) return file;
  }
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat status;
  return isUsablePath(path) && statusOf(path, status, 0) == 0;
}

namespace {

// The member's name depends on the system.
template <typename Status>
timespec modifiedOf(const Status& status) {
  if constexpr (requires { status.st_mtim; }) {
    return status.st_mtim;
  } else {
    return status.st_mtimespec;
  }
}

}  // namespace

Result<std::optional<FileIdentity>> fileIdentity(const std::string& path) {
  if (!isUsablePath(path)) return errorOf("look at", path, EINVAL, "fstatat");
  struct stat status;
  if (statusOf(path, status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return std::optional<FileIdentity>();
    return errorOf("look at", path, errno, "fstatat");
  }
  const timespec modified = modifiedOf(status);
  return std::optional(FileIdentity{
      static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
      static_cast<std::int64_t>(status.st_size),
      static_cast<std::int64_t>(modified.tv_sec) * 1'000'000'000 + static_cast<std::int64_t>(modified.tv_nsec)});
}

Result<std::string> readFile(const std::string& path, std::size_t maxBytes) {
  const auto failure = [&](int code, const char* call) { return errorOf("read", path, code, call); };
  if (!isUsablePath(path)) return failure(EINVAL, "open");
  // Without O_NONBLOCK, opening a pipe would wait for a writer.
  File file(retryOnEINTR(
      [&] { return systemCalls().open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0); }));
  if (!file) return failure(errno, "open");
  struct stat status;
  if (systemCalls().fstat(file.descriptor(), &status) != 0) return failure(errno, "fstat");
  if (S_ISDIR(status.st_mode)) return failure(EISDIR, "open");
  if (!S_ISREG(status.st_mode)) return Error{"cannot read " + path + ": not a regular file", EINVAL};
  if (static_cast<std::uint64_t>(status.st_size) > maxBytes) return failure(EFBIG, "fstat");

  // One byte more than the file's size: the last read sees its end without growing the buffer.
  std::string content(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const ssize_t count = retryOnEINTR(
        [&] { return systemCalls().read(file.descriptor(), content.data() + size, content.size() - size); });
    if (count < 0) return failure(errno, "read");
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
    if (size > maxBytes) return failure(EFBIG, "read");  // it grew
    if (size == content.size()) content.resize(size + std::max<std::size_t>(size / 2, 4096));
  }
  content.resize(size);
  return content;
}

DirectoryLock::DirectoryLock(const std::string& path, Kind kind) {
  const std::string directory = parentOf(path);
  descriptor_ = openDirectory(directory);
  if (descriptor_ < 0 && errno == ENOENT) {
    status_ = makeDirectories(directory);
    if (!status_) return;
    descriptor_ = openDirectory(directory);
  }
  if (descriptor_ < 0) {
    status_ = errorOf("write", path, errno, "open");
    return;
  }
  removeStaleTemporaryFiles(directory, descriptor_);
  retryOnEINTR([&] { return systemCalls().flock(descriptor_, kind == Kind::Exclusive ? LOCK_EX : LOCK_SH); });
}

DirectoryLock::~DirectoryLock() {
  if (descriptor_ < 0) return;
  // Closing is not enough: a child process that was forked meanwhile has the descriptor, too.
  systemCalls().flock(descriptor_, LOCK_UN);
  systemCalls().close(descriptor_);
}

Status replaceFileAtomically(const std::string& path, std::span<const std::string_view> pieces, bool* isReplaced) {
  return replaceFileAtomically(path, pieces, DirectoryLock(path, DirectoryLock::Kind::Shared), isReplaced);
}

Status replaceFileAtomically(const std::string& path, std::span<const std::string_view> pieces,
                             const DirectoryLock& lock, bool* isReplaced, Durability durability) {
  if (isReplaced) *isReplaced = false;
  const auto failure = [&](int code, const char* call) { return errorOf("write", path, code, call); };
  const std::string name = path.substr(path.rfind('/') + 1);
  if (!isUsablePath(path) || name.empty()) return failure(EINVAL, "open");
  if (!lock.status_) return lock.status_;
  const SystemCalls& calls = systemCalls();
  const int directory = lock.descriptor_;

  std::string temporary;
  File file(createTemporaryFile(directory, temporary));
  if (!file) return failure(errno, "openat");
  const auto cleanUp = [&](const char* call) {
    const int code = errno;
    retryOnEINTR([&] { return calls.unlinkat(directory, temporary.c_str(), 0); });
    return failure(code, call);
  };
  if (!writeAll(file.descriptor(), pieces)) return cleanUp("write");
  if (retryOnEINTR([&] { return calls.fsync(file.descriptor()); }) != 0) return cleanUp("fsync");
  if (!file.close()) return cleanUp("close");
  if (retryOnEINTR([&] { return calls.renameat(directory, temporary.c_str(), directory, name.c_str()); }) != 0) {
    return cleanUp("rename");
  }
  if (isReplaced) *isReplaced = true;
  if (durability == Durability::Lasting && !syncDirectory(directory)) return failure(errno, "fsync of the directory");
  return Done{};
}

Status replaceFileAtomically(const std::string& path, std::string_view content, Durability durability) {
  return replaceFileAtomically(path, std::span(&content, 1), DirectoryLock(path, DirectoryLock::Kind::Shared), nullptr,
                               durability);
}

Status removeFile(const std::string& path, Durability durability) {
  const auto failure = [&](int code, const char* call) { return errorOf("remove", path, code, call); };
  if (!isUsablePath(path)) return failure(EINVAL, "unlink");
  // A missing file may have been removed without a sync.
  if (retryOnEINTR([&] { return systemCalls().unlinkat(AT_FDCWD, path.c_str(), 0); }) != 0 && errno != ENOENT) {
    return failure(errno, "unlink");
  }
  return durability == Durability::Lasting ? syncDirectoryOf(path) : Status(Done{});
}

Status syncDirectoryOf(const std::string& path) {
  const File directory(openDirectory(parentOf(path)));
  // A directory that is writable but not readable cannot be synced.
  if (!directory || syncDirectory(directory.descriptor())) return Done{};
  return errorOf("sync the directory of", path, errno, "fsync of the directory");
}

Status renameFile(const std::string& path, const std::string& newName) {
  const auto failure = [&](int code, const char* call) { return errorOf("rename", path, code, call); };
  const std::string target = joinPath(parentOf(path), newName);
  if (!isUsablePath(path) || !isUsablePath(target)) return failure(EINVAL, "rename");
  if (retryOnEINTR([&] { return systemCalls().renameat(AT_FDCWD, path.c_str(), AT_FDCWD, target.c_str()); }) != 0) {
    return failure(errno, "rename");
  }
  return syncDirectoryOf(path);
}

Status makeDirectory(const std::string& path) {
  const auto failure = [&](int code, const char* call) { return errorOf("make the directory", path, code, call); };
  if (!isUsablePath(path)) return failure(EINVAL, "mkdir");
  if (retryOnEINTR([&] { return systemCalls().mkdir(path.c_str(), 0700); }) != 0) {
    const int code = errno;
    struct stat status;
    if (code != ENOENT && statusOf(path, status, 0) == 0 && S_ISDIR(status.st_mode)) return Done{};
    return failure(code, "mkdir");
  }
  return syncDirectoryOf(path.substr(0, path.find_last_not_of('/') + 1));
}

Status makeDirectories(const std::string& path) {
  Status made = makeDirectory(path);
  if (made || made.error().code != ENOENT) return made;
  const std::size_t end = path.find_last_not_of('/');
  const std::size_t slash = end == std::string::npos ? end : path.rfind('/', end);
  if (slash == std::string::npos || slash == 0) return made;
  Status parent = makeDirectories(path.substr(0, slash));
  return parent ? makeDirectory(path) : parent;
}

std::string joinPath(std::string_view directory, std::string_view name) {
  name.remove_prefix(std::min(name.find_first_not_of('/'), name.size()));
  std::string path(directory);
  if (!path.empty() && path.back() != '/') path += '/';
  return path.append(name);
}

}  // namespace zorvane::platform
