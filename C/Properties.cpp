#include <utility>

#include "C/Handles.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"

namespace zorvane::c {
namespace {

zr_properties* newProperties(std::shared_ptr<ZRProperties> properties) {
  return new zr_properties{std::move(properties)};
}

std::string_view nameOf(const char* name, std::size_t length) {
  const std::string_view result = textOf(name, length, "name");
  require(!result.empty(), "the name is empty");
  return result;
}

ZRProperties& changeable(zr_properties* properties) {
  requireArgument(properties, "properties");
  if (properties->shared.load()) {
    properties->properties = std::make_shared<ZRProperties>(*properties->properties);
    properties->shared.store(false);
  }
  return *properties->properties;
}

// makeValue() is called first, so that a wrong value changes nothing.
template <typename MakeValue>
zr_status add(zr_properties* properties, const char* name, std::size_t length, const MakeValue& makeValue) {
  return guarded([&] {
    const std::string_view key = nameOf(name, length);
    Value value = makeValue();
    ZRProperties& changed = changeable(properties);
    if ((value.isNumber() || value.isString()) && key != kAttributeNameNonInteractive) {
      // What addAttributeWithName does with most attributes, without its cost.
      changed.attributeDict().set(key, std::move(value));
    } else {
      changed.addAttributeWithName(value, key);
    }
  });
}

template <typename Work>
zr_status change(zr_builder* builder, const Work& work) {
  return guarded([&] {
    requireArgument(builder, "builder");
    work(*builder->builder);
  });
}

}  // namespace

std::shared_ptr<const ZRProperties> sharedProperties(const zr_properties* properties) {
  if (!properties) return nullptr;
  // Most handles are tracked once, or many times unchanged: write the flag once.
  if (!properties->shared.load(std::memory_order_relaxed)) properties->shared.store(true);
  return properties->properties;
}

}  // namespace zorvane::c

using namespace zorvane;
using namespace zorvane::c;

zr_properties* zr_properties_new(void) {
  return guardedPointer([] {
    Dictionary attributes;
    attributes.reserve(8);
    return newProperties(std::make_shared<ZRProperties>(std::move(attributes)));
  });
}

zr_properties* zr_properties_from_json(const char* json, size_t length) {
  return guardedPointer(
      [&] { return newProperties(ZRProperties::initWithAttributes(withNames(dictionaryOfJSON(json, length)))); });
}

zr_properties* zr_properties_from_map(const zr_value* map) {
  return guardedPointer(
      [&] { return newProperties(ZRProperties::initWithAttributes(withNames(mapArgument(map, "map")))); });
}

void zr_properties_free(zr_properties* properties) {
  delete properties;
}

zr_status zr_properties_add(zr_properties* properties, const char* name, size_t name_length, const zr_value* value) {
  return add(properties, name, name_length, [&] { return valueArgument(value, "value"); });
}

zr_status zr_properties_add_null(zr_properties* properties, const char* name, size_t name_length) {
  return add(properties, name, name_length, [] { return Value(platform::null); });
}

zr_status zr_properties_add_bool(zr_properties* properties, const char* name, size_t name_length, int boolean) {
  return add(properties, name, name_length, [&] { return Value(boolean != 0); });
}

zr_status zr_properties_add_integer(zr_properties* properties, const char* name, size_t name_length, int64_t integer) {
  return add(properties, name, name_length, [&] { return Value(integer); });
}

zr_status zr_properties_add_double(zr_properties* properties, const char* name, size_t name_length, double number) {
  return add(properties, name, name_length, [&] { return Value(number); });
}

zr_status zr_properties_add_string(zr_properties* properties, const char* name, size_t name_length, const char* text,
                                   size_t length) {
  return add(properties, name, name_length, [&] { return Value(textOf(text, length, "text")); });
}

zr_status zr_properties_add_bytes(zr_properties* properties, const char* name, size_t name_length, const void* bytes,
                                  size_t size) {
  return add(properties, name, name_length, [&] { return dataOf(bytes, size); });
}

zr_status zr_properties_add_url(zr_properties* properties, const char* name, size_t name_length, const char* text,
                                size_t length) {
  return add(properties, name, name_length, [&] { return Value(URL{std::string(textOf(text, length, "text"))}); });
}

zr_status zr_properties_add_date(zr_properties* properties, const char* name, size_t name_length,
                                 double seconds_since_1970) {
  return add(properties, name, name_length, [&] { return Value(Date{seconds_since_1970}); });
}

zr_status zr_properties_add_iso_date(zr_properties* properties, const char* name, size_t name_length, const char* text,
                                     size_t length) {
  return add(properties, name, name_length, [&] { return Value(isoDateOf(text, length)); });
}

zr_status zr_properties_add_location(zr_properties* properties, const char* name, size_t name_length, double latitude,
                                     double longitude) {
  return add(properties, name, name_length,
             [&] { return Value(ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude)); });
}

zr_status zr_properties_set_non_interactive(zr_properties* properties, int non_interactive) {
  return guarded([&] { changeable(properties).setIsNonInteractive(non_interactive != 0); });
}

zr_builder* zr_builder_new(const zr_value* attributes) {
  return guardedPointer([&] {
    Dictionary dictionary = attributes ? withNames(mapArgument(attributes, "attributes")) : Dictionary();
    return new zr_builder{ZRPayloadBuilder::initWithDictionary(std::move(dictionary))};
  });
}

void zr_builder_free(zr_builder* builder) {
  delete builder;
}

zr_status zr_builder_set(zr_builder* builder, const char* key, size_t key_length, const zr_value* value) {
  return change(builder, [&](ZRPayloadBuilder& changed) {
    changed.eventDict()->set(nameOf(key, key_length), valueArgument(value, "value"));
    changed.checkNonInteractive();
  });
}

zr_status zr_builder_set_date(zr_builder* builder, const char* key, size_t key_length, double seconds_since_1970) {
  return change(builder, [&](ZRPayloadBuilder& changed) {
    changed.setDateForKey(Date{seconds_since_1970}, nameOf(key, key_length));
  });
}

zr_status zr_builder_set_iso_date(zr_builder* builder, const char* key, size_t key_length, const char* text,
                                  size_t length) {
  return change(builder, [&](ZRPayloadBuilder& changed) {
    changed.setDateForKey(isoDateOf(text, length), nameOf(key, key_length));
  });
}

zr_status zr_builder_set_timestamp(zr_builder* builder, const char* key, size_t key_length, double seconds_since_1970) {
  return change(builder, [&](ZRPayloadBuilder& changed) {
    require(seconds_since_1970 != 0.0, "the timestamp is 0");
    changed.setTimeStampForKey(seconds_since_1970, nameOf(key, key_length));
  });
}

zr_status zr_builder_set_location(zr_builder* builder, const char* key, size_t key_length, double latitude,
                                  double longitude) {
  return change(builder, [&](ZRPayloadBuilder& changed) {
    require(latitude != 0.0 && longitude != 0.0, "latitude or longitude is 0");
    changed.setLocationLatLngForKey(latitude, longitude, nameOf(key, key_length));
  });
}

zr_status zr_builder_set_non_interactive(zr_builder* builder) {
  return change(builder, [](ZRPayloadBuilder& changed) { changed.setNonInteractive(); });
}

zr_properties* zr_builder_properties(const zr_builder* builder) {
  return guardedPointer([&] {
    requireArgument(builder, "builder");
    auto properties = builder->builder->getProperties();
    if (!properties) fail(ZR_ERROR_ARGUMENT, "the builder's attributes make no properties; the log says why");
    return newProperties(std::move(properties));
  });
}
