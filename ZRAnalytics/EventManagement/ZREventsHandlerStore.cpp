// The batch store: the current batch into the batch file, and the dump file that an older release left.

#include <algorithm>
#include <iterator>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Platform/Text/Utf8.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/EventManagement/BatchRequest.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane {
namespace {

constexpr std::string_view kFile = "ZREventsHandler";
constexpr std::size_t kMaximumDumpFileSize = 64u << 20;
// As deep as the batch file is written.
constexpr int kMaximumDepth = 128;

// Calls take with each piece between the members of the platform's newline set: U+000A to U+000D, U+0085, U+2028,
// U+2029. Empty pieces are left out.
template <typename Take>
void takeLines(std::string_view text, Take take) {
  static constexpr std::string_view kNewlines[] = {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"};
  std::size_t start = 0;
  std::size_t position = 0;
  while (position < text.size()) {
    std::size_t length = 0;
    for (const std::string_view newline : kNewlines) {
      if (text.substr(position).starts_with(newline)) length = newline.size();
    }
    if (length != 0 && position > start) take(text.substr(start, position - start));
    position += length != 0 ? length : 1;
    if (length != 0) start = position;
  }
  if (start < text.size()) take(text.substr(start));
}

// With keys and values inside it. Of values from a file, which are not deep.
std::size_t countOfValues(const Value& value) {
  std::size_t count = 1;
  if (const Array* array = value.asArray()) {
    for (const Value& element : *array) count += countOfValues(element);
  } else if (const Dictionary* dictionary = value.asDictionary()) {
    for (const auto& [key, element] : *dictionary) count += 1 + countOfValues(element);
  }
  return count;
}

bool holdsObject(const Value& value, int depth) {
  if (value.kind() == Value::Kind::Object) return true;
  if (depth == kMaximumDepth) return false;
  const auto holds = [depth](const Value& element) { return holdsObject(element, depth + 1); };
  if (const Array* array = value.asArray()) return std::any_of(array->begin(), array->end(), holds);
  if (const Dictionary* dictionary = value.asDictionary()) {
    return std::any_of(dictionary->begin(), dictionary->end(), [&](const auto& entry) { return holds(entry.value); });
  }
  return false;
}

// The value with each host object replaced by its plain value; one that throws becomes "". Host objects are asked here,
// where no lock is held.
Value withoutObjects(const Value& value, int depth = 0) {
  if (!holdsObject(value, depth)) return value;
  if (depth == kMaximumDepth) return "";
  if (const auto object = value.asObject()) {
    Value plain = "";
    guarded({kFile, "saveCurrentBatch"}, "exception is %@", [&] { plain = object->plainValue(); });
    return withoutObjects(plain, depth + 1);
  }
  Value result = value;
  if (value.isArray()) {
    for (Value& element : result.mutableArray()) element = withoutObjects(element, depth + 1);
  } else {
    Dictionary& dictionary = result.mutableDictionary();
    for (const auto& [key, element] : *value.asDictionary()) {
      dictionary.remove(key);
      dictionary.setObjectNilHandledForKey(withoutObjects(element, depth + 1), key);
    }
  }
  return result;
}

}  // namespace

Array ZREventsHandler::takeCurrentBatch() {
  platform::MutexLock lock(currentBatchMutex_);
  if (!viewsInfoArray_ || viewsInfoArray_->empty()) return {};
  Array events = std::move(*viewsInfoArray_);
  viewsInfoArray_.reset();
  fullAfterFailure_.reset();
  return events;
}

void ZREventsHandler::returnToCurrentBatch(Array events) {
  platform::MutexLock lock(currentBatchMutex_);
  // Each attempt costs as much as the batch is large, so they get rarer as it grows.
  const auto threshold = static_cast<std::size_t>(std::max<std::int64_t>(eventsBatchCountTreshold_, 0));
  fullAfterFailure_ = events.size() + std::max(threshold, events.size() / 4);
  if (viewsInfoArray_) {
    events.insert(events.end(), std::make_move_iterator(viewsInfoArray_->begin()),
                  std::make_move_iterator(viewsInfoArray_->end()));
  }
  viewsInfoArray_ = std::move(events);
}

void ZREventsHandler::logBatchFileError() {
  const std::string error = batchFile_.lastError();
  {
    platform::MutexLock lock(currentBatchMutex_);
    if (saidError_ == error) return;
    saidError_ = error;
  }
  logLine("Batch Events plist : %@", {error});
}

void ZREventsHandler::saveCurrentBatch() {
  Array events = takeCurrentBatch();
  if (events.empty()) return;
  ZRBatchFile::Outcome outcome = ZRBatchFile::Outcome::Failed;
  try {
    const std::string batchID = ZRAnalyticsUtils::createBatchIdentifier();
    Dictionary batch{{kBatchKeyEvents, withoutObjects(events)},
                     {kBatchKeyBatchID, batchID},
                     {kBatchKeyRequestTime, requestTimeNow()}};
    const ZRSessionManager& sessions = ZRSessionManager::sharedSessionManager();
    if (auto session = sessions.getCurrentSessionInfoDict()) batch.set(kBatchKeySession, *std::move(session));
    batch.set(kBatchKeySource, withoutObjects(sessions.getCurrentSessionSourceInfoArray()));
    outcome = batchFile_.store(batchID, batch);
  } catch (...) {
    returnToCurrentBatch(std::move(events));
    throw;
  }
  if (outcome == ZRBatchFile::Outcome::Failed) returnToCurrentBatch(std::move(events));
  if (outcome != ZRBatchFile::Outcome::Done) {
    logBatchFileError();
    return;
  }
  // The next failure is news again.
  platform::MutexLock lock(currentBatchMutex_);
  saidError_.clear();
}

std::optional<ZRBatchTable> ZREventsHandler::getBatches() {
  auto batches = batchFile_.load();
  if (!batches) logBatchFileError();
  return batches;
}

void ZREventsHandler::writeEventsToFileWithBatchID(const Value& events, const Value& batchID) {
  guarded({kFile, "writeEventsToFileWithBatchID", 708}, "Exception : %@", [&] {
    const ZRBatchFile::Outcome outcome = batchFile_.store(batchID.description(), events);
    if (outcome == ZRBatchFile::Outcome::Failed && events.isArray()) returnToCurrentBatch(*events.asArray());
    if (outcome != ZRBatchFile::Outcome::Done) logBatchFileError();
  });
}

void ZREventsHandler::removeEventsPlistFile() {
  if (!batchFile_.exists()) return;
  const auto removed = batchFile_.remove();
  if (removed) {
    logLine("Batch Events plist deleted");
  } else {
    logLine("Error while deleting ZorvaneBatchEvents.plist : %@", {removed.error().message});
  }
}

std::string ZREventsHandler::oldDatFilePath() const {
  return platform::joinPath(ZRCoreUtils::getDocumentsDirectoryPath(), "zorvaneEvents.dat");
}

bool ZREventsHandler::checkIfFileExists() const {
  return platform::fileExists(oldDatFilePath());
}

Array ZREventsHandler::getEventsFromDumpFile() const {
  Array events;
  const auto text = platform::readFile(oldDatFilePath(), kMaximumDumpFileSize);
  if (!text || !platform::isValidUtf8(text.value())) return events;
  platform::JSONLimits limits;  // of all lines together: a hostile file is short lines, a value each
  takeLines(text.value(), [&](std::string_view line) {
    auto parsed = platform::parseJSON(line, limits);
    // The platform's parser takes nothing but a container at the top.
    if (parsed && (parsed.value().isDictionary() || parsed.value().isArray())) {
      limits.values -= std::min(limits.values, countOfValues(parsed.value()));
      events.push_back(std::move(parsed).value());
    }
  });
  return events;
}

void ZREventsHandler::removeDatFile() {
  if (checkIfFileExists() && !platform::removeFile(oldDatFilePath())) logLine("error while removing dat file");
}

void ZREventsHandler::syncToServerFromDumpFile() {
  const ZRConfigDataManager& store = ZRConfigDataManager::sharedInstance();
  if (!store.isAccountActive() || !checkIfFileExists()) return;
  if (!store.getZrvAppID()) {
    logLine("Reports API not called. AppID not present");
    return;
  }
  Array events = getEventsFromDumpFile();
  if (events.empty()) return;
  const std::string batchID = ZRAnalyticsUtils::createBatchIdentifier();
  const Dictionary batch{
      {kBatchKeyEvents, events}, {kBatchKeyBatchID, batchID}, {kBatchKeyRequestTime, requestTimeNow()}};
  removeDatFile();
  logLine("Report Add request initiated:");
  BatchRequest request = requestForBatch(batch, std::nullopt);
  const auto appID = store.getZrvAppID();
  if (!appID) {
    logSyncFailure();
    return;
  }
  std::move(request).execute(*appID, [this, events = Value(std::move(events)), batchID](bool success) {
    if (success) {
      logLine("sync success from data file");
      return;
    }
    logLine("could not complete sync from dump file, will try again later");
    writeEventsToFileWithBatchID(events, batchID);
  });
}

void ZREventsHandler::clearEventsdata() {
  removeDatFile();
  removeEventsPlistFile();
  Array dropped;  // destroyed with no lock held: the host's objects may stand in it
  platform::MutexLock lock(currentBatchMutex_);
  if (viewsInfoArray_) viewsInfoArray_->swap(dropped);
  fullAfterFailure_.reset();
}

void ZREventsHandler::cleanUp() {
  platform::hostServices().notificationCenter->post(kNotificationNameUserReset);
  ZRUserAttributesHandler& attributes = ZRUserAttributesHandler::sharedHandler();
  attributes.clearUserAttributesData();
  attributes.clearUserDefaultsOnLogout();
}

}  // namespace zorvane
