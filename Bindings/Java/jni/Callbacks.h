// The library's callbacks, which call the static methods of Native.java. Their data is a reference to an object of the
// host (Java.h), which the library releases.
#pragma once

#include <zranalytics.h>

namespace zorvane::java {

void onLog(void* data, zr_log_kind kind, const char* message, size_t length, const char* file, int32_t line,
           const char* operation);
void onSend(void* data, zr_request* request);
void onPost(void* data, zr_task* task);
int onIsMainThread(void* data);
void onBeginBackgroundTask(void* data, uint64_t task, const char* name);
void onEndBackgroundTask(void* data, uint64_t task);
void onLocale(void* data, zr_locale_question question, const char* argument, zr_text* answer);
int64_t onTimeZone(void* data, double seconds_since_1970);
zr_advertising_permission onAdvertising(void* data, zr_text* identifier);
void onCompleted(void* data, int success);
void onTrigger(void* data, const char* name, size_t name_length, zr_value* record);

}  // namespace zorvane::java
