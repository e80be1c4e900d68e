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
// that number (from 0) the power fails: the tree becomes what is on the disk, and the process ends with status 0, or 1
// if the test has failed. A file that was not synced is empty then.
void losePowerAt(int number, UnsyncedNames names, const std::string& tree);
// The same for a tree with a journal of 64 KiB. Its stores count as calls, too. The seed decides which of its sectors
// the system writes without a sync, and when, and whether unsynced names are lost. The process ends with status 9 or 1.
void loseJournalPowerAt(int number, unsigned seed, const std::string& tree, const std::string& journal);

}  // namespace zorvane::testing
