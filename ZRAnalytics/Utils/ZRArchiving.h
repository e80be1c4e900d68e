// What the module's archives share: their directory, reading and writing one, and dates that may be absent.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Formats/KeyedArchive.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

inline Value valueOfDate(std::optional<Date> date) {
  return date ? Value(*date) : Value();
}
inline std::optional<Date> dateOfValue(const Value& value) {
  return value.asDate() ? std::optional(*value.asDate()) : std::nullopt;
}

// The path of an archive in "ZrvData" below the SDK's library directory; the directory is made when nothing exists
// there (its parents are not; errors are ignored).
std::string archivePath(std::string_view name);

// The root object, or null when the file is missing or unreadable.
std::shared_ptr<const platform::ArchivedObject> readArchive(const std::string& path, std::string_view rootClass,
                                                            std::span<const std::string_view> classes);

// Rewrites the whole file. A failure leaves the old file, and the next write holds everything again; one that goes on
// is returned the first time only.
platform::Status writeArchive(const std::string& path, const std::shared_ptr<const platform::ArchivedObject>& root);
// The log line for a failure; with no lock held.
void logArchiveFailure(const platform::Status& written);

}  // namespace zorvane
