#include "ZRAnalytics/SessionAndSource/ZRSession.h"

#include "Platform/HostServices.h"
#include "Platform/Text/UUID.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRSession";
constexpr double kLateSourceSeconds = 5.0;

ZRSourceArray withoutNulls(ZRSourceArray sources) {
  std::erase(sources, nullptr);
  return sources;
}

Date now() {
  return platform::hostServices().clock->now();
}

}  // namespace

std::shared_ptr<ZRSession> ZRSession::initNewSessionWithSourcesAndIsBackgroundInitiated(
    std::optional<ZRSourceArray> sources, bool backgroundInitiated) {
  auto session = std::make_shared<ZRSession>();
  session->setSessionID(generateSessionID());
  guarded({kFile, "initNewSessionWithSourcesAndIsBackgroundInitiated"}, "exception is %@", [&] {
    session->setSessionStartTime(now());
    session->setSessionLastInteractionTime(now());
  });
  session->setBackgroundInitiated(backgroundInitiated);
  if (sources) session->setSessionSources(*std::move(sources));
  return session;
}

std::shared_ptr<ZRSession> ZRSession::initWithCoder(const platform::ArchivedObject& coder) {
  auto session = std::make_shared<ZRSession>();
  platform::MutexLock lock(session->mutex_);
  session->sessionID_ = coder.decodeObject(kAnalyticsSessionID);
  session->sessionStartTime_ = dateOfValue(coder.decodeObject(kAnalyticsSessionStartTime));
  session->backgroundInitiated_ = coder.decodeBool(kAnalyticsSessionBgInitiated);
  session->sessionLastInteractionTime_ = dateOfValue(coder.decodeObject(kAnalyticsSessionLastInteractionTime));
  const Value sources = coder.decodeObject(kAnalyticsSessionSources);
  if (const Array* array = sources.asArray()) {
    for (const Value& element : *array) {
      const auto object = element.asObject<platform::ArchivedObject>();
      if (object && object->className() == ZRSource::kClassName) {
        session->sessionSources_.push_back(ZRSource::initWithCoder(*object));
      }
    }
  }
  return session;
}

std::shared_ptr<platform::ArchivedObject> ZRSession::encodeWithCoder() const {
  auto coder = std::make_shared<platform::ArchivedObject>(std::string(kClassName));
  Array sources;  // may call host objects, so no lock is held
  for (const auto& source : sessionSources()) sources.emplace_back(source->encodeWithCoder());
  platform::MutexLock lock(mutex_);
  coder->encodeObject(kAnalyticsSessionID, sessionID_);
  coder->encodeBool(kAnalyticsSessionBgInitiated, backgroundInitiated_);
  coder->encodeObject(kAnalyticsSessionStartTime, valueOf(sessionStartTime_));
  coder->encodeObject(kAnalyticsSessionLastInteractionTime, valueOf(sessionLastInteractionTime_));
  coder->encodeObject(kAnalyticsSessionSources, std::move(sources));
  return coder;
}

std::string ZRSession::generateSessionID() {
  return platform::randomUUID();
}

void ZRSession::updateLastInteractionTime() {
  guarded({kFile, "updateLastInteractionTime"}, "exception is %@", [this] {
    const Date time = now();
    setSessionLastInteractionTime(time);
    logLine("Session(%@) Last Interaction Updated to %@", {sessionID(), Value(time)});
  });
}

bool ZRSession::updateSessionWithSources(const std::optional<ZRSourceArray>& sources) {
  if (!sources) return false;
  std::optional<Date> time;
  guarded({kFile, "updateSessionWithSources"}, "exception is %@", [&] { time = now(); });
  if (!time) return false;
  {
    platform::MutexLock lock(mutex_);
    if (!sessionSources_.empty() || !sessionStartTime_) return false;
    if (!(sessionStartTime_->secondsSince1970 + kLateSourceSeconds > time->secondsSince1970)) return false;
    sessionSources_ = withoutNulls(*sources);
  }
  logLine("-- Analytics -- Source Updated");
  return true;
}

Dictionary ZRSession::getSessionInfoDict() const {
  platform::MutexLock lock(mutex_);
  Dictionary info;
  info.setObjectNilHandledForKey(sessionID_, kAnalyticsSessionID);
  const auto start =
      ZRDateUtils::getStringForDateWithFormatAndForGMTTimeZone(sessionStartTime_, kZRDateFormatISO8601MilliSec, true);
  if (start) info.set(kAnalyticsSessionStartTime, *start);
  return info;
}

Value ZRSession::sessionID() const {
  platform::MutexLock lock(mutex_);
  return sessionID_;
}
ZRSourceArray ZRSession::sessionSources() const {
  platform::MutexLock lock(mutex_);
  return sessionSources_;
}
std::optional<Date> ZRSession::sessionStartTime() const {
  platform::MutexLock lock(mutex_);
  return sessionStartTime_;
}
std::optional<Date> ZRSession::sessionLastInteractionTime() const {
  platform::MutexLock lock(mutex_);
  return sessionLastInteractionTime_;
}
bool ZRSession::backgroundInitiated() const {
  platform::MutexLock lock(mutex_);
  return backgroundInitiated_;
}

void ZRSession::setSessionID(Value sessionID) {
  platform::MutexLock lock(mutex_);
  std::swap(sessionID_, sessionID);
}
void ZRSession::setSessionSources(ZRSourceArray sources) {
  sources = withoutNulls(std::move(sources));
  platform::MutexLock lock(mutex_);
  sessionSources_.swap(sources);
}
void ZRSession::setSessionStartTime(std::optional<Date> time) {
  platform::MutexLock lock(mutex_);
  sessionStartTime_ = time;
}
void ZRSession::setSessionLastInteractionTime(std::optional<Date> time) {
  platform::MutexLock lock(mutex_);
  sessionLastInteractionTime_ = time;
}
void ZRSession::setBackgroundInitiated(bool backgroundInitiated) {
  platform::MutexLock lock(mutex_);
  backgroundInitiated_ = backgroundInitiated;
}

std::shared_ptr<ZRSessionInfo> ZRSessionInfo::initWithCoder(const platform::ArchivedObject& coder) {
  auto info = std::make_shared<ZRSessionInfo>();
  const auto session = coder.decodeObject(kAnalyticsStorageCurrentSessionKey).asObject<platform::ArchivedObject>();
  if (session && session->className() == ZRSession::kClassName) {
    info->setCurrentSession(ZRSession::initWithCoder(*session));
  }
  return info;
}

std::shared_ptr<platform::ArchivedObject> ZRSessionInfo::encodeWithCoder() const {
  auto coder = std::make_shared<platform::ArchivedObject>(std::string(kClassName));
  const auto session = currentSession();
  coder->encodeObject(kAnalyticsStorageCurrentSessionKey, session ? Value(session->encodeWithCoder()) : Value());
  return coder;
}

std::shared_ptr<ZRSession> ZRSessionInfo::currentSession() const {
  return currentSession_.get();
}

void ZRSessionInfo::setCurrentSession(std::shared_ptr<ZRSession> session) {
  currentSession_.set(std::move(session));
}

}  // namespace zorvane
