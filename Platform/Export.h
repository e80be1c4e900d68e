// ZR_PUBLIC marks what a shared library of the package exports. ZR_LIFETIME_BOUND: the result of an operation is valid
// while its object lives; clang warns when that is a temporary one.
#pragma once

#if defined(ZR_SHARED_LIBRARY)
#define ZR_PUBLIC __attribute__((visibility("default")))
#else
#define ZR_PUBLIC
#endif

#if defined(__clang__)
#define ZR_LIFETIME_BOUND [[clang::lifetimebound]]
#else
#define ZR_LIFETIME_BOUND
#endif
