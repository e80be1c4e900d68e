// One session (a visit of the user), and the archive that keeps the current one over restarts.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Dispatch/LockedValue.h"
#include "Platform/Dispatch/Mutex.h"
#include "Platform/Export.h"
#include "ZRAnalytics/SessionAndSource/ZRSource.h"

namespace zorvane {

// None of them null.
using ZRSourceArray = std::vector<std::shared_ptr<const ZRSource>>;

// Thread-safe. Nothing here throws; errors are logged.
class ZR_PUBLIC ZRSession {
 public:
  // In archives.
  static constexpr std::string_view kClassName = "ZRSession";

  // A session that starts now; without times when the host's clock fails. Absent sources count as empty, null ones are
  // left out.
  static std::shared_ptr<ZRSession> initNewSessionWithSourcesAndIsBackgroundInitiated(
      std::optional<ZRSourceArray> sources, bool backgroundInitiated);
  // Archive keys "session_id", "background_initiated", "start_time", "last_interaction_time", "sources".
  static std::shared_ptr<ZRSession> initWithCoder(const platform::ArchivedObject& coder);
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  // A random UUID in upper case.
  static std::string generateSessionID();
  // Sets the last interaction to now.
  void updateLastInteractionTime();
  // Late attachment: a session without sources takes those that arrive within 5 seconds of its start. True if they were
  // taken.
  bool updateSessionWithSources(const std::optional<ZRSourceArray>& sources);
  // The wire form: "session_id", "start_time" (ISO 8601 with milliseconds, GMT).
  Dictionary getSessionInfoDict() const;

  // Nil if the archive lacks it.
  Value sessionID() const;
  void setSessionID(Value sessionID);
  // Null sources are left out.
  ZRSourceArray sessionSources() const;
  void setSessionSources(ZRSourceArray sources);
  // Absent if the archive lacks it.
  std::optional<Date> sessionStartTime() const;
  void setSessionStartTime(std::optional<Date> time);
  // A session without one has expired.
  std::optional<Date> sessionLastInteractionTime() const;
  void setSessionLastInteractionTime(std::optional<Date> time);
  // Whether it began while the application was in the background.
  bool backgroundInitiated() const;
  void setBackgroundInitiated(bool backgroundInitiated);

 private:
  mutable platform::Mutex mutex_;
  Value sessionID_ ZR_GUARDED_BY(mutex_);
  ZRSourceArray sessionSources_ ZR_GUARDED_BY(mutex_);
  std::optional<Date> sessionStartTime_ ZR_GUARDED_BY(mutex_);
  std::optional<Date> sessionLastInteractionTime_ ZR_GUARDED_BY(mutex_);
  bool backgroundInitiated_ ZR_GUARDED_BY(mutex_) = false;
};

// What the session file holds. Thread-safe.
class ZRSessionInfo {
 public:
  // In archives.
  static constexpr std::string_view kClassName = "ZRSessionInfo";

  ZRSessionInfo() = default;
  // Archive key "zrv_current_session".
  static std::shared_ptr<ZRSessionInfo> initWithCoder(const platform::ArchivedObject& coder);
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  // Null if there is none.
  std::shared_ptr<ZRSession> currentSession() const;
  void setCurrentSession(std::shared_ptr<ZRSession> session);

 private:
  platform::LockedValue<std::shared_ptr<ZRSession>> currentSession_;
};

}  // namespace zorvane
