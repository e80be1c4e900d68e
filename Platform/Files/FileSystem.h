// Files of the application's container. Every failure is a returned error that names the call and the path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Values/Result.h"

namespace zorvane::platform {

// Of any kind, directories too.
bool fileExists(const std::string& path);

// Which file stands at a path, and since which change; a file that was replaced or written to has another one.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = -1;
  std::int64_t modifiedNanoseconds = 0;
  bool operator==(const FileIdentity&) const = default;
};

// Absent when there is no file; a link is not followed.
Result<std::optional<FileIdentity>> fileIdentity(const std::string& path);

// The whole file. Refuses a file of more than maxBytes, and anything but a regular file; a link is not followed.
Result<std::string> readFile(const std::string& path, std::size_t maxBytes);

// Replaces the file's content with the pieces, one after the other, as a whole: temporary file in the same directory
// (mode 0600, no link followed), write, fsync, rename, fsync of the directory. After a crash of the process the file is
// the old one or the new one; after a power loss too, and once the call has returned it is the new one. On failure the
// temporary file is removed and the old file stands; only when the directory could not be synced, the new file stands
// already, and a power loss may bring the old one back. A link at the path is replaced, not followed.
//
// Temporary files (".zrv-" and 20 hexadecimal digits) that an ended process left behind are removed with the first
// replacement in their directory.
// Missing directories on the way are made, mode 0700. stands tells whether the new file stands.
Status replaceFileAtomically(const std::string& path, std::span<const std::string_view> pieces, bool* stands = nullptr);
Status replaceFileAtomically(const std::string& path, std::string_view content);

// Once the call has returned the file stays away, after a power loss too. A file that is not there is no error. When
// the directory could not be synced, the file is gone, but a power loss may bring it back.
Status removeFile(const std::string& path);

// Gives the file, of any kind, another name in the same directory, in place of a file that has it.
Status renameFile(const std::string& path, const std::string& newName);

// One directory, mode 0700; its parent must exist. A directory that is there already is no error. Survives a power loss
// once the call has returned.
Status makeDirectory(const std::string& path);
// With the parents that are missing.
Status makeDirectories(const std::string& path);

// With exactly one slash between the two.
std::string joinPath(std::string_view directory, std::string_view name);

}  // namespace zorvane::platform
