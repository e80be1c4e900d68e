#include "C/Errors.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "Platform/Text/Utf8.h"
#include "Platform/Values/Value.h"
#include "ZRAnalytics/ZRVersion.h"

namespace zorvane::c {
namespace {

// Without destructors: a thread may call the library while it ends.
thread_local zr_status lastStatus = ZR_OK;
thread_local char lastError[256] = "";

zr_status setError(zr_status status, std::string_view message) noexcept {
  lastStatus = status;
  std::size_t size = std::min(message.size(), sizeof lastError - 1);
  // Not within a character.
  while (size > 0 && size < message.size() && (static_cast<unsigned char>(message[size]) & 0xC0) == 0x80) --size;
  std::memcpy(lastError, message.data(), size);
  lastError[size] = '\0';
  return status;
}

}  // namespace

void fail(zr_status status, std::string message) {
  throw Failure{status, std::move(message)};
}

void requireArgument(const void* pointer, const char* name) {
  if (!pointer) fail(ZR_ERROR_ARGUMENT, std::string(name) + " is NULL");
}

std::string_view textOf(const char* text, std::size_t length, const char* name) {
  requireArgument(text, name);
  const std::string_view result = length == ZR_NUL ? std::string_view(text) : std::string_view(text, length);
  if (!platform::isValidUtf8(result)) fail(ZR_ERROR_UTF8, std::string(name) + " is not UTF-8");
  return result;
}

zr_status statusOfException() noexcept {
  try {
    throw;
  } catch (const Failure& failure) {
    return setError(failure.status, failure.message);
  } catch (const platform::ValueError& error) {
    return setError(ZR_ERROR_ARGUMENT, error.what());
  } catch (const std::exception& exception) {
    return setError(ZR_ERROR_SYSTEM, exception.what());
  } catch (...) {
    return setError(ZR_ERROR_SYSTEM, "unknown exception");
  }
}

char* copiedText(std::string_view text, std::size_t* length) {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  if (length) *length = text.size();
  return copy;
}

}  // namespace zorvane::c

using namespace zorvane::c;

zr_status zr_last_status(void) {
  return lastStatus;
}

const char* zr_last_error(void) {
  return lastError;
}

const char* zr_version(void) {
  return ZRANALYTICS_VERSION;
}

void zr_free(void* text) {
  std::free(text);
}
