// Values made of a fuzz target's input, for targets that write before they read.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Formats/PropertyList.h"
#include "Platform/Values/Value.h"

namespace zorvane::fuzz {

// Takes an input apart from its front; zeros follow its end.
class Input {
 public:
  Input(const unsigned char* data, std::size_t size) : data_(data), size_(size) {}

  bool atEnd() const { return position_ == size_; }
  std::uint8_t byte() { return atEnd() ? std::uint8_t{0} : data_[position_++]; }
  std::uint64_t number(int bytes) {
    std::uint64_t number = 0;
    for (int i = 0; i < bytes; ++i) number = number << 8 | byte();
    return number;
  }
  // As long as its first byte says.
  std::string_view text() {
    const std::size_t length = std::min<std::size_t>(byte(), size_ - position_);
    const std::string_view text{reinterpret_cast<const char*>(data_) + position_, length};
    position_ += length;
    return text;
  }
  std::string_view rest() {
    const std::string_view rest{reinterpret_cast<const char*>(data_) + position_, size_ - position_};
    position_ = size_;
    return rest;
  }

 private:
  const unsigned char* data_;
  std::size_t size_;
  std::size_t position_ = 0;
};

// A value of the kinds that a property list holds, with so many containers above it. Dates are whole seconds of the
// years 0 to 9999 (what XML can say).
inline platform::Value propertyListValue(Input& input, int depth = 0) {
  constexpr int kMaximumDepth = 12;
  const unsigned kind = input.byte() % (depth < kMaximumDepth ? 10U : 8U);
  switch (kind) {
    case 0:
      return input.byte() % 2 == 0;
    case 1:
      return static_cast<std::int8_t>(input.byte());
    case 2:
      return static_cast<std::int64_t>(input.number(8));
    case 3:
      return std::bit_cast<double>(input.number(8));
    case 4: {
      constexpr std::int64_t kYear0 = -62167219200;
      constexpr std::int64_t kSeconds = 315569520000;
      return platform::Date{static_cast<double>(kYear0 + static_cast<std::int64_t>(input.number(5)) % kSeconds)};
    }
    case 5: {
      const std::string_view bytes = input.text();
      return platform::Data{{bytes.begin(), bytes.end()}};
    }
    case 6:
      return input.text();
    case 7:
      return std::make_shared<const platform::PropertyListUID>(static_cast<std::uint32_t>(input.number(4)));
    case 8: {
      platform::Array array;
      for (unsigned count = input.byte() % 20; array.size() < count && !input.atEnd();) {
        array.push_back(propertyListValue(input, depth + 1));
      }
      return array;
    }
    default: {
      platform::Dictionary dictionary;
      for (unsigned count = input.byte() % 40, i = 0; i < count && !input.atEnd(); ++i) {
        const std::string_view key = input.text();
        dictionary.set(key, propertyListValue(input, depth + 1));
      }
      return dictionary;
    }
  }
}

}  // namespace zorvane::fuzz
