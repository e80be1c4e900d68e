#include "ZRAnalytics/Utils/ZRArchiving.h"

#include <cerrno>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

// Far above any session or attribute cache.
constexpr std::size_t kMaximumArchiveSize = 64u << 20;

}  // namespace

std::string archivePath(std::string_view name) {
  return platform::joinPath(platform::joinPath(ZRCoreUtils::getSDKLibraryDirectoryPath(), kArchiveDirectoryName), name);
}

std::shared_ptr<const platform::ArchivedObject> readArchive(const std::string& path, std::string_view rootClass,
                                                            std::span<const std::string_view> classes) {
  const auto bytes = platform::readFile(path, kMaximumArchiveSize);
  if (!bytes) {
    if (bytes.error().code != ENOENT) logLine("Archive : %@", {bytes.error().message});
    return nullptr;
  }
  auto root = platform::unarchiveRootObject(bytes.value(), rootClass, classes);
  if (root) return std::move(root).value();
  logLine("Archive : %@", {path + ": " + root.error().message});
  return nullptr;
}

bool ZRArchiveWriter::write(const std::string& path,
                            const std::function<std::shared_ptr<const platform::ArchivedObject>()>& root) {
  // A call with a higher number encodes newer content.
  const std::uint64_t sequence = ++lastSequence_;
  const std::string bytes = platform::archiveRootObject(root());
  std::string problem;
  {
    platform::MutexLock lock(mutex_);
    if (sequence < writtenSequence_) return lastReportedProblem_.empty();
    writtenSequence_ = sequence;
    const auto written = platform::replaceFileAtomically(path, bytes);
    if (!written) problem = written.error().message;
    if (lastReportedProblem_ == problem) return problem.empty();
    lastReportedProblem_ = problem;
  }
  if (!problem.empty()) logLine("Archive : %@", {problem});
  return problem.empty();
}

}  // namespace zorvane
