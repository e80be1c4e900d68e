// ZR_PUBLIC marks what a shared library of the package exports.
#pragma once

#if defined(ZR_SHARED_LIBRARY)
#define ZR_PUBLIC __attribute__((visibility("default")))
#else
#define ZR_PUBLIC
#endif
