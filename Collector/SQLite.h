// What is specific to SQLite: opening the file, pragmas, creating the tables.
#pragma once

#include <string>

#include "Collector/Database.h"

namespace zorvane::collector {

// Opens the session on a file, or in memory if the path is empty, and creates the tables of Collector/Schema.h. A new
// file has mode 0600. Refuses symbolic links, files with another kSchemaVersion and databases of other programs. In a
// file, committed data survives a power loss; another program's lock is waited for up to 5 seconds. Throws
// DatabaseError.
void openSQLite(soci::session& session, const std::string& path);

// Throws DatabaseError if the file is damaged. Files above 64 MiB are not checked.
void checkSQLite(soci::session& session);

// Commits a page that is as before. Throws DatabaseError.
void checkWritableSQLite(soci::session& session);

}  // namespace zorvane::collector
