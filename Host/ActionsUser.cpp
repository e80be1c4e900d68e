// The actions about the user, the device and the installation.

#include <optional>
#include <string>

#include "Host/Actions.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::host {
namespace {

// Sets the line's version, if it has one, in the core's configuration.
void setVersion(const ScriptLine& line, std::string_view key) {
  if (auto version = line.text("version")) updateRemoteConfiguration({{key, *std::move(version)}});
}

}  // namespace

void playAttribute(Runtime& runtime, const ScriptLine& line) {
  constexpr std::string_view kForms[] = {"value", "date", "timestamp", "location"};
  const Value key = line.value("key");
  std::string_view form;
  for (const std::string_view candidate : kForms) {
    if (!line.has(candidate)) continue;
    if (!form.empty()) {
      throw NotAnAction("\"" + std::string(form) + "\" and \"" + std::string(candidate) + "\" exclude each other");
    }
    form = candidate;
  }
  if (form == "date") {
    const std::string text = line.requiredText(form);
    runtime.analytics().setUserAttributeISODateStringForKey(text, key);
  } else if (form == "timestamp") {
    const double seconds = line.requiredNumber(form);
    runtime.analytics().setUserAttributeTimestampForKey(seconds, key);
  } else if (form == "location") {
    const ScriptLine::Location location = ScriptLine::locationOf(line.value(form), form);
    runtime.analytics().setUserAttributeLocationLatitudeLongitudeForKey(location.latitude, location.longitude, key);
  } else {
    runtime.analytics().setUserAttributeForKey(line.value("value"), key);
  }
}

void playUniqueID(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().setUserAttributeForKey(line.value("value"), USER_ATTRIBUTE_UNIQUE_ID);
}

void playAlias(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().setAlias(line.value("value"));
}

void playPushPreference(Runtime& runtime, const ScriptLine& line) {
  const bool preference = line.requiredFlag("value");
  runtime.analytics().trackUserPushPreference(preference);
}

void playPushConsent(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().setPushGDPROptOutStatusForKey(line.value("value"), line.value("key"));
}

void playDeviceAttribute(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics();  // sets the trigger delegates
  ZRDeviceAttributesHandler::sharedInstance().setDeviceAttributeForKey(line.value("value"), line.value("key"));
}

void playDeviceModel(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.analytics().setDeviceModelAttributes();
}

void playLocale(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.analytics().trackLocale();
}

void playAdvertisingID(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.analytics().trackAdvertisingIdentifier();
}

void playReset(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().resetUserWithCompletionBlock([&runtime, number = line.number()](bool success) {
    printCompletion(runtime, "reset", number, {{"success", success}});
  });
}

void playOptOut(Runtime& runtime, const ScriptLine& line) {
  const std::string what = line.requiredText("what");
  const bool optOut = line.requiredFlag("value");
  if (what == "data") {
    runtime.analytics().optOutOfDataTracking(optOut);
  } else if (what == "idfv") {
    runtime.analytics().optOutOfIDFVTracking(optOut);
  } else if (what == "idfa") {
    runtime.analytics().optOutOfIDFATracking(optOut);
  } else {
    throw NotAnAction("\"what\" must be \"data\", \"idfv\" or \"idfa\"");
  }
}

void playOptOutEvents(Runtime& runtime, const ScriptLine& line) {
  const Array* events = line.array("events");
  runtime.analytics().updateOptOutEvents(events ? *events : Array());
}

void playAppStatus(Runtime& runtime, const ScriptLine& line) {
  const std::int64_t status = line.requiredInteger("status");
  setVersion(line, "app_version");
  runtime.analytics().appStatus(status);
}

void playSDKVersion(Runtime& runtime, const ScriptLine& line) {
  setVersion(line, "sdk_version");
  runtime.analytics().trackSDKVersion();
}

void playPushToken(Runtime& runtime, const ScriptLine& /*line*/) {
  runtime.analytics().pushTokenUpdated();
}

void playUpdateDevice(Runtime& runtime, const ScriptLine& line) {
  runtime.analytics().updateDeviceWithCompletion([&runtime, number = line.number()](bool success) {
    printCompletion(runtime, "updateDevice", number, {{"success", success}});
  });
}

}  // namespace zorvane::host
