#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"

#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRSessionManager";
constexpr char kException[] = "exception is %@";
constexpr std::int64_t kDefaultInactiveSeconds = 1800;
constexpr std::string_view kArchiveClasses[] = {ZRSessionInfo::kClassName, ZRSession::kClassName, ZRSource::kClassName};

// The current session or its sources have changed.
void tellJournal() {
  if (ZREventJournal* const journal = ZRConfigDataManager::sharedInstance().getEventJournal()) {
    journal->sessionChanged();
  }
}

}  // namespace

ZRSessionManager& ZRSessionManager::sharedSessionManager() {
  static ZRSessionManager* const manager = new ZRSessionManager;
  return *manager;
}

ZRSessionManager::ZRSessionManager() {
  const auto root = readArchive(getFilePathForSessionInfo(), ZRSessionInfo::kClassName, kArchiveClasses);
  sessionInfo_ = root ? ZRSessionInfo::initWithCoder(*root) : std::make_shared<ZRSessionInfo>();
  savedSession_.set(sessionInfo_->currentSession());

  platform::NotificationCenter& center = *platform::hostServices().notificationCenter;
  center.addObserver(platform::kWillEnterForegroundNotification,
                     [this](std::string_view name) { applicationEnteredForeground(name); });
  center.addObserver(platform::kDidEnterBackgroundNotification,
                     [this](std::string_view name) { applicationEnteredBackground(name); });
  center.addObserver(platform::kWillResignActiveNotification,
                     [this](std::string_view name) { applicationInActive(name); });
}

void ZRSessionManager::appOpenedWithSourceArray(const ZRSourceArray& sources) {
  guarded({kFile, "appOpenedWithSourceArray"}, kException, [&] {
    if (!ZRAnalyticsUtils::areGatesOpen()) return;
    isAppInBackground_ = false;
    if (hasCurrentSessionExpired()) {
      startSession(sources);
    } else if (isCurrentSessionSourceSameAs(sources)) {
      const auto session = sessionInfo_->currentSession();
      logLine("App Opened with same Source, Session(%@) will remain active",
              {session ? session->sessionID() : Value()});
    } else {
      logLine("App Opened with different source. Initiate New Session.");
      startSession(sources);
    }
  });
}

void ZRSessionManager::startSession(const ZRSourceArray& sources) {
  initiateNewSessionWithSourcesAndCompletionBlock(sources, [](const std::shared_ptr<ZRSession>& session) {
    if (session) logLine("New Session(%@) initiated", {session->sessionID()});
  });
}

void ZRSessionManager::updateSourcesForCurrentSession(const std::optional<ZRSourceArray>& sources) {
  guarded({kFile, "updateSourcesForCurrentSession"}, kException, [&] {
    if (!ZRAnalyticsUtils::areGatesOpen()) return;
    if (const auto session = sessionInfo_->currentSession()) {
      if (!sources || sources->empty()) return;
      if (session->updateSessionWithSources(sources)) return tellJournal();
    }
    appOpenedWithSourceArray(sources.value_or(ZRSourceArray()));
  });
}

void ZRSessionManager::processURL(const URL& url) {
  guarded({kFile, "processURL"}, kException, [&] {
    if (!ZRAnalyticsUtils::areGatesOpen()) return;
    logLine("Incoming URL : %@", {url.absoluteString});
    const auto source = ZRSource::initSourceWithURL(url.absoluteString);
    if (source->isValidSource()) sharedSessionManager().updateSourcesForCurrentSession(ZRSourceArray{source});
  });
}

void ZRSessionManager::checkSessionForEventWithPropertiesWithCompletionBlock(const Value& /*eventName*/,
                                                                             const ZRProperties* properties,
                                                                             const std::function<void()>& completion) {
  constexpr char kOperation[] = "checkSessionForEventWithPropertiesWithCompletionBlock";
  guarded({kFile, kOperation}, kException, [&] {
    if ((properties && properties->isNonInteractiveEvent()) || !isAppInBackground()) return;
    if (hasCurrentSessionExpired()) {
      initiateNewSessionWithSourcesAndCompletionBlock({}, [](const std::shared_ptr<ZRSession>& session) {
        if (session) logLine("New Session Initiated: %@", {session->sessionID()});
      });
    } else {
      touchCurrentSession();
    }
  });
  callBlock({kFile, kOperation}, kException, completion);
}

void ZRSessionManager::initiateNewSessionWithSourcesAndCompletionBlock(
    const std::optional<ZRSourceArray>& sources,
    const std::function<void(const std::shared_ptr<ZRSession>&)>& completion) {
  constexpr char kOperation[] = "initiateNewSessionWithSourcesAndCompletionBlock";
  std::shared_ptr<ZRSession> session;
  guarded({kFile, kOperation}, kException, [&] {
    ZREventsHandler::sharedInstance().flushWithCompletionBlock(nullptr);
    session = makeCurrentSession(sources);
    platform::hostServices().scheduler->globalQueue(platform::Priority::Default).async([this] { saveNewSession(); });
  });
  callBlock({kFile, kOperation}, kException, completion, session);
}

std::shared_ptr<ZRSession> ZRSessionManager::makeCurrentSession(const std::optional<ZRSourceArray>& sources) {
  auto session = ZRSession::initNewSessionWithSourcesAndIsBackgroundInitiated(sources, isAppInBackground());
  sessionInfo_->setCurrentSession(session);
  tellJournal();
  return session;
}

