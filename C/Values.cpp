#include <utility>

#include "C/Handles.h"
#include "Platform/Formats/JSON.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZRAnalytics/Utils/ZRISODate.h"

namespace zorvane::c {
namespace {

zr_value* newValue(Value value) {
  return handleOf(new Value(std::move(value)));
}

const ZRGeoLocation* locationOf(const Value& value) {
  // The value keeps the object alive.
  return value.asObject<ZRGeoLocation>().get();
}

[[noreturn]] void failKind(const char* wanted) {
  fail(ZR_ERROR_ARGUMENT, std::string("the value is no ") + wanted);
}

}  // namespace

const Value& valueArgument(const zr_value* value, const char* name) {
  requireArgument(value, name);
  return *valueOf(value);
}

const Dictionary& mapArgument(const zr_value* value, const char* name) {
  const Dictionary* const map = valueArgument(value, name).asDictionary();
  if (!map) fail(ZR_ERROR_ARGUMENT, std::string(name) + " is no map");
  return *map;
}

Value valueOfJSON(const char* json, std::size_t length) {
  auto parsed = platform::parseJSON(textOf(json, length, "json"));
  if (!parsed) fail(ZR_ERROR_JSON, parsed.error().message);
  return std::move(parsed).value();
}

Dictionary withNames(Dictionary attributes) {
  for (const auto& [name, value] : attributes) require(!name.empty(), "the name is empty");
  return attributes;
}

Dictionary dictionaryOfJSON(const char* json, std::size_t length) {
  Value value = valueOfJSON(json, length);
  if (!value.isDictionary()) fail(ZR_ERROR_JSON, "the JSON text is no object");
  return std::move(value.mutableDictionary());
}

Value dataOf(const void* bytes, std::size_t size) {
  if (size > 0) requireArgument(bytes, "bytes");
  const auto* const first = static_cast<const std::uint8_t*>(bytes);
  return Data{std::vector<std::uint8_t>(first, first + size)};
}

Date isoDateOf(const char* text, std::size_t length) {
  const auto date = dateOfISOText(textOf(text, length, "text"));
  if (!date) fail(ZR_ERROR_ARGUMENT, "the text is no ISO 8601 date in UTC");
  return *date;
}

}  // namespace zorvane::c

using namespace zorvane;
using namespace zorvane::c;

zr_value* zr_value_null(void) {
  return guardedPointer([] { return newValue(platform::null); });
}

zr_value* zr_value_bool(int boolean) {
  return guardedPointer([&] { return newValue(boolean != 0); });
}

zr_value* zr_value_integer(int64_t integer) {
  return guardedPointer([&] { return newValue(integer); });
}

zr_value* zr_value_double(double number) {
  return guardedPointer([&] { return newValue(number); });
}

zr_value* zr_value_string(const char* text, size_t length) {
  return guardedPointer([&] { return newValue(textOf(text, length, "text")); });
}

zr_value* zr_value_bytes(const void* bytes, size_t size) {
  return guardedPointer([&] { return newValue(dataOf(bytes, size)); });
}

zr_value* zr_value_date(double seconds_since_1970) {
  return guardedPointer([&] { return newValue(Date{seconds_since_1970}); });
}

zr_value* zr_value_url(const char* text, size_t length) {
  return guardedPointer([&] { return newValue(URL{std::string(textOf(text, length, "text"))}); });
}

zr_value* zr_value_location(double latitude, double longitude) {
  return guardedPointer([&] { return newValue(ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude)); });
}

zr_value* zr_value_list(void) {
  return guardedPointer([] { return newValue(Array()); });
}

zr_value* zr_value_map(void) {
  return guardedPointer([] { return newValue(Dictionary()); });
}

zr_value* zr_value_from_json(const char* json, size_t length) {
  return guardedPointer([&] { return newValue(valueOfJSON(json, length)); });
}

void zr_value_free(zr_value* value) {
  delete valueOf(value);
}

zr_status zr_value_append(zr_value* list, const zr_value* item) {
  return guarded([&] {
    if (!valueArgument(list, "list").isArray()) failKind("list");
    Value copy = valueArgument(item, "item");
    valueOf(list)->mutableArray().push_back(std::move(copy));
  });
}

zr_status zr_value_set(zr_value* map, const char* key, size_t key_length, const zr_value* item) {
  return guarded([&] {
    mapArgument(map, "map");
    Value copy = valueArgument(item, "item");
    valueOf(map)->mutableDictionary().set(textOf(key, key_length, "key"), std::move(copy));
  });
}

