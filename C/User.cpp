#include "C/Handles.h"
#include "C/Module.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::c {
namespace {

// makeValue() is called within the call of the module.
template <typename MakeValue>
zr_status setAttribute(const char* key, std::size_t length, const MakeValue& makeValue) {
  return callModule([&](const ModuleCall& module) {
    const std::string_view name = textOf(key, length, "key");
    module->setUserAttributeForKey(makeValue(), name);
  });
}

}  // namespace
}  // namespace zorvane::c

using namespace zorvane;
using namespace zorvane::c;

zr_status zr_set_user_attribute(const char* key, size_t key_length, const zr_value* value) {
  return setAttribute(key, key_length, [&] {
    const Value& attribute = valueArgument(value, "value");
    require(attribute.isString() || attribute.isNumber(), "the value is neither text, number nor boolean");
    return attribute;
  });
}

zr_status zr_set_user_attribute_string(const char* key, size_t key_length, const char* text, size_t length) {
  return setAttribute(key, key_length, [&] { return Value(textOf(text, length, "text")); });
}

zr_status zr_set_user_attribute_bool(const char* key, size_t key_length, int boolean) {
  return setAttribute(key, key_length, [&] { return Value(boolean != 0); });
}

zr_status zr_set_user_attribute_integer(const char* key, size_t key_length, int64_t integer) {
  return setAttribute(key, key_length, [&] { return Value(integer); });
}

zr_status zr_set_user_attribute_double(const char* key, size_t key_length, double number) {
  return setAttribute(key, key_length, [&] { return Value(number); });
}

zr_status zr_set_user_attribute_date(const char* key, size_t key_length, double seconds_since_1970) {
  return callModule([&](const ModuleCall& module) {
    module->setUserAttributeDateForKey(Date{seconds_since_1970}, textOf(key, key_length, "key"));
  });
}

zr_status zr_set_user_attribute_iso_date(const char* key, size_t key_length, const char* text, size_t length) {
  return callModule([&](const ModuleCall& module) {
    const std::string_view name = textOf(key, key_length, "key");
    module->setUserAttributeDateForKey(isoDateOf(text, length), name);
  });
}

zr_status zr_set_user_attribute_location(const char* key, size_t key_length, double latitude, double longitude) {
  return callModule([&](const ModuleCall& module) {
    module->setUserAttributeLocationLatitudeLongitudeForKey(latitude, longitude, textOf(key, key_length, "key"));
  });
}

zr_status zr_login(const char* unique_id, size_t length) {
  return callModule([&](const ModuleCall& module) {
    module->setUserAttributeForKey(textOf(unique_id, length, "unique_id"), USER_ATTRIBUTE_UNIQUE_ID);
  });
}

zr_status zr_set_alias(const char* unique_id, size_t length) {
  return callModule([&](const ModuleCall& module) { module->setAlias(textOf(unique_id, length, "unique_id")); });
}

zr_status zr_set_push_preference(int wanted) {
  return callModule([&](const ModuleCall& module) { module->trackUserPushPreference(wanted != 0); });
}

zr_status zr_reset_user(zr_completion completion, void* data, zr_release release) {
  return guarded([&] {
    const HostDataPointer hostData = HostData::make(data, release);
    ModuleCall()->resetUserWithCompletionBlock(completionOf(completion, hostData));
  });
}

zr_status zr_init_new_user(void) {
  return callModule([](const ModuleCall& module) { module->initNewUser(); });
}

zr_status zr_opt_out_of_data_tracking(int opt_out) {
  return callModule([&](const ModuleCall& module) { module->optOutOfDataTracking(opt_out != 0); });
}

zr_status zr_opt_out_of_idfv_tracking(int opt_out) {
  return callModule([&](const ModuleCall& module) { module->optOutOfIDFVTracking(opt_out != 0); });
}

zr_status zr_opt_out_of_idfa_tracking(int opt_out) {
  return callModule([&](const ModuleCall& module) { module->optOutOfIDFATracking(opt_out != 0); });
}

zr_status zr_update_opt_out_events(const zr_value* names) {
  return callModule([&](const ModuleCall& module) {
    const Array* const list = valueArgument(names, "names").asArray();
    require(list != nullptr, "names is no list");
    module->updateOptOutEvents(*list);
  });
}

zr_status zr_set_push_consent(const char* key, size_t key_length, const zr_value* value) {
  return callModule([&](const ModuleCall& module) {
    const std::string_view name = textOf(key, key_length, "key");
    module->setPushGDPROptOutStatusForKey(valueArgument(value, "value"), name);
  });
}

zr_status zr_set_sdk_enabled(int enabled) {
  return callModule([&](const ModuleCall& module) {
    setSDKEnabled(enabled != 0);
    module->zorvaneSDKStateUpdated();
  });
}
