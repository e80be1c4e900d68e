// The native methods of Native.java.
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "Callbacks.h"
#include "Java.h"
#include "Values.h"

using namespace zorvane::java;

namespace {

template <typename Pointer>
Pointer pointerOf(jlong handle) {
  return reinterpret_cast<Pointer>(static_cast<std::intptr_t>(handle));
}

jlong handleOf(const void* pointer) {
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(pointer));
}

void throwOutOfMemory(JNIEnv* environment) {
  const jclass type = environment->FindClass("java/lang/OutOfMemoryError");
  if (type) environment->ThrowNew(type, "native memory");
}

// Runs work that allocates. If memory is short, an OutOfMemoryError is thrown.
template <typename Work>
auto guarded(JNIEnv* environment, const Work& work) -> decltype(work()) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    if (!environment->ExceptionCheck()) throwOutOfMemory(environment);
    return {};
  }
}

// Functions of the module by the kind of their arguments.

template <zr_status (*Function)()>
jint plain(JNIEnv*, jclass) {
  return Function();
}

template <zr_status (*Function)(int)>
jint flag(JNIEnv*, jclass, jboolean value) {
  return Function(value);
}

template <zr_status (*Function)(std::int64_t)>
jint number(JNIEnv*, jclass, jlong value) {
  return Function(value);
}

template <zr_status (*Function)(const char*, std::size_t)>
jint text(JNIEnv* environment, jclass, jbyteArray value) {
  const Bytes bytes(environment, value);
  return Function(bytes.data(), bytes.size());
}

template <zr_status (*Function)(const char*, std::size_t, const zr_value*)>
jint keyAndValue(JNIEnv* environment, jclass, jbyteArray key, jbyteArray value) {
  const Bytes keyBytes(environment, key);
  const Bytes valueBytes(environment, value);
  const ValuePointer decoded = ValueReader(valueBytes.data(), valueBytes.size()).value();
  if (!decoded) return ZR_ERROR_ARGUMENT;
  return Function(keyBytes.data(), keyBytes.size(), decoded.get());
}

template <zr_status (*Function)(zr_completion, void*, zr_release)>
jint completed(JNIEnv* environment, jclass, jobject completion) {
  void* const data = newReference(environment, completion);
  return Function(data ? onCompleted : nullptr, data, freeReference);
}

template <char* (*Function)(std::size_t*)>
jbyteArray copy(JNIEnv* environment, jclass) {
  std::size_t length = 0;
  char* const text = Function(&length);
  const jbyteArray result = text ? JavaCall::bytes(environment, {text, length}) : nullptr;
  zr_free(text);
  return result;
}

// The start

zr_status setTexts(JNIEnv* environment, zr_options* options, jobjectArray texts) {
  // In the order of Native.start.
  constexpr zr_status (*kSetters[])(zr_options*, const char*, std::size_t) = {
      zr_options_set_endpoint, zr_options_set_app_id, zr_options_set_folder, zr_options_set_remote_configuration};
  jsize index = 0;
  for (const auto set : kSetters) {
    const auto array = static_cast<jbyteArray>(environment->GetObjectArrayElement(texts, index++));
    if (!array) continue;
    const Bytes bytes(environment, array);
    if (const zr_status status = set(options, bytes.data(), bytes.size()); status != ZR_OK) return status;
  }
  return ZR_OK;
}

zr_status setCallbacks(JNIEnv* environment, zr_options* options, jobjectArray callbacks) {
  // In the order of Native.start.
  constexpr zr_status (*kSetters[])(zr_options*, void*) = {
      [](zr_options* to, void* data) { return zr_options_set_log(to, onLog, data, freeReference); },
      [](zr_options* to, void* data) { return zr_options_set_transport(to, onSend, data, freeReference); },
      [](zr_options* to, void* data) {
        return zr_options_set_main_loop(to, onPost, onIsMainThread, data, freeReference);
      },
      [](zr_options* to, void* data) {
        return zr_options_set_background_tasks(to, onBeginBackgroundTask, onEndBackgroundTask, data, freeReference);
      },
      [](zr_options* to, void* data) { return zr_options_set_locale(to, onLocale, data, freeReference); },
      [](zr_options* to, void* data) { return zr_options_set_time_zone(to, onTimeZone, data, freeReference); },
      [](zr_options* to, void* data) { return zr_options_set_advertising(to, onAdvertising, data, freeReference); }};
  jsize index = 0;
  for (const auto set : kSetters) {
    void* const data = newReference(environment, environment->GetObjectArrayElement(callbacks, index++));
    if (!data) continue;
    if (const zr_status status = set(options, data); status != ZR_OK) return status;
  }
  return ZR_OK;
}

