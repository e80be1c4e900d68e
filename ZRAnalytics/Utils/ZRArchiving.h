// What the module's archives share: their directory, reading and writing one, and dates that may be absent.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Formats/KeyedArchive.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

inline std::optional<Date> dateOfValue(const Value& value) {
  return value.asDate() ? std::optional(*value.asDate()) : std::nullopt;
}

// The path of an archive in "ZrvData" below the SDK's library directory; the directory is made when nothing exists
// there (its parents are not; errors are ignored).
std::string archivePath(std::string_view name);

// The root object, or null when the file is missing or, with a log line, unreadable.
std::shared_ptr<const platform::ArchivedObject> readArchive(const std::string& path, std::string_view rootClass,
                                                            std::span<const std::string_view> classes);

// Rewrites an archive file, one writer object a file. Any thread.
class ZRArchiveWriter {
 public:
  // The whole file anew, with what the function returns; of several calls at a time the one that began last stands. The
  // function is called once, here and with no lock held. A failure leaves the old file, and the next write holds
  // everything again; it is logged, one that goes on the first time only.
  void write(const std::string& path, const std::function<std::shared_ptr<const platform::ArchivedObject>()>& root);

 private:
  std::atomic<std::uint64_t> begun_{0};
  platform::Mutex mutex_;  // held while the file is written
  std::uint64_t written_ ZR_GUARDED_BY(mutex_) = 0;
  std::string lastError_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
