// The events handler on the module's fixture, with a session going on in the foreground.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Support/ModuleTest.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane::testing {

class EventPipelineTest : public ModuleTest {
 protected:
  using Answers = std::vector<std::pair<bool, bool>>;

  static ZREventsHandler& events() { return ZREventsHandler::sharedInstance(); }

  // No timer unless the configuration asks for one.
  void startWithSession(const Dictionary& configuration = {}, const std::string& appId = "APP") {
    start({{"periodic_flush_enabled", false}}, appId);
    updateRemoteConfiguration(configuration);
    ZRSessionManager::sharedSessionManager().appOpenedWithSourceArray({});
    settle();
    log_->clear();
  }

  void track(const std::vector<std::string>& names) {
    for (const std::string& name : names) events().trackEvent(name);
    settle();
  }
  // As one batch, a second later than what came before.
  void save(const std::vector<std::string>& names) {
    clock_->advance(1);
    track(names);
    events().saveCurrentBatch();
  }
  // Every answer that the completion gets goes into the list.
  static ZREventsHandler::FlushCompletion into(Answers& answers) {
    return [&answers](bool success, bool attempted) { answers.emplace_back(success, attempted); };
  }
  static void flush(Answers& answers, bool reset = false) {
    events().flushEventsInBackgroundAndResetWithCompletionBlock(false, reset, into(answers));
  }

  // The event names of a batch (a dictionary with "events", or a bare array).
  static std::vector<std::string> namesOf(const Value& batch) {
    return eventNames(batch.isArray() ? *batch.asArray() : *batch.asDictionary()->objectForKey("events").asArray());
  }
  std::vector<std::vector<std::string>> savedNames() const {
    std::vector<std::vector<std::string>> names;
    for (const auto& [id, batch] : batchFile()) names.push_back(namesOf(batch));
    return names;
  }
  // The identifier of a batch in the file.
  std::string idOf(std::size_t position) const {
    return std::string((batchFile().begin() + static_cast<long>(position))->key);
  }
  // Of each report request, in the order of sending.
  std::vector<std::vector<std::string>> sentNames() const {
    std::vector<std::vector<std::string>> names;
    for (const auto& request : service_->requests()) {
      names.push_back(eventNames(*request.body.asDictionary()->objectForKey("viewsInfo").asArray()));
    }
    return names;
  }
  static std::vector<std::string> currentNames() { return eventNames(events().viewsInfoArray().value_or(Array())); }
  std::string batchPath() const { return documents("ZorvaneBatchEvents.plist"); }
  std::string dumpPath() const { return documents("zorvaneEvents.dat"); }
  bool hasError(const std::string& operation, std::int64_t line, const std::string& message) const {
    for (const auto& error : log_->errors()) {
      if (error.file == "ZREventsHandler" && error.line == line && error.operation == operation &&
          error.message == message) {
        return true;
      }
    }
    return false;
  }
};

using Names = std::vector<std::string>;
using Batches = std::vector<Names>;

}  // namespace zorvane::testing
