#include "ZRAnalytics/Utils/ZRArchiving.h"

#include <map>
#include <utility>

#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/FileSystem.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

// Far above any session or attribute cache; what is larger is no file of ours.
constexpr std::size_t kMaximumArchiveSize = 64u << 20;

// Whether the last attempt to write the file had another outcome.
bool isNews(const std::string& path, std::string error) {
  struct Outcomes {
    platform::Mutex mutex;
    std::map<std::string, std::string> errors ZR_GUARDED_BY(mutex);
  };
  static Outcomes& outcomes = *new Outcomes;
  platform::MutexLock lock(outcomes.mutex);
  std::string& last = outcomes.errors[path];
  if (last == error) return false;
  last = std::move(error);
  return true;
}

}  // namespace

std::string archivePath(std::string_view name) {
  const std::string directory = platform::joinPath(ZRCoreUtils::getSDKLibraryDirectoryPath(), kArchiveDirectoryName);
  if (!platform::fileExists(directory)) (void)platform::makeDirectory(directory);
  return platform::joinPath(directory, name);
}

std::shared_ptr<const platform::ArchivedObject> readArchive(const std::string& path, std::string_view rootClass,
                                                            std::span<const std::string_view> classes) {
  const auto bytes = platform::readFile(path, kMaximumArchiveSize);
  if (!bytes) return nullptr;
  auto root = platform::unarchiveRootObject(bytes.value(), rootClass, classes);
  return root ? std::move(root).value() : nullptr;
}

platform::Status writeArchive(const std::string& path, const std::shared_ptr<const platform::ArchivedObject>& root) {
  auto written = platform::replaceFileAtomically(path, platform::archiveRootObject(root));
  if (!isNews(path, written ? std::string() : written.error().message)) return platform::Done{};
  return written;
}

void logArchiveFailure(const platform::Status& written) {
  if (!written) logLine("Archive : %@", {written.error().message});
}

}  // namespace zorvane
