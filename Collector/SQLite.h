// What is specific to SQLite.
#pragma once

#include "Collector/Database.h"

namespace zorvane::collector {

// The database is a file, or in memory if its name is empty. A new file has mode 0600. Symbolic links, files with
// another kSchemaVersion and databases of other programs are refused. In a file, committed data survives a power loss;
// another program's lock is waited for up to 5 seconds. Files above 64 MiB are not checked for damage.
const Engine& sqlite();

}  // namespace zorvane::collector
