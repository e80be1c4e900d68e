#include "Java.h"

#include <pthread.h>

namespace zorvane::java {
namespace {

// Set once, before any other function is called.
JavaVM* machine = nullptr;
jclass nativeClass = nullptr;
Methods found{};
pthread_key_t attachedThread;

std::atomic<jint> references{0};

// More than any call into Java makes.
constexpr jint kLocalReferences = 16;

void detach(void*) {
  machine->DetachCurrentThread();
}

// Null if the virtual machine has ended.
JNIEnv* environmentOfThread() {
  void* environment = nullptr;
  if (machine->GetEnv(&environment, JNI_VERSION_1_6) == JNI_OK) return static_cast<JNIEnv*>(environment);
  char name[] = "zranalytics";
  JavaVMAttachArgs arguments{JNI_VERSION_1_6, name, nullptr};
#if defined(__ANDROID__)
  JNIEnv* attached = nullptr;
  if (machine->AttachCurrentThreadAsDaemon(&attached, &arguments) != JNI_OK) return nullptr;
  environment = attached;
#else
  if (machine->AttachCurrentThreadAsDaemon(&environment, &arguments) != JNI_OK) return nullptr;
#endif
  // Any value but null: the key's destructor runs when the thread ends.
  pthread_setspecific(attachedThread, environment);
  return static_cast<JNIEnv*>(environment);
}

}  // namespace

bool initialise(JavaVM* javaMachine, JNIEnv* environment, jclass native) {
  machine = javaMachine;
  nativeClass = static_cast<jclass>(environment->NewGlobalRef(native));
  if (!nativeClass || pthread_key_create(&attachedThread, detach) != 0) return false;
  const struct {
    jmethodID Methods::*method;
    const char* name;
    const char* signature;
  } rows[] = {
      {&Methods::log, "log", "(Ljava/lang/Object;I[B[BI[B)V"},
      {&Methods::send, "send", "(Ljava/lang/Object;J[B[B)V"},
      {&Methods::post, "post", "(Ljava/lang/Object;J)V"},
      {&Methods::isMainThread, "isMainThread", "(Ljava/lang/Object;)Z"},
      {&Methods::beginBackgroundTask, "beginBackgroundTask", "(Ljava/lang/Object;J[B)V"},
      {&Methods::endBackgroundTask, "endBackgroundTask", "(Ljava/lang/Object;J)V"},
      {&Methods::locale, "locale", "(Ljava/lang/Object;I[B)[B"},
      {&Methods::timeZone, "timeZone", "(Ljava/lang/Object;D)J"},
      {&Methods::advertising, "advertising", "(Ljava/lang/Object;)[B"},
      {&Methods::completed, "completed", "(Ljava/lang/Object;Z)V"},
      {&Methods::trigger, "trigger", "(Ljava/lang/Object;[B[B)[B"},
  };
  for (const auto& row : rows) {
    found.*row.method = environment->GetStaticMethodID(nativeClass, row.name, row.signature);
    if (!(found.*row.method)) return false;
  }
  return true;
}

const Methods& methods() {
  return found;
}

JavaCall::JavaCall() : environment_(environmentOfThread()) {
  if (!environment_ || environment_->PushLocalFrame(kLocalReferences) == 0) return;
  failed();
  environment_ = nullptr;
}

JavaCall::~JavaCall() {
  if (!environment_) return;
  failed();
  environment_->PopLocalFrame(nullptr);
}

jclass JavaCall::native() const {
  return nativeClass;
}

jbyteArray JavaCall::bytes(JNIEnv* environment, std::string_view text) {
  const auto size = static_cast<jsize>(text.size());
  const jbyteArray array = environment->NewByteArray(size);
  if (array) environment->SetByteArrayRegion(array, 0, size, reinterpret_cast<const jbyte*>(text.data()));
  return array;
}

bool JavaCall::failed() const {
  if (!environment_->ExceptionCheck()) return false;
  environment_->ExceptionDescribe();
  environment_->ExceptionClear();
  return true;
}

Bytes::Bytes(JNIEnv* environment, jbyteArray array)
    : environment_(environment),
      array_(array),
      elements_(array ? environment->GetByteArrayElements(array, nullptr) : nullptr),
      size_(elements_ ? static_cast<std::size_t>(environment->GetArrayLength(array)) : 0) {}

Bytes::~Bytes() {
  if (elements_) environment_->ReleaseByteArrayElements(array_, elements_, JNI_ABORT);
}

void* newReference(JNIEnv* environment, jobject object) {
  const jobject reference = object ? environment->NewGlobalRef(object) : nullptr;
  if (reference) ++references;
  return reference;
}

void freeReference(void* reference) {
  if (!reference) return;
  if (const JavaCall call; call) call->DeleteGlobalRef(objectOf(reference));
  --references;
}

jobject objectOf(void* reference) {
  return static_cast<jobject>(reference);
}

jint liveReferences() {
  return references;
}

}  // namespace zorvane::java
