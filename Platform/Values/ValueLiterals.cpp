// What an application's call runs to make the attributes of an event.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "Platform/Text/Utf8.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

Value::Value(const char* text) {
  if (text) setText(Text(text));
}
Value::Value(std::string_view text) {
  setText(Text(text));
}
Value::Value(Text text) {
  setText(std::move(text));
}

// Only for a value that is nil.
void Value::setText(Text text) {
  if (!isValidUtf8(text)) text = Text(validUtf8(std::string(text)));
  new (&text_) Text(std::move(text));
  kind_ = Kind::String;
}

void Value::take(Value& other) noexcept {
  const Kind kind = std::exchange(other.kind_, Kind::Nil);
  if (kind == Kind::String) {
    new (&text_) Text(std::move(other.text_));
    other.text_.~Text();
  } else if (isManaged(kind)) {
    new (&shared_) std::shared_ptr<const void>(std::move(other.shared_));
    other.shared_.~shared_ptr();
  } else {
    std::memcpy(&integer_, &other.integer_, sizeof integer_);
  }
  kind_ = kind;
}

Dictionary::Dictionary(std::initializer_list<Pair> pairs) {
  reserve(pairs.size());
  // One bit for each key so far. Keys with different bits are different, so most need no comparison.
  std::uint64_t bits = 0;
  for (const Pair& pair : pairs) {
    if (pair.value.isNil()) continue;
    const std::string_view key = pair.key;
    const std::uint64_t bit =
        key.empty() ? 1 : std::uint64_t{1} << ((key.size() + 8U * static_cast<unsigned char>(key.back())) % 64);
    if ((bits & bit) == 0 && pairs.size() <= kIndexedSize && isASCII(key)) {
      entries_.emplace_back(key, std::move(pair.value));
    } else {
      put(key, std::move(pair.value));
    }
    bits |= bit;
  }
}

}  // namespace zorvane::platform
