// The current session: when it begins, continues and ends.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Dispatch/LockedValue.h"
#include "ZRAnalytics/SessionAndSource/ZRSession.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"

namespace zorvane {

// There is at most one current session. It is stored in "ZrvData/ZRSessionInfo" below the SDK's library directory at
// each change. It expires without an interaction for the inactive duration, and is replaced when the application is
// opened with another source. Thread-safe: overlapping calls see either the old or the new session. Nothing here
// throws; errors are logged.
class ZRSessionManager {
 public:
  static ZRSessionManager& sharedSessionManager();

  // The application was opened. Begins a new session if the old one has expired or its first source differs. Gates:
  // account, SDK.
  void appOpenedWithSourceArray(const ZRSourceArray& sources);
  // A session younger than 5 seconds without sources takes these; otherwise as appOpenedWithSourceArray. An absent or
  // empty array changes nothing during a session. Gates: account, SDK.
  void updateSourcesForCurrentSession(const std::optional<ZRSourceArray>& sources);
  // A URL opened the application: its source goes to updateSourcesForCurrentSession. A URL without a recognised
  // parameter changes nothing. Gates: account, SDK.
  static void processURL(const URL& url);
  // Called for each event before it is recorded. An interactive event in the background extends the session, or starts
  // a new one if it has expired. The completion is called once, on this thread, also after an error.
  void checkSessionForEventWithPropertiesWithCompletionBlock(const Value& eventName, const ZRProperties* properties,
                                                             const std::function<void()>& completion);
  // Flushes what was recorded under the old session, then makes a new one current. The completion is called on this
  // thread with the session, or with null after an error. The default global queue stores the session, or the save of
  // its first batch if that comes earlier.
  void initiateNewSessionWithSourcesAndCompletionBlock(
      const std::optional<ZRSourceArray>& sources,
      const std::function<void(const std::shared_ptr<ZRSession>&)>& completion);
  // Makes a new session without sources current and stores it; from then on the old one is gone, even after a power
  // loss. No flush.
  void reinitiateSession();
  // Removes the current session, also from the file, for good.
  void resetSession();

  // True without a session, false after an error. Logs the times compared.
  bool hasCurrentSessionExpired() const;
  // Seconds; 1800 if the remote configuration says 0.
  std::int64_t getSessionInactiveDuration() const;
  // Compares only the first sources. False without a session, else true for an absent or empty array.
  bool isCurrentSessionSourceSameAs(const std::optional<ZRSourceArray>& sources) const;
  // The application state that the host reports; false after an error.
  bool isAppInBackgroundState() const;
  // The manager's own flag: set at the launch and in the background, cleared in the foreground and when opened.
  bool isAppInBackground() const { return isAppInBackground_.load(); }
  void setIsAppInBackground(bool isInBackground) { isAppInBackground_ = isInBackground; }
  // Holds the current session; never null. Changing it writes no file.
  const std::shared_ptr<ZRSessionInfo>& sessionInfo() const { return sessionInfo_; }

  std::string getFilePathForSessionInfo() const;
  // Writes the file on this thread. A write error is logged. A power loss shortly after may bring the older file back:
  // then the next launch continues the session that stands there, or begins another.
  void saveSessionInfo();
  // The same, if a new session is not in the file yet. Call before a batch of the session is saved.
  void saveNewSession();

  // {"session_id", "start_time"}; absent without a session.
  std::optional<Dictionary> getCurrentSessionInfoDict() const;
  // The dictionaries of the session's sources, in order; empty without a session.
  Array getCurrentSessionSourceInfoArray() const;

  // Observers of the lifecycle notifications, on the main thread; the notification's name is ignored. The last two
  // count as an interaction.
  void applicationEnteredForeground(std::string_view notification = {});
  void applicationEnteredBackground(std::string_view notification = {});
  void applicationInActive(std::string_view notification = {});

 private:
  ZRSessionManager();
  bool isExpired() const;
  void startSession(const ZRSourceArray& sources);
  void writeSessionInfo(platform::Durability durability);
  std::shared_ptr<ZRSession> makeCurrentSession(const std::optional<ZRSourceArray>& sources);
  void touchCurrentSession();

  std::atomic<bool> isAppInBackground_{true};
  std::shared_ptr<ZRSessionInfo> sessionInfo_;
  ZRArchiveWriter archive_;
  // The session of the last saveSessionInfo.
  platform::LockedValue<std::shared_ptr<ZRSession>> savedSession_;
};

}  // namespace zorvane
