#include "Callbacks.h"

#include <cstring>
#include <new>
#include <string>

#include "Java.h"
#include "Values.h"

namespace zorvane::java {
namespace {

jlong handleOf(const void* pointer) {
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(pointer));
}

void respondWithoutJava(zr_request* request) {
  zr_request_respond(request, 0, nullptr, 0, "the request could not be handed to Java");
}

// The headers as a map.
std::string headersOf(const zr_request* request) {
  const ValuePointer headers(zr_value_map(), zr_value_free);
  for (std::size_t i = 0; const char* const name = zr_request_header_name(request, i); ++i) {
    const ValuePointer value(zr_value_string(zr_request_header_value(request, i), ZR_NUL), zr_value_free);
    zr_value_set(headers.get(), name, ZR_NUL, value.get());
  }
  std::string bytes;
  writeValue(headers.get(), bytes);
  return bytes;
}

// Puts the pairs of the bytes into the record.
void change(zr_value* record, const Bytes& bytes) {
  const ValuePointer changed = ValueReader(bytes.data(), bytes.size()).value();
  for (std::size_t i = 0; i < zr_value_count(changed.get()); ++i) {
    std::size_t length = 0;
    const char* const key = zr_value_key(changed.get(), i, &length);
    zr_value_set(record, key, length, zr_value_item(changed.get(), i));
  }
}

}  // namespace

void onLog(void* data, zr_log_kind kind, const char* message, size_t length, const char* file, int32_t line,
           const char* operation) {
  const JavaCall call;
  if (!call) return;
  const jbyteArray text = call.bytes({message, length});
  const jbyteArray fileName = text ? call.bytes(file) : nullptr;
  const jbyteArray operationName = fileName ? call.bytes(operation) : nullptr;
  if (!operationName) return;
  call->CallStaticVoidMethod(call.native(), methods().log, objectOf(data), static_cast<jint>(kind), text, fileName,
                             static_cast<jint>(line), operationName);
}

void onSend(void* data, zr_request* request) try {
  std::size_t length = 0;
  const char* const url = zr_request_url(request, &length);
  const std::string headers = headersOf(request);
  const JavaCall call;
  const jbyteArray urlBytes = call ? call.bytes({url, length}) : nullptr;
  const jbyteArray headerBytes = urlBytes ? call.bytes(headers) : nullptr;
  if (!headerBytes) return respondWithoutJava(request);
  call->CallStaticVoidMethod(call.native(), methods().send, objectOf(data), handleOf(request), urlBytes, headerBytes);
} catch (const std::bad_alloc&) {
  respondWithoutJava(request);
}

void onPost(void* data, zr_task* task) {
  const JavaCall call;
  if (call) call->CallStaticVoidMethod(call.native(), methods().post, objectOf(data), handleOf(task));
}

int onIsMainThread(void* data) {
  const JavaCall call;
  return call && call->CallStaticBooleanMethod(call.native(), methods().isMainThread, objectOf(data)) && !call.failed();
}

void onBeginBackgroundTask(void* data, uint64_t task, const char* name) {
  const JavaCall call;
  const jbyteArray bytes = call ? call.bytes(name) : nullptr;
  if (!bytes) return;
  call->CallStaticVoidMethod(call.native(), methods().beginBackgroundTask, objectOf(data), static_cast<jlong>(task),
                             bytes);
}

void onEndBackgroundTask(void* data, uint64_t task) {
  const JavaCall call;
  if (!call) return;
  call->CallStaticVoidMethod(call.native(), methods().endBackgroundTask, objectOf(data), static_cast<jlong>(task));
}

void onLocale(void* data, zr_locale_question question, const char* argument, zr_text* answer) {
  const JavaCall call;
  const jbyteArray bytes = call ? call.bytes(argument) : nullptr;
  if (!bytes) return;
  const auto text = static_cast<jbyteArray>(call->CallStaticObjectMethod(
      call.native(), methods().locale, objectOf(data), static_cast<jint>(question), bytes));
  if (call.failed() || !text) return;
  const Bytes characters(call.operator->(), text);
  if (characters.data()) zr_text_set(answer, characters.data(), characters.size());
}

int64_t onTimeZone(void* data, double seconds_since_1970) {
  const JavaCall call;
  if (!call) return 0;
  const jlong offset =
      call->CallStaticLongMethod(call.native(), methods().timeZone, objectOf(data), seconds_since_1970);
  return call.failed() ? 0 : offset;
}

zr_advertising_permission onAdvertising(void* data, zr_text* identifier) {
  const JavaCall call;
  if (!call) return ZR_ADVERTISING_UNAVAILABLE;
  const auto answer =
      static_cast<jbyteArray>(call->CallStaticObjectMethod(call.native(), methods().advertising, objectOf(data)));
  if (call.failed() || !answer) return ZR_ADVERTISING_UNAVAILABLE;
  // The permission's number, then the identifier.
  const Bytes bytes(call.operator->(), answer);
  if (bytes.size() == 0) return ZR_ADVERTISING_UNAVAILABLE;
  if (bytes.size() > 1) zr_text_set(identifier, bytes.data() + 1, bytes.size() - 1);
  return static_cast<zr_advertising_permission>(bytes.data()[0]);
}

void onCompleted(void* data, int success) {
  const JavaCall call;
  if (!call) return;
  call->CallStaticVoidMethod(call.native(), methods().completed, objectOf(data),
                             static_cast<jboolean>(success ? JNI_TRUE : JNI_FALSE));
}

void onTrigger(void* data, const char* name, size_t name_length, zr_value* record) try {
  std::string recordBytes;
  writeValue(record, recordBytes);
  const JavaCall call;
  const jbyteArray nameArray = call ? call.bytes({name, name_length}) : nullptr;
  const jbyteArray recordArray = nameArray ? call.bytes(recordBytes) : nullptr;
  if (!recordArray) return;
  const auto changed = static_cast<jbyteArray>(
      call->CallStaticObjectMethod(call.native(), methods().trigger, objectOf(data), nameArray, recordArray));
  if (call.failed() || !changed) return;
  change(record, Bytes(call.operator->(), changed));
} catch (const std::bad_alloc&) {
  // The delegate misses this event.
}

}  // namespace zorvane::java
