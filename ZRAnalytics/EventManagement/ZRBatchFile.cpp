#include "ZRAnalytics/EventManagement/ZRBatchFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Platform/Files/FileSystem.h"

namespace zorvane {
namespace {

using platform::PropertyListDictionaryImage;

// More than a phone's backlog of years; what is larger is no file of ours.
constexpr std::size_t kMaximumFileSize = 512u << 20;

}  // namespace

ZRBatchTable::ZRBatchTable(std::vector<ZRStoredBatch> batches) : batches_(std::move(batches)) {
  positions_.reserve(batches_.size());
  for (std::size_t i = 0; i < batches_.size(); ++i) positions_.emplace(batches_[i].key, i);
}

void ZRBatchTable::remove(const std::string& batchID) {
  positions_.erase(batchID);
}

std::vector<ZRStoredBatch> ZRBatchTable::batches() const {
  std::vector<ZRStoredBatch> left;
  left.reserve(positions_.size());
  for (const ZRStoredBatch& batch : batches_) {
    if (positions_.contains(batch.key)) left.push_back(batch);
  }
  return left;
}

ZRBatchFile::ZRBatchFile(std::string path) : path_(std::move(path)) {}

std::optional<ZRBatchFile::Identity> ZRBatchFile::identityOf(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return std::nullopt;
  return Identity{static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
                  static_cast<std::int64_t>(status.st_size),
                  static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

bool ZRBatchFile::exists() const {
  return platform::fileExists(path_);
}

std::string ZRBatchFile::lastError() const {
  platform::MutexLock lock(mutex_);
  return lastError_;
}

ZRBatchFile::Outcome ZRBatchFile::fail(Outcome outcome, std::string message) {
  lastError_ = std::move(message);
  return outcome;
}

ZRBatchFile::Outcome ZRBatchFile::read(PropertyListDictionaryImage& image) {
  const auto identity = identityOf(path_);
  if (!identity) {
    const int error = errno;
    image_.reset();
    // Only a file that is not there counts as empty; one that cannot be looked at must not be written over.
    if (error != ENOENT) {
      return fail(Outcome::Failed, "cannot look at " + path_ + ": " + std::generic_category().message(error));
    }
    image = PropertyListDictionaryImage();
    return Outcome::Done;
  }
  if (!image_ || !(identity_ == *identity)) {
    image_.reset();
    auto bytes = platform::readFile(path_, kMaximumFileSize);
    if (!bytes) return fail(Outcome::Failed, bytes.error().message);
    auto opened = PropertyListDictionaryImage::open(std::move(bytes).value());
    if (!opened) return fail(Outcome::Unreadable, path_ + ": " + opened.error().message);
    image_ = std::move(opened).value();
    identity_ = *identity;
  }
  image = *image_;
  return Outcome::Done;
}

ZRBatchFile::Outcome ZRBatchFile::write(PropertyListDictionaryImage image) {
  const auto written = platform::replaceFileAtomically(path_, image.pieces());
  if (!written) return fail(Outcome::Failed, written.error().message);
  image_ = std::move(image);
  identity_ = identityOf(path_).value_or(Identity());
  return Outcome::Done;
}

std::optional<ZRBatchTable> ZRBatchFile::load(Outcome& outcome) {
  PropertyListDictionaryImage image;
  {
    platform::MutexLock lock(mutex_);
    outcome = read(image);
  }
  if (outcome != Outcome::Done) return std::nullopt;
  return ZRBatchTable(image.entries());
}

ZRBatchFile::Outcome ZRBatchFile::store(std::string_view batchID, const Value& batch) {
  platform::MutexLock lock(mutex_);
  PropertyListDictionaryImage image;
  if (const Outcome outcome = read(image); outcome != Outcome::Done) return outcome;
  const Outcome outcome = write(image.withEntry(batchID, batch));
  if (outcome != Outcome::Failed || read(image) != Outcome::Done) return outcome;
  // The new file may stand although its directory could not be synced: then the batch is stored, and must not be twice.
  const auto& entries = image.entries();
  const bool stored = std::any_of(entries.rbegin(), entries.rend(),
                                  [batchID](const ZRStoredBatch& entry) { return entry.key == batchID; });
  return stored ? Outcome::Done : outcome;
}

ZRBatchFile::Outcome ZRBatchFile::replaceKnown(const std::vector<ZRStoredBatch>& batches,
                                               const std::unordered_set<std::string>& known) {
  platform::MutexLock lock(mutex_);
  PropertyListDictionaryImage image;
  const Outcome outcome = read(image);
  if (outcome == Outcome::Failed) return outcome;
  std::vector<ZRStoredBatch> kept = batches;
  if (outcome == Outcome::Done) {
    for (const ZRStoredBatch& batch : image.entries()) {
      if (!known.contains(batch.key)) kept.push_back(batch);
    }
  }
  if (!kept.empty()) return write(PropertyListDictionaryImage::ofEntries(kept));
  if (!exists()) return Outcome::Done;
  const auto status = platform::removeFile(path_);
  if (!status) return fail(Outcome::RemoveFailed, status.error().message);
  image_.reset();
  return Outcome::Removed;
}

platform::Status ZRBatchFile::remove() {
  platform::MutexLock lock(mutex_);
  image_.reset();
  return platform::removeFile(path_);
}

}  // namespace zorvane
