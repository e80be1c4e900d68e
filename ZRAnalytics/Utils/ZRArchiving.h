// Shared by the module's archives: their directory, reading, writing, and optional dates.
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

// Absent if the value is no date.
inline std::optional<Date> dateOfValue(const Value& value) {
  return value.asDate() ? std::optional(*value.asDate()) : std::nullopt;
}

// The path of an archive in "ZrvData" below the SDK's library directory. The writer makes that directory.
std::string archivePath(std::string_view name);

// The archive's root object. Null if the file is missing or, with a log line, unreadable or malformed.
std::shared_ptr<const platform::ArchivedObject> readArchive(const std::string& path, std::string_view rootClass,
                                                            std::span<const std::string_view> classes);

// Rewrites an archive file. Use one writer per file. Thread-safe.
class ZRArchiveWriter {
 public:
  // Replaces the file by an archive of the function's result. If calls overlap, the one that began last wins. The
  // function is called once, on this thread, with no lock held. A failure leaves the old file and is logged; the same
  // error again is not. True if the file holds this content or a newer one.
  bool write(const std::string& path, const std::function<std::shared_ptr<const platform::ArchivedObject>()>& root);

 private:
  std::atomic<std::uint64_t> lastSequence_{0};
  platform::Mutex mutex_;  // held while the file is written
  std::uint64_t writtenSequence_ ZR_GUARDED_BY(mutex_) = 0;
  std::string lastReportedProblem_ ZR_GUARDED_BY(mutex_);
};

}  // namespace zorvane