void ZRSessionManager::reinitiateSession() {
  guarded({kFile, "reinitiateSession"}, kException, [this] {
    const auto session = makeCurrentSession(std::nullopt);
    // At once: after a kill the next user must not continue the session of the one before.
    writeSessionInfo(platform::Durability::Lasting);
    logLine("New Session Initiated: %@", {session->sessionID()});
  });
}

void ZRSessionManager::resetSession() {
  guarded({kFile, "resetSession"}, kException, [this] {
    if (!sessionInfo_->currentSession()) return;
    sessionInfo_->setCurrentSession(nullptr);
    tellJournal();
    writeSessionInfo(platform::Durability::Lasting);
    logLine("Session Reset");
  });
}

bool ZRSessionManager::hasCurrentSessionExpired() const {
  bool expired = false;
  guarded({kFile, "hasCurrentSessionExpired"}, kException, [&] { expired = isExpired(); });
  return expired;
}

bool ZRSessionManager::isExpired() const {
  const auto session = sessionInfo_->currentSession();
  if (!session) {
    logLine("-- Analytics -- Session Expired");
    return true;
  }
  const auto lastInteraction = session->sessionLastInteractionTime();
  std::optional<Date> expiry;
  if (lastInteraction) {
    expiry = Date{lastInteraction->secondsSince1970 + static_cast<double>(getSessionInactiveDuration())};
  }
  const Date now = platform::hostServices().clock->now();
  logLine(
      "-- Analytics -- Session Expiry Check: \n Current Session(%@), Last Interaction Time(%@), Last Interaction + "
      "s_i_d(%@), current time(%@)",
      {session->sessionID(), valueOf(lastInteraction), valueOf(expiry), Value(now)});
  if (ZRDateUtils::isDate1LaterToDate2(expiry, now)) {
    logLine("-- Analytics -- Current Session has not expired.");
    return false;
  }
  logLine("-- Analytics -- Session Expired");
  return true;
}

std::int64_t ZRSessionManager::getSessionInactiveDuration() const {
  const std::int64_t duration = ZRConfigDataManager::sharedInstance().getSessionInActiveDuration();
  return duration == 0 ? kDefaultInactiveSeconds : duration;
}

bool ZRSessionManager::isCurrentSessionSourceSameAs(const std::optional<ZRSourceArray>& sources) const {
  const auto session = sessionInfo_->currentSession();
  if (!session) return false;
  if (!sources || sources->empty()) return true;
  const ZRSourceArray current = session->sessionSources();
  return !current.empty() && current.front()->isEqual(sources->front().get());
}

bool ZRSessionManager::isAppInBackgroundState() const {
  bool isInBackground = false;
  guarded({kFile, "isAppInBackgroundState"}, kException, [&] {
    isInBackground = platform::hostServices().application->state() == platform::ApplicationState::Background;
  });
  return isInBackground;
}

std::string ZRSessionManager::getFilePathForSessionInfo() const {
  return archivePath("ZRSessionInfo");
}

void ZRSessionManager::saveSessionInfo() {
  writeSessionInfo(platform::Durability::Eventual);
}

void ZRSessionManager::writeSessionInfo(platform::Durability durability) {
  guarded({kFile, "saveSessionInfo"}, kException, [&] {
    auto session = sessionInfo_->currentSession();
    archive_.write(getFilePathForSessionInfo(), durability, [this] { return sessionInfo_->encodeWithCoder(); });
    savedSession_.set(std::move(session));  // also after a failure: a full disk must not cost a write per batch
  });
}

void ZRSessionManager::saveNewSession() {
  if (sessionInfo_->currentSession() != savedSession_.get()) saveSessionInfo();
}

std::optional<Dictionary> ZRSessionManager::getCurrentSessionInfoDict() const {
  const auto session = sessionInfo_->currentSession();
  return session ? std::optional(session->getSessionInfoDict()) : std::nullopt;
}

Array ZRSessionManager::getCurrentSessionSourceInfoArray() const {
  Array sources;
  if (const auto session = sessionInfo_->currentSession()) {
    for (const auto& source : session->sessionSources()) sources.emplace_back(source->getSourceInfoDict());
  }
  return sources;
}

void ZRSessionManager::touchCurrentSession() {
  if (const auto session = sessionInfo_->currentSession()) {
    session->updateLastInteractionTime();
    saveSessionInfo();
  }
}

void ZRSessionManager::applicationEnteredForeground(std::string_view /*notification*/) {
  guarded({kFile, "applicationEnteredForeground"}, "exception in application did enter Foreground is %@",
          [this] { isAppInBackground_ = false; });
}

void ZRSessionManager::applicationEnteredBackground(std::string_view /*notification*/) {
  guarded({kFile, "applicationEnteredBackground"}, "exception in application did enter Background is %@", [this] {
    applicationInActive();
    isAppInBackground_ = true;
  });
}

void ZRSessionManager::applicationInActive(std::string_view /*notification*/) {
  guarded({kFile, "applicationInActive"}, "exception in UIApplicationWillResignActiveNotification is %@",
          [this] { touchCurrentSession(); });
}

}  // namespace zorvane
