// Appends single JSON values to out, for writers that have no Value; objects with JSON of their own.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Quoted and escaped; the text must be valid UTF-8.
void appendJSONString(std::string_view text, std::string& out);
// null for not-a-number and infinity.
void appendJSONDouble(double number, std::string& out);
void appendJSONInteger(std::int64_t number, std::string& out);
// null for a date outside the years 1 to 9999.
void appendJSONDate(Date date, std::string& out);
void appendJSONData(std::span<const std::uint8_t> bytes, std::string& out);

// An object that writes its own JSON. Comparison and description use its plain value. Any thread.
class LazyJSON : public ObjectOf<LazyJSON> {
 public:
  virtual void appendTo(std::string& out) const = 0;
  std::string description() const final { return plainValue().description(); }
  bool isEqual(const Object& other) const final { return this == &other || plainValue() == other.plainValue(); }
};

}  // namespace zorvane::platform
