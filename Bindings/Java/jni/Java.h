// The Java virtual machine, seen from any thread.
#pragma once

#include <jni.h>
#include <zranalytics.h>

#include <atomic>
#include <cstddef>
#include <string_view>

namespace zorvane::java {

// The static methods of Native.java that are called from here.
struct Methods {
  jmethodID log, send, post, isMainThread, beginBackgroundTask, endBackgroundTask, locale, timeZone, advertising,
      completed, trigger;
};

// Called by JNI_OnLoad. False: a class or method is missing.
bool initialise(JavaVM* machine, JNIEnv* environment, jclass native);
const Methods& methods();

// A call into Java on any thread. An unknown thread is attached as a daemon until it ends. Local references are freed
// with this object, and an exception that Native.java let through is printed and dropped.
class JavaCall {
 public:
  JavaCall();
  ~JavaCall();
  JavaCall(const JavaCall&) = delete;
  JavaCall& operator=(const JavaCall&) = delete;

  // False: the virtual machine has ended, or memory is short. Do not call.
  explicit operator bool() const { return environment_ != nullptr; }
  JNIEnv* operator->() const { return environment_; }
  jclass native() const;
  // Null after an exception.
  jbyteArray bytes(std::string_view text) const { return bytes(environment_, text); }
  static jbyteArray bytes(JNIEnv* environment, std::string_view text);
  // Whether the last call threw, or a reference could not be made. The exception is dropped.
  bool failed() const;

 private:
  JNIEnv* environment_ = nullptr;
};

// The bytes of an array, as long as this object lives. Null for a null array.
class Bytes {
 public:
  Bytes(JNIEnv* environment, jbyteArray array);
  ~Bytes();
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;

  const char* data() const { return reinterpret_cast<const char*>(elements_); }
  std::size_t size() const { return size_; }

 private:
  JNIEnv* const environment_;
  const jbyteArray array_;
  jbyte* const elements_;
  const std::size_t size_;
};

// A reference to an object of the host, as the data of a callback. Null if memory is short or the object is null.
void* newReference(JNIEnv* environment, jobject object);
void freeReference(void* reference);
jobject objectOf(void* reference);
// How many references live.
jint liveReferences();

}  // namespace zorvane::java
