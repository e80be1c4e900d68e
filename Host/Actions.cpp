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
    if (!success) runtime.noteFailedFlush();
    printCompletion(runtime, "flush", number, {{"success", success}});
  });
}

void playSave(Runtime& /*runtime*/, const ScriptLine& /*line*/) {
  ZREventsHandler::sharedInstance().saveCurrentBatch();
}

void playRawFlush(Runtime& runtime, const ScriptLine& line) {
  ZREventsHandler::sharedInstance().flushEventsInBackgroundAndResetWithCompletionBlock(
      line.flag("background"), line.flag("reset"), [&runtime, number = line.number()](bool success, bool attempted) {
        if (!success) runtime.noteFailedFlush();
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
    {"launch", "", "", "the core starts, the module is initialised, did-become-active is posted", "", playLaunch},
    {"active", "", "", "did-become-active is posted", "", playActive},
    {"inactive", "", "", "will-resign-active is posted", "", playInactive},
    {"foreground", "", "", "will-enter-foreground is posted", "", playForeground},
    {"background", "", "", "did-enter-background is posted", "", playBackground},
    {"terminate", "", "", "will-terminate is posted; zrhost goes on playing", "", playTerminate},
    {"track", "event attributes dates locations nonInteractive builder handler",
     "event (any value), attributes {}, dates {name: ISO text or seconds}, locations {name: [lat, lng]},\n"
     "nonInteractive, builder (through the payload builder), handler",
     "an event; with \"handler\" straight to the events handler, whose completion is printed",
     R"("event": "Purchase", "attributes": {"sku": "A1", "price": 10.5}, "dates": {"due": "2026-11-24T08:00:00Z"})",
     playTrack},
    {"attribute", "key value date timestamp location",
     "key, value; or date (ISO text), timestamp (seconds), location [lat, lng] in its place", "a user attribute",
     R"("key": "city", "value": "Oslo")", playAttribute},
    {"uniqueID", "value", "", "login", R"("value": "ada@example.com")", playUniqueID},
    {"alias", "value", "", "the user is renamed", R"("value": "ada@home.example")", playAlias},
    {"pushPreference", "value", "value (true or false)", "the user's choice about push messages", R"("value": true)",
     playPushPreference},
    {"pushConsent", "key value", "", "a consent about push messages", R"("key": "news", "value": true)",
     playPushConsent},
    {"deviceAttribute", "key value", "", "a device attribute", R"("key": "screen", "value": "OLED")",
     playDeviceAttribute},
    {"deviceModel", "", "", "model, its name, system version and vendor identifier are tracked", "", playDeviceModel},
    {"locale", "", "", "country, language and locale are tracked", "", playLocale},
    {"advertisingID", "", "", "the advertising identifier is tracked", "", playAdvertisingID},
    {"openURL", "url via", "url, via (\"app\", \"facade\", \"proxy\" or \"activity\")", "a link is opened",
     R"("url": "shop://offers?utm_source=newsletter&utm_medium=email")", playOpenURL},
    {"sources", "sources push own", "sources [{}], or push {} with own", "traffic sources for the current session",
     R"("sources": [{"source": "mail", "medium": "letter"}])", playSources},
    {"flush", "", "", "saves and sends; its completion is printed", "", playFlush},
    {"save", "", "", "the current batch goes to the batch file; nothing is sent", "", playSave},
    {"rawFlush", "background reset", "", "the events handler's flush; its completion is printed",
     R"("background": true, "reset": false)", playRawFlush},
    {"interval", "seconds", "", "the interval of the flush timer", R"("seconds": 30)", playInterval},
    {"disablePeriodicFlush", "", "", "no flush timer", "", playDisablePeriodicFlush},
    {"reset", "", "", "the user is reset; the completion is printed", "", playReset},
    {"optOut", "what value", "what (\"data\", \"idfv\" or \"idfa\"), value (true or false)",
     "the choice is kept over launches", R"("what": "idfa", "value": true)", playOptOut},
    {"optOutEvents", "events", "events [] (left out: none)", "these events are tracked in spite of an opt-out",
     R"("events": ["Consent Changed"])", playOptOutEvents},
    {"appStatus", "status version", "status (0 installed, 1 updated), version (of the application, set first)",
     "the application was installed or updated", R"("status": 1, "version": "2.0")", playAppStatus},
    {"sdkVersion", "version", "version (set first)", "the version of the SDK is tracked", R"("version": "1.1.0")",
     playSDKVersion},
    {"pushToken", "", "", "the push token changed", "", playPushToken},
    {"updateDevice", "", "", "the device is registered; the completion is printed", "", playUpdateDevice},
    {"config", "set", "set {}", "the remote configuration changes; the module is not told",
     R"("set": {"event_batch_count": 5})", playConfig},
    {"sdkState", "enabled", "enabled (true or false)", "the module is enabled or disabled, over launches",
     R"("enabled": true)", playSDKState},
    {"appID", "value", "", "the application identifier changes; the completion is printed", R"("value": "SHOP")",
     playAppID},
    {"condition", "condition event attributes dates", "condition {}, event, attributes {}, dates {}",
     "prints whether the condition holds for that event",
     R"("condition": {"eventName": "Purchase", "filters": [{"name": "sku", "data_type": "string", "operator": "is", "value": "A1"}]}, "event": "Purchase", "attributes": {"sku": "A1"})",
     playCondition},
    {"swizzle", "", "", "the proxy registers with the core", "", playSwizzle},
    {"unswizzle", "", "", "undoes what the proxy did", "", playUnswizzle},
    {"expire", "name", "name (of a background task)", "the task's expiration handler is called", R"("name": "ZRVTask")",
     playExpire},
    {"wait", "seconds", "", "time passes, and timers fire", R"("seconds": 60)", playWait},
    {"clock", "at", "at (ISO text in UTC, with Z)", "the wall clock jumps; timers do not fire for it",
     R"("at": "2026-11-21T12:00:00.000Z")", playClock},
    {"settle", "", "", "waits until all queues are idle and all requests are answered", "", playSettle},
    {"print", "what",
     "what (\"session\", \"sources\", \"identifiers\", \"userAttributes\", \"batches\", \"currentBatch\",\n"
     "\"defaults\", \"config\")",
     "prints that as JSON", R"("what": "batches")", playPrint},
    {"crash", "", "", "the process kills itself at once", "", playCrash},
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

std::string helpOf(const Action& action) {
  std::string text(action.fields.empty() ? action.keys : action.fields);
  if (!action.fields.empty()) return text;
  for (std::size_t at = 0; (at = text.find(' ', at)) != std::string::npos; at += 2) text.insert(at, 1, ',');
  return text;
}

std::string exampleOf(const Action& action) {
  const std::string separator = action.example.empty() ? "" : ", ";
  return "{\"do\": \"" + std::string(action.name) + "\"" + separator + std::string(action.example) + "}";
}

void printCompletion(Runtime& runtime, std::string_view operation, std::int64_t line, platform::Dictionary results) {
  platform::Dictionary printed{{"completion", operation}, {"line", line}};
  for (const auto& [key, value] : results) printed.set(key, value);
  runtime.output().write(printed);
}

}  // namespace zorvane::host
