// Values on their way between Java and the library: bytes in a form that Values.java describes.
#pragma once

#include <zranalytics.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace zorvane::java {

using ValuePointer = std::unique_ptr<zr_value, decltype(&zr_value_free)>;
using PropertiesPointer = std::unique_ptr<zr_properties, decltype(&zr_properties_free)>;

// Reads bytes that Java wrote. Bytes in another form give a failure, never a read beyond their end.
class ValueReader {
 public:
  ValueReader(const char* bytes, std::size_t size) : at_(bytes), end_(bytes + size) {}

  // Null after a failure, which is zr_last_status, or ZR_ERROR_ARGUMENT for bytes in another form.
  ValuePointer value() { return value(0); }
  // The attributes up to the end of the bytes.
  zr_status addTo(zr_properties* properties);

 private:
  ValuePointer value(int depth);
  ValuePointer list(int depth);
  ValuePointer map(int depth);
  bool take(std::size_t size, const char*& bytes);
  bool number(std::size_t size, std::uint64_t& number);
  bool text(std::string_view& text);
  bool real(double& number);

  const char* at_;
  const char* const end_;
};

// Appends the value in that form.
void writeValue(const zr_value* value, std::string& bytes);

}  // namespace zorvane::java
