// "zorvaneEvents.dat", which a release before the batch file left: one event a line, as JSON in UTF-8.
#pragma once

#include <string>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Any thread.
class ZRDumpFile {
 public:
  explicit ZRDumpFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  bool exists() const;
  // The lines that are JSON objects or arrays, in order; none when the file cannot be read or is not UTF-8. A file
  // above 64 MiB is not read. All lines together may hold 4,000,000 values; the rest is skipped.
  Array events() const;
  // Logs a failure.
  void remove();

 private:
  const std::string path_;
};

}  // namespace zorvane