jint start(JNIEnv* environment, jclass, jobjectArray texts, jobjectArray callbacks, jboolean logToStandardError,
           jint appStatus, jint state, jlong journalBytes, jdouble journalSync) {
  zr_options* const options = zr_options_new();
  zr_status status = setTexts(environment, options, texts);
  if (status == ZR_OK) status = setCallbacks(environment, options, callbacks);
  if (status == ZR_OK && logToStandardError) status = zr_options_set_log_to_stderr(options);
  if (status == ZR_OK) status = zr_options_set_app_status(options, appStatus);
  if (status == ZR_OK) status = zr_options_set_state(options, static_cast<zr_state>(state));
  if (status == ZR_OK && journalBytes >= 0) {
    status = zr_options_set_journal(options, static_cast<std::uint64_t>(journalBytes), journalSync);
  }
  if (status == ZR_OK) status = zr_start(options);
  zr_options_free(options);
  return status;
}

jint closeModule(JNIEnv* environment, jclass, jdouble seconds, jbooleanArray allSent) {
  int sent = 0;
  const zr_status status = zr_close(seconds, &sent);
  const jboolean result = sent ? JNI_TRUE : JNI_FALSE;
  environment->SetBooleanArrayRegion(allSent, 0, 1, &result);
  return status;
}

// Events

PropertiesPointer propertiesOf(const Bytes& attributes, jint size, zr_status& status) {
  PropertiesPointer properties(zr_properties_new(), zr_properties_free);
  const auto used = static_cast<std::size_t>(size);
  status = used > attributes.size() ? ZR_ERROR_ARGUMENT : ValueReader(attributes.data(), used).addTo(properties.get());
  return properties;
}

jint track(JNIEnv* environment, jclass, jbyteArray name, jbyteArray attributes, jint size) {
  const Bytes nameBytes(environment, name);
  if (size == 0) return zr_track(nameBytes.data(), nameBytes.size(), nullptr);
  zr_status status = ZR_OK;
  const PropertiesPointer properties = propertiesOf(Bytes(environment, attributes), size, status);
  return status == ZR_OK ? zr_track(nameBytes.data(), nameBytes.size(), properties.get()) : status;
}

jbyteArray eventRecord(JNIEnv* environment, jclass, jbyteArray name, jbyteArray attributes, jint size) {
  const Bytes nameBytes(environment, name);
  zr_status status = ZR_OK;
  const PropertiesPointer properties = propertiesOf(Bytes(environment, attributes), size, status);
  if (status != ZR_OK) return nullptr;
  const ValuePointer record(zr_event_record(nameBytes.data(), nameBytes.size(), properties.get()), zr_value_free);
  if (!record) return nullptr;
  return guarded(environment, [&] {
    std::string bytes;
    writeValue(record.get(), bytes);
    return JavaCall::bytes(environment, bytes);
  });
}

jint setTrigger(JNIEnv* environment, jclass, jint slot, jobject trigger) {
  void* const data = newReference(environment, trigger);
  return zr_set_trigger(static_cast<zr_trigger_slot>(slot), data ? onTrigger : nullptr, data, freeReference);
}

// Users and sources

jint setUserDate(JNIEnv* environment, jclass, jbyteArray key, jdouble seconds) {
  const Bytes bytes(environment, key);
  return zr_set_user_attribute_date(bytes.data(), bytes.size(), seconds);
}

jint setUserLocation(JNIEnv* environment, jclass, jbyteArray key, jdouble latitude, jdouble longitude) {
  const Bytes bytes(environment, key);
  return zr_set_user_attribute_location(bytes.data(), bytes.size(), latitude, longitude);
}

jint updateOptOutEvents(JNIEnv* environment, jclass, jbyteArray names) {
  const Bytes bytes(environment, names);
  const ValuePointer list = ValueReader(bytes.data(), bytes.size()).value();
  return list ? zr_update_opt_out_events(list.get()) : ZR_ERROR_ARGUMENT;
}

jint setAppId(JNIEnv* environment, jclass, jbyteArray appId, jobject completion) {
  const Bytes bytes(environment, appId);
  void* const data = newReference(environment, completion);
  return zr_set_app_id(bytes.data(), bytes.size(), data ? onCompleted : nullptr, data, freeReference);
}

using SourcePointer = std::unique_ptr<zr_source, decltype(&zr_source_free)>;

