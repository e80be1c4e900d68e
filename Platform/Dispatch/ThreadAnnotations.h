// Clang's thread-safety attributes; nothing on other compilers.
#pragma once

#if defined(__clang__)
#define ZR_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZR_THREAD_ATTRIBUTE(x)
#endif

#define ZR_CAPABILITY(name) ZR_THREAD_ATTRIBUTE(capability(name))
#define ZR_SCOPED_CAPABILITY ZR_THREAD_ATTRIBUTE(scoped_lockable)
#define ZR_GUARDED_BY(x) ZR_THREAD_ATTRIBUTE(guarded_by(x))
#define ZR_REQUIRES(...) ZR_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZR_EXCLUDES(...) ZR_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZR_ACQUIRE(...) ZR_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZR_RELEASE(...) ZR_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZR_ASSERT_CAPABILITY(x) ZR_THREAD_ATTRIBUTE(assert_capability(x))
