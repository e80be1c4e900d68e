// Immutable text: the keys of dictionaries and the text of values.
#pragma once

#include <array>
#include <atomic>
#include <compare>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Platform/Export.h"

namespace zorvane::platform {

// 16 bytes. Text of up to 15 bytes stands inside; longer text is shared by its copies.
class ZR_PUBLIC Text {
 public:
  // What copyTo() may write behind the text.
  static constexpr std::size_t kCopyRoom = 16;

  // Empty.
  Text() noexcept : bytes_{} { setEmpty(); }
  // Any bytes.
  explicit Text(std::string_view text);
  Text(const Text& other) noexcept : bytes_(other.bytes_) {
    if (isShared()) shared().holders.fetch_add(1, std::memory_order_relaxed);
  }
  // Leaves empty text behind.
  Text(Text&& other) noexcept : bytes_(other.bytes_) { other.setEmpty(); }
  Text& operator=(Text other) noexcept {
    const auto bytes = bytes_;
    bytes_ = other.bytes_;
    other.bytes_ = bytes;
    return *this;
  }
  ~Text() { release(); }

  // As of std::string. What data() and c_str() return is valid until this Text is changed or moved.
  std::size_t size() const noexcept { return isShared() ? shared().size : kInside - static_cast<std::size_t>(tag()); }
  bool empty() const noexcept { return size() == 0; }
  const char* data() const noexcept ZR_LIFETIME_BOUND {
    return isShared() ? reinterpret_cast<const char*>(&shared() + 1) : bytes_.data();
  }
  const char* c_str() const noexcept ZR_LIFETIME_BOUND { return data(); }
  std::string_view view() const noexcept ZR_LIFETIME_BOUND { return {data(), size()}; }
  // Copies the text, without a zero byte, and returns its end there. May write kCopyRoom bytes more.
  char* copyTo(char* to) const noexcept {
    // Of any Text so many bytes can be read.
    const std::string_view text = view();
    std::memcpy(to, text.data(), kCopyRoom);
    if (text.size() > kCopyRoom) std::memcpy(to + kCopyRoom, text.data() + kCopyRoom, text.size() - kCopyRoom);
    return to + text.size();
  }
  const char* begin() const noexcept ZR_LIFETIME_BOUND { return data(); }
  const char* end() const noexcept ZR_LIFETIME_BOUND { return data() + size(); }
  operator std::string_view() const noexcept ZR_LIFETIME_BOUND { return view(); }
  // A copy.
  operator std::string() const { return std::string(view()); }

  // The same bytes.
  friend bool operator==(const Text& left, const Text& right) noexcept { return left.view() == right.view(); }
  // The same bytes.
  friend bool operator==(const Text& left, std::string_view right) noexcept { return left.view() == right; }
  // By bytes.
  friend auto operator<=>(const Text& left, const Text& right) noexcept { return left.view().compare(right) <=> 0; }
  // By bytes.
  friend auto operator<=>(const Text& left, std::string_view right) noexcept {
    return left.view().compare(right) <=> 0;
  }
  // Writes the bytes.
  template <typename Traits>
  friend std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out, const Text& text) {
    return out << text.view();
  }

 private:
  // In front of shared text, which ends with a zero byte.
  struct Shared {
    std::atomic<std::size_t> holders;
    std::size_t size;
  };
  static constexpr std::size_t kInside = 15;
  static constexpr char kSharedTag = 16;

  // kInside less the size, which is the zero byte behind text of 15 bytes; or kSharedTag.
  char tag() const noexcept { return bytes_[kInside]; }
  bool isShared() const noexcept { return tag() == kSharedTag; }
  Shared& shared() const noexcept {
    Shared* shared = nullptr;
    std::memcpy(&shared, bytes_.data(), sizeof(void*));
    return *shared;
  }
  void setEmpty() noexcept {
    bytes_[0] = 0;
    bytes_[kInside] = kInside;
  }
  void share(std::string_view text);
  void release() noexcept {
    if (isShared()) leaveShared();
  }
  void leaveShared() noexcept;

  // The text and a zero byte, or a pointer to Shared; at the end the tag.
  alignas(void*) std::array<char, kInside + 1> bytes_;
  static_assert(sizeof(void*) <= kInside);
};

}  // namespace zorvane::platform

namespace std {
// Of the bytes.
template <>
struct hash<zorvane::platform::Text> {
  // As of the std::string_view.
  size_t operator()(const zorvane::platform::Text& text) const noexcept { return hash<string_view>()(text.view()); }
};
}  // namespace std
