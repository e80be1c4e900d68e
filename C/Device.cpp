#include <utility>

#include "C/Handles.h"
#include "C/Module.h"
#include "Platform/Formats/JSON.h"
#include "ZorvaneCore/CoreSetup.h"

using namespace zorvane;
using namespace zorvane::c;

zr_status zr_app_status(int64_t status) {
  return callModule([&](const ModuleCall& module) { module->appStatus(status); });
}

zr_status zr_smart_trigger_for_app_status(int64_t status) {
  return callModule([&](const ModuleCall& module) { module->smartTriggerForAppStatus(status); });
}

zr_status zr_track_sdk_version(void) {
  return callModule([](const ModuleCall& module) { module->trackSDKVersion(); });
}

zr_status zr_track_reinstall(void) {
  return callModule([](const ModuleCall& module) { module->trackReinstall(); });
}

zr_status zr_update_device(zr_completion completion, void* data, zr_release release) {
  return guarded([&] {
    const HostDataPointer hostData = HostData::make(data, release);
    ModuleCall()->updateDeviceWithCompletion(completionOf(completion, hostData));
  });
}

zr_status zr_push_token_updated(void) {
  return callModule([](const ModuleCall& module) { module->pushTokenUpdated(); });
}

zr_status zr_set_device_model_attributes(void) {
  return callModule([](const ModuleCall& module) { module->setDeviceModelAttributes(); });
}

zr_status zr_track_locale(void) {
  return callModule([](const ModuleCall& module) { module->trackLocale(); });
}

zr_status zr_track_advertising_identifier(void) {
  return callModule([](const ModuleCall& module) { module->trackAdvertisingIdentifier(); });
}

char* zr_copy_tracked_idfa(size_t* length) {
  if (length) *length = 0;
  return guardedPointer([&] {
    const Value identifier = ModuleCall()->getTrackedIDFA();
    return identifier.isNil() ? nullptr : copiedText(identifier.description(), length);
  });
}

char* zr_copy_device_registration(size_t* length) {
  return guardedPointer([&] {
    auto body = ModuleCall()->getDeviceAddRequestBody();
    if (!body) fail(ZR_ERROR_CONFIGURATION, "the configuration has no query parameters");
    return copiedText(platform::jsonText(std::move(*body)), length);
  });
}

zr_status zr_update_modules(void) {
  return callModule([](const ModuleCall& module) { module->updateModules(); });
}

zr_status zr_session_started(void) {
  return callModule([](const ModuleCall& module) { module->sessionStarted(); });
}

zr_status zr_set_app_id(const char* app_id, size_t length, zr_completion completion, void* data, zr_release release) {
  return guarded([&] {
    const HostDataPointer hostData = HostData::make(data, release);
    const ModuleCall module;
    setAppIdentifier(std::string(textOf(app_id, length, "app_id")));
    module->appIDChangeHandledWithCompletionBlock([done = completionOf(completion, hostData)] {
      if (done) done(true);
    });
  });
}

zr_status zr_update_remote_configuration(const char* json, size_t length) {
  return callModule([&](const ModuleCall&) {
    const Dictionary changes = dictionaryOfJSON(json, length);
    try {
      updateRemoteConfiguration(changes);
    } catch (const ValueError& error) {
      fail(ZR_ERROR_CONFIGURATION, error.what());
    }
  });
}

char* zr_copy_configuration(size_t* length) {
  return guardedPointer([&] {
    const ModuleCall module;
    return copiedText(platform::jsonText(effectiveConfiguration()), length);
  });
}
