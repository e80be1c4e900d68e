// Which visit ("session") the user is in.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ZRAnalytics/SessionAndSource/ZRSession.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"

namespace zorvane {

// One current session at a time, kept in "ZrvData/ZRSessionInfo" below the SDK's library directory and saved at each
// change. It is over when nothing happened for the inactive duration, and is replaced when the application is opened
// with another source. Thread-safe; where two calls overlap, each sees a whole session, the old one or the new one.
class ZRSessionManager {
 public:
  static ZRSessionManager& sharedSessionManager();

  // The application was opened: a new session when the old one has expired or its first source differs. Only with the
  // account active and the SDK enabled.
  void appOpenedWithSourceArray(const ZRSourceArray& sources);
  // A young session without a source takes these; otherwise as appOpenedWithSourceArray. An absent or empty array
  // changes nothing while there is a session. Only with the account active and the SDK enabled.
  void updateSourcesForCurrentSession(const std::optional<ZRSourceArray>& sources);
  // A URL opened the application; without a recognised parameter it changes nothing. Same gates.
  static void processURL(const URL& url);
  // Called for each event before it is recorded. An interactive event in the background starts a new session after the
  // old one expired, and prolongs it before. The completion is called once, on this thread.
  void checkSessionForEventWithPropertiesWithCompletionBlock(const Value& eventName, const ZRProperties* properties,
                                                             const std::function<void()>& completion);
  // Flushes what was recorded under the old session, then makes a new one current. The completion is required and
  // called on this thread.
  void initiateNewSessionWithSourcesAndCompletionBlock(
      const ZRSourceArray& sources, const std::function<void(const std::shared_ptr<ZRSession>&)>& completion);
  // A new session without sources and without a flush.
  void reinitiateSession();
  void resetSession();

  bool hasCurrentSessionExpired() const;
  // Seconds; 1800 when the remote configuration says 0.
  std::int64_t getSessionInactiveDuration() const;
  // Compares the first sources only; no new source never counts as a change.
  bool isCurrentSessionSourceSameAs(const ZRSourceArray& sources) const;
  // What the operating system says; isAppInBackground() is the manager's own idea.
  bool isAppInBackgroundState() const;
  bool isAppInBackground() const { return isAppInBackground_.load(); }

  std::string getFilePathForSessionInfo() const;
  void saveSessionInfo();

  // Absent without a session.
  std::optional<Dictionary> getCurrentSessionInfoDict() const;
  // Dictionaries of the current session's sources, in order; empty without a session.
  Array getCurrentSessionSourceInfoArray() const;

  // Observers of the lifecycle notifications, on the main thread.
  void applicationEnteredForeground();
  void applicationEnteredBackground();
  void applicationInActive();

 private:
  ZRSessionManager();
  void startSession(const ZRSourceArray& sources);
  void touchCurrentSession();

  std::atomic<bool> isAppInBackground_{true};
  std::shared_ptr<ZRSessionInfo> sessionInfo_;
  ZRArchiveWriter archive_;
};

}  // namespace zorvane
