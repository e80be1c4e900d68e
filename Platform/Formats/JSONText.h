// JSON of texts without a Value, and objects that write their own JSON.
#pragma once

#include <string>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Appends the text to out, quoted and escaped. It must be valid UTF-8.
void appendJSONString(std::string_view text, std::string& out);

// An object that writes its own JSON. Comparison and description use its plain value. Any thread.
class LazyJSON : public ObjectOf<LazyJSON> {
 public:
  virtual void appendTo(std::string& out) const = 0;
  std::string description() const final { return plainValue().description(); }
  bool isEqual(const Object& other) const final { return this == &other || plainValue() == other.plainValue(); }
};

}  // namespace zorvane::platform
