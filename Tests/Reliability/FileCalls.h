// The file system as a faulty one: calls that fail, and a power loss.
#pragma once

#include <functional>
#include <string>

namespace zorvane::testing {

enum class FaultKind {
  // The call of that number fails, all others work.
  Once,
  // That call and all after it fail until the faults are lifted.
  FromThereOn,
  // The write of that number, and all after it, take half of what they are given; then they fail.
  ShortWrites,
};

// Puts failing calls in place of the system's, until lifted or destroyed. Calls count from 0.
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

// Leaves the system's calls in place, all but the syncing, which would cost most of a test's time.
void doNotWaitForTheMedium();

// What of a directory's change reaches the medium without being synced.
enum class UnsyncedNames {
  Lost,
  // All of it, ahead of the content of the files.
  Kept,
};

// From now on the content of the directory tree is followed, with all that is in it synced. At the changing call of
// that number, counted from 0, the power goes: the tree becomes what a medium would hold, and the process ends with
// status 0. An unsynced file comes back empty.
void losePowerAt(int number, UnsyncedNames names, const std::string& tree);

}  // namespace zorvane::testing
