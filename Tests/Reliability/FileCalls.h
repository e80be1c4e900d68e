// Replacements of the system's file calls: calls that fail, and a power loss.
#pragma once

#include <functional>
#include <string>

namespace zorvane::testing {

enum class FaultKind {
  // Only the call of that number fails.
  Once,
  // That call and all after it fail until the faults are lifted.
  FromThereOn,
  // The write of that number takes half of its bytes; all later writes fail.
  ShortWrites,
};

// Installs failing calls until lifted or destroyed. Calls are numbered from 0.
class FileFaults {
 public:
  FileFaults(int number, FaultKind kind, int error);
  ~FileFaults() { lift(); }
  FileFaults(const FileFaults&) = delete;
  FileFaults& operator=(const FileFaults&) = delete;

  void lift();
  // Whether a call has failed.
  static bool reached();
};

// Installs the system's calls, but without fsync, which would take most of a test's time.
void skipFsync();

// What becomes of names that changed since the last fsync of their directory.
enum class UnsyncedNames {
  Lost,
  // They are on the disk, but the content of the files is not.
  Kept,
};

// Follows what of the directory tree is on the disk; all of it is at the time of this call. At the modifying call of
// that number (from 0) the power fails: the tree becomes what is on the disk, and the process ends with status 0. A
// file that was not synced is empty then.
void losePowerAt(int number, UnsyncedNames names, const std::string& tree);

}  // namespace zorvane::testing
