#include "Host/Actions.h"

#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::host {
namespace {

using platform::ApplicationState;

// About 500 years: many of them add up without overflow.
constexpr double kMaximumWait = 1.6e10;

void playLaunch(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.onMainThread([&] { runtime.analytics().initializeAnalytics(); });
  runtime.enterState(ApplicationState::Active, platform::kDidBecomeActiveNotification);
}

void playActive(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.enterState(ApplicationState::Active, platform::kDidBecomeActiveNotification);
}

void playInactive(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.enterState(ApplicationState::Inactive, platform::kWillResignActiveNotification);
}

void playForeground(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.enterState(ApplicationState::Inactive, platform::kWillEnterForegroundNotification);
}

void playBackground(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.enterState(ApplicationState::Background, platform::kDidEnterBackgroundNotification);
}

void playTerminate(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.enterState(runtime.application().state(), platform::kWillTerminateNotification);
}

void playFlush(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().flushWithCompletionBlock([&runtime, number = line.number()](bool success) {
    printCompletion(runtime, "flush", number, {{"success", success}});
  });
}

void playSave(Runtime& /*runtime*/, const ScriptLine& /*line*/) {
  ZREventsHandler::sharedInstance().saveCurrentBatch();
}

void playRawFlush(Runtime& runtime, const ScriptLine& line) {
  ZREventsHandler::sharedInstance().flushEventsInBackgroundAndResetWithCompletionBlock(
      line.flag("background"), line.flag("reset"), [&runtime, number = line.number()](bool success, bool attempted) {
        printCompletion(runtime, "rawFlush", number, {{"success", success}, {"attempted", attempted}});
      });
}

void playInterval(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().setFlushInterval(line.requiredInteger("seconds"));
}

void playDisablePeriodicFlush(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.analytics().disablePeriodicFlush();
}

void playConfig(Runtime& /*runtime*/, const ScriptLine& line) {
  const platform::Dictionary* changes = line.object("set");
  if (!changes) throw NotAnAction("\"set\" is missing");
  try {
    updateRemoteConfiguration(*changes);
  } catch (const ValueError& error) {
    throw NotAnAction(error.what());
  }
}

void playSDKState(Runtime& runtime, const ScriptLine& line) {
  setSDKEnabled(line.requiredFlag("enabled"));
  runtime.analytics().zorvaneSDKStateUpdated();
}

void playAppID(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics();  // creates the module, which registers itself with the core
  setAppIdentifier(line.text("value").value_or(std::string()));
  if (const auto delegate = ZorvaneCore::sharedInstance().appIdUpdateDelegate()) {
    delegate->appIDChangeHandledWithCompletionBlock(
        [&runtime, number = line.number()] { printCompletion(runtime, "appID", number); });
  }
}

void playExpire(Runtime& runtime, const ScriptLine& line) {
  const std::string name = line.requiredText("name");
  bool known = false;
  runtime.onMainThread([&] { known = runtime.application().expire(name); });
  if (!known) throw NotAnAction("no background task \"" + name + "\" was begun");
}

void playWait(Runtime& runtime, const ScriptLine& line) {
  const double seconds = line.requiredNumber("seconds");
  if (!(seconds >= 0 && seconds <= kMaximumWait)) throw NotAnAction("\"seconds\" must be from 0 to 16000000000");
  runtime.passTime(seconds);
}

void playClock(Runtime& runtime, const ScriptLine& line) {
  const auto date = parseTime(line.requiredText("at"));
  if (!date) throw NotAnAction("\"at\" must be a time such as 2026-11-21T10:00:00.000Z");
  runtime.setNow(*date);
}

void playSettle(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.settle();
}

[[noreturn]] void playCrash(Runtime& /*runtime*/, const ScriptLine& /*line*/) {
  while (true) ::kill(::getpid(), SIGKILL);
}

constexpr Action kActions[] = {
    {"launch", "", playLaunch},
    {"active", "", playActive},
    {"inactive", "", playInactive},
    {"foreground", "", playForeground},
    {"background", "", playBackground},
    {"terminate", "", playTerminate},
    {"track",
     "event (any value), attributes {}, dates {name: ISO text or seconds}, locations {name: [lat, lng]},\n"
     "nonInteractive, builder (through the payload builder), handler",
     playTrack},
    {"attribute", "key, value; or date (ISO text), timestamp (seconds), location [lat, lng] in its place",
     playAttribute},
    {"uniqueID", "value", playUniqueID},
    {"alias", "value", playAlias},
    {"pushPreference", "value (true or false)", playPushPreference},
    {"pushConsent", "key, value", playPushConsent},
    {"deviceAttribute", "key, value", playDeviceAttribute},
    {"deviceModel", "", playDeviceModel},
    {"locale", "", playLocale},
    {"advertisingID", "", playAdvertisingID},
    {"openURL", "url, via (\"app\", \"facade\", \"proxy\" or \"activity\")", playOpenURL},
    {"sources", "sources [{}], or push {} with own", playSources},
    {"flush", "", playFlush},
    {"save", "", playSave},
    {"rawFlush", "background, reset", playRawFlush},
    {"interval", "seconds", playInterval},
    {"disablePeriodicFlush", "", playDisablePeriodicFlush},
    {"reset", "", playReset},
    {"optOut", "what (\"data\", \"idfv\" or \"idfa\"), value (true or false)", playOptOut},
    {"optOutEvents", "events []", playOptOutEvents},
    {"appStatus", "status (0 installed, 1 updated), version (of the application, set first)", playAppStatus},
    {"sdkVersion", "version (set first)", playSDKVersion},
    {"pushToken", "", playPushToken},
    {"updateDevice", "", playUpdateDevice},
    {"config", "set {}", playConfig},
    {"sdkState", "enabled", playSDKState},
    {"appID", "value", playAppID},
    {"condition", "condition {}, event, attributes {}, dates {} (prints whether it holds for that event)",
     playCondition},
    {"swizzle", "", playSwizzle},
    {"unswizzle", "", playUnswizzle},
    {"expire", "name (of a background task)", playExpire},
    {"wait", "seconds", playWait},
    {"clock", "at (ISO text)", playClock},
    {"settle", "", playSettle},
    {"print",
     "what (\"session\", \"sources\", \"identifiers\", \"userAttributes\", \"batches\", \"currentBatch\",\n"
     "\"defaults\", \"config\")",
     playPrint},
    {"crash", "", playCrash},
};

}  // namespace

std::span<const Action> allActions() {
  return kActions;
}

const Action& actionNamed(std::string_view name) {
  for (const Action& action : kActions) {
    if (action.name == name) return action;
  }
  throw NotAnAction("unknown action \"" + std::string(name) + "\"");
}

void printCompletion(Runtime& runtime, std::string_view operation, std::int64_t line, platform::Dictionary results) {
  platform::Dictionary printed{{"completion", operation}, {"line", line}};
  for (const auto& [key, value] : results) printed.set(key, value);
  runtime.output().write(printed);
}

}  // namespace zorvane::host
