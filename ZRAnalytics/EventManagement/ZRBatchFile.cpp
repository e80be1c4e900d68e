#include "ZRAnalytics/EventManagement/ZRBatchFile.h"

#include <algorithm>
#include <utility>

namespace zorvane {
namespace {

using platform::PropertyListDictionaryImage;

// More than a phone's backlog of years; what is larger is no file of ours.
constexpr std::size_t kMaximumFileSize = 512u << 20;

// What stands under an identifier stays what it is, so equal identifiers mean equal content.
bool sameKeys(const std::vector<ZRStoredBatch>& left, const std::vector<ZRStoredBatch>& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](const ZRStoredBatch& one, const ZRStoredBatch& other) { return one.key == other.key; });
}

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
  const auto found = platform::fileIdentity(path_);
  if (!found || !found.value()) {
    image_.reset();
    // Only a file that is not there counts as empty; one that cannot be looked at must not be written over.
    if (!found) return fail(Outcome::Failed, found.error().message);
    image = PropertyListDictionaryImage();
    return Outcome::Done;
  }
  const platform::FileIdentity identity = *found.value();
  if (!image_ || !(identity_ == identity)) {
    image_.reset();
    auto bytes = platform::readFile(path_, kMaximumFileSize);
    if (!bytes) return fail(Outcome::Failed, bytes.error().message);
    auto opened = PropertyListDictionaryImage::open(std::move(bytes).value());
    if (!opened) return fail(Outcome::Unreadable, path_ + ": " + opened.error().message);
    image_ = std::move(opened).value();
    identity_ = identity;
  }
  image = *image_;
  return Outcome::Done;
}

ZRBatchFile::Outcome ZRBatchFile::write(PropertyListDictionaryImage image) {
  // A new file whose directory could not be synced stands: what it holds is stored, and must not be stored twice.
  bool stands = false;
  const auto written = platform::replaceFileAtomically(path_, image.pieces(), &stands);
  if (!stands) return fail(Outcome::Failed, written.error().message);
  const auto identity = platform::fileIdentity(path_);
  image_.reset();
  if (!identity || !identity.value()) return Outcome::Done;
  image_ = std::move(image);
  identity_ = *identity.value();
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
  return write(image.withEntry(batchID, batch));
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
  if (outcome == Outcome::Done && !kept.empty() && sameKeys(kept, image.entries())) return Outcome::Done;
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
