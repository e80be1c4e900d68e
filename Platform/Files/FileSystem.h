// Reads, replaces and removes files. Every failure is a returned error that names the system call and the path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Values/Result.h"

namespace zorvane::platform {

// Files of any kind, directories too.
bool fileExists(const std::string& path);

// Identifies a version of a file: it differs once the file was replaced or written to.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = -1;
  std::int64_t modifiedNanoseconds = 0;
  bool operator==(const FileIdentity&) const = default;
};

// nullopt when there is no file. Does not follow a link.
Result<std::optional<FileIdentity>> fileIdentity(const std::string& path);

// The whole file. Fails for more than maxBytes and for anything but a regular file. Does not follow a link.
Result<std::string> readFile(const std::string& path, std::size_t maxBytes);

// What a power loss may do to a change after the call that made it has succeeded.
enum class Durability {
  // Nothing.
  Lasting,
  // Undo it, until a lasting change in the same directory, or the system by itself, has written the directory. Saves an
  // fsync.
  Eventual
};

// Keeps other processes, and other threads, from replacing files in a directory. Hold an exclusive one while you read a
// file, change its content and replace it. The lock of a process that ends is released.
class DirectoryLock {
 public:
  enum class Kind {
    Shared,  // only exclusive locks are kept out
    Exclusive
  };
  // Locks the path's directory; makes it if it is missing. Waits for locks of other processes and threads. Where the
  // file system has no locks there is no mutual exclusion.
  explicit DirectoryLock(const std::string& path, Kind kind = Kind::Exclusive);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

 private:
  friend Status replaceFileAtomically(const std::string& path, std::span<const std::string_view> pieces,
                                      const DirectoryLock& lock, bool* isReplaced, Durability durability);
  int descriptor_ = -1;
  Status status_ = Done{};  // why the directory cannot be opened
};

// Replaces the file's content by the joined pieces: temporary file in the same directory (mode 0600), write, fsync,
// rename, fsync of the directory if the change is to last. After a crash or a power loss the file is the old one or the
// new one; once the call has succeeded, the new one, as far as the durability says. On failure the temporary file is
// removed and the old file stays. The exception: if only the fsync of the directory failed, the file is the new one,
// and a power loss may bring the old one back. isReplaced tells the two failures apart. A link at the path is replaced,
// not followed. Missing directories are made, mode 0700. A write beyond RLIMIT_FSIZE fails with EFBIG and raises no
// signal.
//
// The first replacement in a directory removes temporary files (".zrv-" and 20 hexadecimal digits) that ended processes
// left there.
Status replaceFileAtomically(const std::string& path, std::span<const std::string_view> pieces,
                             bool* isReplaced = nullptr);
Status replaceFileAtomically(const std::string& path, std::string_view content,
                             Durability durability = Durability::Lasting);
// The same for a caller that holds a lock on the directory. The others wait for such a lock.
Status replaceFileAtomically(const std::string& path, std::span<const std::string_view> pieces,
                             const DirectoryLock& lock, bool* isReplaced = nullptr,
                             Durability durability = Durability::Lasting);

// A missing file is no error. If only the fsync of the directory failed, the file is gone, but a power loss may bring
// it back.
Status removeFile(const std::string& path, Durability durability = Durability::Lasting);

// Makes all changes of names in the path's directory last.
Status syncDirectoryOf(const std::string& path);

// Gives a file of any kind another name in its directory. Replaces a file of that name.
Status renameFile(const std::string& path, const std::string& newName);

// Makes one directory, mode 0700; its parent must exist. An existing directory is no error. After success it survives a
// power loss.
Status makeDirectory(const std::string& path);
// The same, with missing parents.
Status makeDirectories(const std::string& path);

// With exactly one slash between the two.
std::string joinPath(std::string_view directory, std::string_view name);

}  // namespace zorvane::platform
