// "zorvaneEvents.dat", which a release before the batch file left: one event a line, as JSON in UTF-8.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Any thread.
class ZRDumpFile {
 public:
  explicit ZRDumpFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  bool exists() const;
  // The lines that are JSON objects, in order. None when the file cannot be read, is larger than 64 MiB or is not
  // UTF-8; unless there is no file, that is logged.
  Array events() const;
  // The same events as batches with "events" only, an array that is kept as JSON and parsed when it is asked for
  // (platform::lazyJSON). Its JSON is at most 4 MiB long, or holds one event. The batch file can hold each part.
  struct Part {
    Dictionary batch;
    std::size_t count;
  };
  std::vector<Part> parts() const;
  // Logs a failure.
  void remove();

 private:
  void read(const std::function<void(Value event)>& take) const;

  const std::string path_;
};

}  // namespace zorvane