// form: as Source.java numbers them. content: a value.
SourcePointer sourceOf(JNIEnv* environment, jint form, jbyteArray content) {
  const Bytes bytes(environment, content);
  const ValuePointer value = ValueReader(bytes.data(), bytes.size()).value();
  std::size_t length = 0;
  const char* const url = zr_value_get_text(value.get(), &length);
  constexpr zr_source* (*kOfMap[])(const zr_value*) = {zr_source_from_push, zr_source_from_service_push,
                                                       zr_source_from_map};
  return {form == 0 ? zr_source_from_url(url, length) : kOfMap[form - 1](value.get()), zr_source_free};
}

// 1 or 0; a status below 0.
jint isSourceValid(JNIEnv* environment, jclass, jint form, jbyteArray content) {
  const SourcePointer source = sourceOf(environment, form, content);
  return source ? zr_source_is_valid(source.get()) : -zr_last_status();
}

jint updateSources(JNIEnv* environment, jclass, jintArray forms, jobjectArray contents) {
  return guarded(environment, [&]() -> jint {
    const jsize count = environment->GetArrayLength(forms);
    std::vector<SourcePointer> sources;
    std::vector<const zr_source*> pointers;
    for (jsize i = 0; i < count; ++i) {
      jint form = 0;
      environment->GetIntArrayRegion(forms, i, 1, &form);
      const auto content = static_cast<jbyteArray>(environment->GetObjectArrayElement(contents, i));
      sources.push_back(sourceOf(environment, form, content));
      environment->DeleteLocalRef(content);
      if (!sources.back()) return zr_last_status();
      pointers.push_back(sources.back().get());
    }
    return zr_update_sources(pointers.data(), pointers.size());
  });
}

// Conditions, requests, tasks: by their handles

jlong newCondition(JNIEnv* environment, jclass, jbyteArray json) {
  const Bytes bytes(environment, json);
  return handleOf(zr_condition_from_json(bytes.data(), bytes.size()));
}

void freeCondition(JNIEnv*, jclass, jlong condition) {
  zr_condition_free(pointerOf<zr_condition*>(condition));
}

// 1 or 0; a status below 0.
jint checkCondition(JNIEnv* environment, jclass, jlong condition, jbyteArray name, jbyteArray record) {
  const Bytes nameBytes(environment, name);
  const Bytes recordBytes(environment, record);
  const ValuePointer map = ValueReader(recordBytes.data(), recordBytes.size()).value();
  int satisfied = 0;
  const zr_status status = zr_condition_check(pointerOf<const zr_condition*>(condition), nameBytes.data(),
                                              nameBytes.size(), map.get(), &satisfied);
  return status == ZR_OK ? satisfied : -status;
}

jbyteArray requestBody(JNIEnv* environment, jclass, jlong request) {
  std::size_t length = 0;
  const char* const body = zr_request_body(pointerOf<zr_request*>(request), &length);
  return body ? JavaCall::bytes(environment, {body, length}) : nullptr;
}

// error: bytes that end with a 0, or null.
jint respond(JNIEnv* environment, jclass, jlong request, jint status, jbyteArray body, jbyteArray error) {
  const Bytes bodyBytes(environment, body);
  const Bytes errorBytes(environment, error);
  return zr_request_respond(pointerOf<zr_request*>(request), status, bodyBytes.data(), bodyBytes.size(),
                            errorBytes.data());
}

jint runTask(JNIEnv*, jclass, jlong task) {
  return zr_task_run(pointerOf<zr_task*>(task));
}

jint backgroundTaskExpired(JNIEnv*, jclass, jlong task) {
  return zr_background_task_expired(static_cast<std::uint64_t>(task));
}

jint lifecycle(JNIEnv*, jclass, jint event) {
  return zr_lifecycle(static_cast<zr_lifecycle_event>(event));
}

// Of the library

jbyteArray lastError(JNIEnv* environment, jclass) {
  return JavaCall::bytes(environment, zr_last_error());
}

jint lastStatus(JNIEnv*, jclass) {
  return zr_last_status();
}

jbyteArray version(JNIEnv* environment, jclass) {
  return JavaCall::bytes(environment, zr_version());
}

jboolean hasHttp(JNIEnv*, jclass) {
  return zr_has_http() ? JNI_TRUE : JNI_FALSE;
}

jint countReferences(JNIEnv*, jclass) {
  return liveReferences();
}

template <typename Function>
JNINativeMethod method(const char* name, const char* signature, Function* function) {
  return {const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(function)};
}

