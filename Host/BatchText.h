// The batch file as JSON text.
#pragma once

#include <cstddef>
#include <string>

#include "Host/LineFile.h"

namespace zorvane::host {

// Puts the file as one object, {batch identifier: batch}, event by event; null if there is no file or it is no property
// list with a dictionary at its root. A small file can stand for a huge value, because its objects can be shared: null
// takes the place of an event beyond a million values or 16 MiB of text, and of what follows when the text has grown to
// 16 times the file and 64 MiB. Returns the number of these nulls.
std::size_t writeBatches(const std::string& path, const LineFile::Put& put);

}  // namespace zorvane::host
