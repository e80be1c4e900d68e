#include "Values.h"

#include <cstring>

namespace zorvane::java {
namespace {

// As Values.java limits it.
constexpr int kDepthLimit = 100;

ValuePointer owned(zr_value* value) {
  return {value, zr_value_free};
}

void writeNumber(std::uint64_t number, std::size_t size, std::string& bytes) {
  while (size > 0) bytes.push_back(static_cast<char>(number >> (8 * --size)));
}

void writeReal(double number, std::string& bytes) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  writeNumber(bits, sizeof bits, bytes);
}

void writeText(const void* text, std::size_t size, std::string& bytes) {
  writeNumber(size, 4, bytes);
  bytes.append(static_cast<const char*>(text), size);
}

}  // namespace

bool ValueReader::take(std::size_t size, const char*& bytes) {
  if (static_cast<std::size_t>(end_ - at_) < size) return false;
  bytes = at_;
  at_ += size;
  return true;
}

bool ValueReader::number(std::size_t size, std::uint64_t& number) {
  const char* bytes = nullptr;
  if (!take(size, bytes)) return false;
  number = 0;
  for (std::size_t i = 0; i < size; ++i) number = number << 8 | static_cast<unsigned char>(bytes[i]);
  return true;
}

bool ValueReader::text(std::string_view& text) {
  std::uint64_t size = 0;
  const char* bytes = nullptr;
  if (!number(4, size) || !take(static_cast<std::size_t>(size), bytes)) return false;
  text = {bytes, static_cast<std::size_t>(size)};
  return true;
}

bool ValueReader::real(double& real) {
  std::uint64_t bits = 0;
  if (!number(sizeof bits, bits)) return false;
  std::memcpy(&real, &bits, sizeof real);
  return true;
}

ValuePointer ValueReader::value(int depth) {
  std::uint64_t kind = 0;
  std::uint64_t integer = 0;
  double first = 0;
  double second = 0;
  std::string_view characters;
  if (!number(1, kind)) return owned(nullptr);
  switch (kind) {
    case ZR_KIND_NULL:
      return owned(zr_value_null());
    case ZR_KIND_BOOL:
      return owned(number(1, integer) ? zr_value_bool(integer != 0) : nullptr);
    case ZR_KIND_INTEGER:
      return owned(number(8, integer) ? zr_value_integer(static_cast<std::int64_t>(integer)) : nullptr);
    case ZR_KIND_DOUBLE:
      return owned(real(first) ? zr_value_double(first) : nullptr);
    case ZR_KIND_STRING:
      return owned(text(characters) ? zr_value_string(characters.data(), characters.size()) : nullptr);
    case ZR_KIND_BYTES:
      return owned(text(characters) ? zr_value_bytes(characters.data(), characters.size()) : nullptr);
    case ZR_KIND_DATE:
      return owned(real(first) ? zr_value_date(first) : nullptr);
    case ZR_KIND_URL:
      return owned(text(characters) ? zr_value_url(characters.data(), characters.size()) : nullptr);
    case ZR_KIND_LOCATION:
      return owned(real(first) && real(second) ? zr_value_location(first, second) : nullptr);
    case ZR_KIND_LIST:
      return list(depth + 1);
    case ZR_KIND_MAP:
      return map(depth + 1);
    default:
      return owned(nullptr);
  }
}

ValuePointer ValueReader::list(int depth) {
  std::uint64_t count = 0;
  if (depth > kDepthLimit || !number(4, count)) return owned(nullptr);
  ValuePointer list = owned(zr_value_list());
  for (; count > 0; --count) {
    const ValuePointer item = value(depth);
    if (!item || zr_value_append(list.get(), item.get()) != ZR_OK) return owned(nullptr);
  }
  return list;
}

ValuePointer ValueReader::map(int depth) {
  std::uint64_t count = 0;
  if (depth > kDepthLimit || !number(4, count)) return owned(nullptr);
  ValuePointer map = owned(zr_value_map());
  for (; count > 0; --count) {
    std::string_view key;
    if (!text(key)) return owned(nullptr);
    const ValuePointer item = value(depth);
    if (!item || zr_value_set(map.get(), key.data(), key.size(), item.get()) != ZR_OK) return owned(nullptr);
  }
  return map;
}

zr_status ValueReader::addTo(zr_properties* properties) {
  while (at_ != end_) {
    std::string_view name;
    const ValuePointer attribute = text(name) ? value() : owned(nullptr);
    if (!attribute) return ZR_ERROR_ARGUMENT;
    const zr_status status = zr_properties_add(properties, name.data(), name.size(), attribute.get());
    if (status != ZR_OK) return status;
  }
  return ZR_OK;
}

void writeValue(const zr_value* value, std::string& bytes) {
  const zr_kind kind = zr_value_kind(value);
  std::int64_t integer = 0;
  double first = 0;
  double second = 0;
  std::size_t size = 0;
  bytes.push_back(static_cast<char>(kind));
  switch (kind) {
    case ZR_KIND_BOOL:
    case ZR_KIND_INTEGER:
      zr_value_get_integer(value, &integer);
      writeNumber(static_cast<std::uint64_t>(integer), kind == ZR_KIND_BOOL ? 1 : 8, bytes);
      return;
    case ZR_KIND_DOUBLE:
    case ZR_KIND_DATE:
      zr_value_get_double(value, &first);
      writeReal(first, bytes);
      return;
    case ZR_KIND_STRING:
    case ZR_KIND_URL: {
      const char* const text = zr_value_get_text(value, &size);
      writeText(text, size, bytes);
      return;
    }
    case ZR_KIND_BYTES: {
      const void* const content = zr_value_get_bytes(value, &size);
      writeText(content, size, bytes);
      return;
    }
    case ZR_KIND_LOCATION:
      zr_value_get_location(value, &first, &second);
      writeReal(first, bytes);
      writeReal(second, bytes);
      return;
    case ZR_KIND_LIST:
    case ZR_KIND_MAP: {
      const std::size_t count = zr_value_count(value);
      writeNumber(count, 4, bytes);
      for (std::size_t i = 0; i < count; ++i) {
        if (kind == ZR_KIND_MAP) {
          const char* const key = zr_value_key(value, i, &size);
          writeText(key, size, bytes);
        }
        writeValue(zr_value_item(value, i), bytes);
      }
      return;
    }
    case ZR_KIND_NULL:
    case ZR_KIND_JSON:
      return;
  }
}

}  // namespace zorvane::java