zr_kind zr_value_kind(const zr_value* value) {
  if (!value) return ZR_KIND_NULL;
  switch (valueOf(value)->kind()) {
    case Value::Kind::Bool:
      return ZR_KIND_BOOL;
    case Value::Kind::Integer:
      return ZR_KIND_INTEGER;
    case Value::Kind::Double:
      return ZR_KIND_DOUBLE;
    case Value::Kind::String:
      return ZR_KIND_STRING;
    case Value::Kind::Data:
      return ZR_KIND_BYTES;
    case Value::Kind::Date:
      return ZR_KIND_DATE;
    case Value::Kind::URL:
      return ZR_KIND_URL;
    case Value::Kind::Array:
      return ZR_KIND_LIST;
    case Value::Kind::Dictionary:
      return ZR_KIND_MAP;
    case Value::Kind::Object:
      return ZR_KIND_LOCATION;  // hosts cannot make other objects
    case Value::Kind::Nil:
    case Value::Kind::Null:
      break;
  }
  return ZR_KIND_NULL;
}

zr_status zr_value_get_integer(const zr_value* value, int64_t* integer) {
  return guarded([&] {
    const Value& found = valueArgument(value, "value");
    requireArgument(integer, "integer");
    if (!found.asBool() && !found.asInteger()) failKind("integer");
    *integer = found.integerValue();
  });
}

zr_status zr_value_get_double(const zr_value* value, double* number) {
  return guarded([&] {
    const Value& found = valueArgument(value, "value");
    requireArgument(number, "number");
    const Date* const date = found.asDate();
    if (!date && !found.isNumber()) failKind("number");
    *number = date ? date->secondsSince1970 : found.doubleValue();
  });
}

zr_status zr_value_get_location(const zr_value* value, double* latitude, double* longitude) {
  return guarded([&] {
    const ZRGeoLocation* const location = locationOf(valueArgument(value, "value"));
    if (!location) failKind("location");
    requireArgument(latitude, "latitude");
    requireArgument(longitude, "longitude");
    *latitude = location->latitude();
    *longitude = location->longitude();
  });
}

const char* zr_value_get_text(const zr_value* value, size_t* length) {
  return guardedPointer([&] {
    const Value& found = valueArgument(value, "value");
    const platform::Text* const text = found.asString();
    const URL* const url = found.asURL();
    if (!text && !url) failKind("string or URL");
    if (length) *length = text ? text->size() : url->absoluteString.size();
    return text ? text->c_str() : url->absoluteString.c_str();
  });
}

const void* zr_value_get_bytes(const zr_value* value, size_t* size) {
  return guardedPointer([&]() -> const void* {
    const Data* const data = valueArgument(value, "value").asData();
    if (!data) failKind("bytes");
    if (size) *size = data->bytes.size();
    return data->bytes.empty() ? static_cast<const void*>("") : data->bytes.data();
  });
}

size_t zr_value_count(const zr_value* container) {
  if (!container) return 0;
  const Value& value = *valueOf(container);
  if (const Array* const list = value.asArray()) return list->size();
  const Dictionary* const map = value.asDictionary();
  return map ? map->size() : 0;
}

const zr_value* zr_value_item(const zr_value* container, size_t index) {
  if (index >= zr_value_count(container)) return nullptr;
  if (const Array* const list = valueOf(container)->asArray()) return handleOf(&(*list)[index]);
  return handleOf(&valueOf(container)->asDictionary()->begin()[static_cast<std::ptrdiff_t>(index)].value);
}

const char* zr_value_key(const zr_value* map, size_t index, size_t* length) {
  if (zr_value_kind(map) != ZR_KIND_MAP || index >= zr_value_count(map)) return nullptr;
  const platform::Text& key = valueOf(map)->asDictionary()->begin()[static_cast<std::ptrdiff_t>(index)].key;
  if (length) *length = key.size();
  return key.c_str();
}

const zr_value* zr_value_find(const zr_value* map, const char* key, size_t key_length) {
  return guardedPointer([&] { return handleOf(mapArgument(map, "map").find(textOf(key, key_length, "key"))); });
}

char* zr_value_to_json(const zr_value* value, size_t* length) {
  return guardedPointer([&] { return copiedText(platform::jsonText(valueArgument(value, "value")), length); });
}
