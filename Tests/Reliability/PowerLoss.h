// A power loss in the middle of the system's file calls.
#pragma once

#include <string>

namespace zorvane::testing {

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
