// How the C functions report errors: inside, a Failure is thrown; at the boundary it becomes a status and a message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "C/zranalytics.h"

namespace zorvane::c {

struct Failure {
  zr_status status;
  std::string message;
};

// Throws.
[[noreturn]] void fail(zr_status status, std::string message);
// Throws ZR_ERROR_ARGUMENT with this message if the condition is false.
inline void require(bool condition, const char* message) {
  if (!condition) fail(ZR_ERROR_ARGUMENT, message);
}
// Throws ZR_ERROR_ARGUMENT for null. The name is that of the argument.
void requireArgument(const void* pointer, const char* name);
// The text of an argument. Throws for null and for what is not UTF-8.
std::string_view textOf(const char* text, std::size_t length, const char* name);

// Sets the thread's last error from the exception in flight and returns its status. Within a catch block only.
zr_status statusOfException() noexcept;

// Runs the work; what it throws becomes the status.
template <typename Work>
zr_status guarded(const Work& work) noexcept {
  try {
    work();
    return ZR_OK;
  } catch (...) {
    return statusOfException();
  }
}

// The result of the work; null if it throws.
template <typename Work>
auto guardedPointer(const Work& work) noexcept -> decltype(work()) {
  try {
    return work();
  } catch (...) {
    statusOfException();
    return nullptr;
  }
}

// A copy of the text that zr_free frees.
char* copiedText(std::string_view text, std::size_t* length);

}  // namespace zorvane::c
