// The file of a journal, before it is mapped.
#pragma once

#include <cstddef>
#include <string>

#include "Platform/Values/Result.h"

namespace zorvane::journal {

// Opens or makes the file, for reading and writing, and locks it until it is closed. A link, a file of another owner
// and one that others can reach are removed first. Returns the descriptor.
platform::Result<int> openFile(const std::string& path);
// Whether blocks are missing. A store to a hole needs a block, and on a full disk ends the process.
bool hasHoles(int file, std::size_t bytes);
// Writes from the current offset on, and syncs. False after an error, with errno.
bool writeZeros(int file, std::size_t bytes);
// The first bytes of the file, from the current offset on. False after an error, with errno.
bool readAll(int file, std::size_t size, std::string& bytes);

// The call and the reason in errno.
platform::Error errorOf(const char* call);

}  // namespace zorvane::journal