bool registerMethods(JNIEnv* environment, jclass native) {
  const JNINativeMethod all[] = {
      method("start", "([[B[Ljava/lang/Object;ZIIJD)I", start),
      method("close", "(D[Z)I", closeModule),
      method("lifecycle", "(I)I", lifecycle),
      method("enterForeground", "()I", plain<zr_enter_foreground>),
      method("enterBackground", "()I", plain<zr_enter_background>),
      method("backgroundTaskExpired", "(J)I", backgroundTaskExpired),
      method("track", "([B[BI)I", track),
      method("flush", "(Ljava/lang/Object;)I", completed<zr_flush>),
      method("disablePeriodicFlush", "()I", plain<zr_disable_periodic_flush>),
      method("setFlushInterval", "(J)I", number<zr_set_flush_interval>),
      method("setUserAttribute", "([B[B)I", keyAndValue<zr_set_user_attribute>),
      method("setUserDate", "([BD)I", setUserDate),
      method("setUserLocation", "([BDD)I", setUserLocation),
      method("login", "([B)I", text<zr_login>),
      method("setAlias", "([B)I", text<zr_set_alias>),
      method("setPushPreference", "(Z)I", flag<zr_set_push_preference>),
      method("resetUser", "(Ljava/lang/Object;)I", completed<zr_reset_user>),
      method("initNewUser", "()I", plain<zr_init_new_user>),
      method("optOutOfDataTracking", "(Z)I", flag<zr_opt_out_of_data_tracking>),
      method("optOutOfIdfvTracking", "(Z)I", flag<zr_opt_out_of_idfv_tracking>),
      method("optOutOfIdfaTracking", "(Z)I", flag<zr_opt_out_of_idfa_tracking>),
      method("updateOptOutEvents", "([B)I", updateOptOutEvents),
      method("setPushConsent", "([B[B)I", keyAndValue<zr_set_push_consent>),
      method("setSdkEnabled", "(Z)I", flag<zr_set_sdk_enabled>),
      method("appStatus", "(J)I", number<zr_app_status>),
      method("smartTriggerForAppStatus", "(J)I", number<zr_smart_trigger_for_app_status>),
      method("trackSdkVersion", "()I", plain<zr_track_sdk_version>),
      method("trackReinstall", "()I", plain<zr_track_reinstall>),
      method("updateDevice", "(Ljava/lang/Object;)I", completed<zr_update_device>),
      method("pushTokenUpdated", "()I", plain<zr_push_token_updated>),
      method("setDeviceModelAttributes", "()I", plain<zr_set_device_model_attributes>),
      method("trackLocale", "()I", plain<zr_track_locale>),
      method("trackAdvertisingIdentifier", "()I", plain<zr_track_advertising_identifier>),
      method("trackedIdfa", "()[B", copy<zr_copy_tracked_idfa>),
      method("deviceRegistration", "()[B", copy<zr_copy_device_registration>),
      method("openUrl", "([B)I", text<zr_open_url>),
      method("processUrl", "([B)I", text<zr_process_url>),
      method("isSourceValid", "(I[B)I", isSourceValid),
      method("updateSources", "([I[[B)I", updateSources),
      method("newCondition", "([B)J", newCondition),
      method("freeCondition", "(J)V", freeCondition),
      method("checkCondition", "(J[B[B)I", checkCondition),
      method("eventRecord", "([B[BI)[B", eventRecord),
      method("setTrigger", "(ILjava/lang/Object;)I", setTrigger),
      method("updateModules", "()I", plain<zr_update_modules>),
      method("sessionStarted", "()I", plain<zr_session_started>),
      method("setAppId", "([BLjava/lang/Object;)I", setAppId),
      method("updateRemoteConfiguration", "([B)I", text<zr_update_remote_configuration>),
      method("configuration", "()[B", copy<zr_copy_configuration>),
      method("requestBody", "(J)[B", requestBody),
      method("respond", "(JI[B[B)I", respond),
      method("runTask", "(J)I", runTask),
      method("lastError", "()[B", lastError),
      method("lastStatus", "()I", lastStatus),
      method("version", "()[B", version),
      method("hasHttp", "()Z", hasHttp),
      method("countReferences", "()I", countReferences),
  };
  return environment->RegisterNatives(native, all, static_cast<jint>(std::size(all))) == JNI_OK;
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void*) {
  void* pointer = nullptr;
  if (machine->GetEnv(&pointer, JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
  auto* const environment = static_cast<JNIEnv*>(pointer);
  const jclass native = environment->FindClass("com/zorvane/analytics/Native");
  if (!native || !initialise(machine, environment, native) || !registerMethods(environment, native)) return JNI_ERR;
  return JNI_VERSION_1_6;
}
