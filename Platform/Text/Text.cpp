#include "Platform/Text/Text.h"

#include <new>

namespace zorvane::platform {
namespace {

// Up to 15 bytes. Two copies of a fixed size take less time than a call of memcpy.
inline void copyShort(char* to, std::string_view text) {
  const std::size_t size = text.size();
  const char* const from = text.data();
  if (size >= 8) {
    std::memcpy(to, from, 8);
    std::memcpy(to + size - 8, from + size - 8, 8);
  } else if (size >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + size - 4, from + size - 4, 4);
  } else if (size > 0) {
    to[0] = from[0];
    to[size / 2] = from[size / 2];
    to[size - 1] = from[size - 1];
  }
}

}  // namespace

Text::Text(std::string_view text) : bytes_{} {
  if (text.size() > kInside) {
    share(text);
  } else {
    bytes_[kInside] = static_cast<char>(kInside - text.size());
    copyShort(bytes_.data(), text);
  }
}

void Text::share(std::string_view text) {
  auto* const shared = new (::operator new(sizeof(Shared) + text.size() + 1)) Shared{1, text.size()};
  std::memcpy(bytes_.data(), &shared, sizeof(void*));
  bytes_[kInside] = kSharedTag;
  char* const copy = reinterpret_cast<char*>(shared + 1);
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = 0;
}

void Text::leaveShared() noexcept {
  Shared& last = shared();
  if (last.holders.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(&last);
}

}  // namespace zorvane::platform
