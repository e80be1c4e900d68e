// Values, events and errors of the C API.
#include <filesystem>
#include <string>

#include "C/CApiTest.h"

namespace zorvane::testing {
namespace {

std::string jsonOf(const zr_value* value) {
  const Json json(zr_value_to_json(value, nullptr), zr_free);
  return json ? json.get() : zr_last_error();
}

std::string attributesOf(const zr_value* event) {
  return jsonOf(zr_value_find(event, "EVENT_ATTRS", ZR_NUL)) + jsonOf(zr_value_find(event, "EVENT_ATTRS_CUST", ZR_NUL));
}

TEST_F(CApi, JournalHasTheSizeThatWasSet) {
  zr_options* const made = options();
  ASSERT_EQ(zr_options_set_journal(made, 128u << 10, 0), ZR_OK);
  start(made);
  EXPECT_EQ(std::filesystem::file_size(folder_.file("Library/ZrvData/ZREventJournal")), 128u << 10);
  close();
}

TEST_F(CApi, ValuesOfEachKindAreReadBackAndWrittenAsJSON) {
  struct Row {
    zr_value* value;
    zr_kind kind;
    const char* json;
  };
  const Row rows[] = {
      {zr_value_null(), ZR_KIND_NULL, "null"},
      {zr_value_bool(7), ZR_KIND_BOOL, "true"},
      {zr_value_integer(INT64_MIN), ZR_KIND_INTEGER, "-9223372036854775808"},
      {zr_value_double(2), ZR_KIND_DOUBLE, "2.0"},
      {zr_value_string("a\0ü", 4), ZR_KIND_STRING, "\"a\\u0000ü\""},
      {zr_value_bytes("\xff\x01", 2), ZR_KIND_BYTES, "\"ff01\""},
      {zr_value_bytes(nullptr, 0), ZR_KIND_BYTES, "\"\""},
      {zr_value_date(1.5), ZR_KIND_DATE, "\"1970-01-01T00:00:01.500Z\""},
      {zr_value_url("shop://x", ZR_NUL), ZR_KIND_URL, "\"shop://x\""},
      {zr_value_location(1, -2), ZR_KIND_LOCATION, "\"1.000000,-2.000000\""},
      {zr_value_from_json(" [1, {\"a\": 2.0}] ", ZR_NUL), ZR_KIND_LIST, "[1,{\"a\":2.0}]"},
  };
  zr_value* const map = zr_value_map();
  for (const Row& row : rows) {
    EXPECT_EQ(zr_value_kind(row.value), row.kind) << row.json;
    EXPECT_EQ(jsonOf(row.value), row.json);
    EXPECT_EQ(zr_value_set(map, row.json, ZR_NUL, row.value), ZR_OK);
    EXPECT_EQ(jsonOf(zr_value_find(map, row.json, ZR_NUL)), row.json);
    zr_value_free(row.value);
  }
  EXPECT_EQ(zr_value_count(map), std::size(rows));
  size_t length = 0;
  EXPECT_STREQ(zr_value_get_text(zr_value_item(map, 4), &length), "a");
  EXPECT_EQ(length, 4U);
  EXPECT_EQ(std::string(zr_value_key(map, 4, &length)), "\"a\\u0000ü\"");
  int64_t integer = 0;
  EXPECT_EQ(zr_value_get_integer(zr_value_item(map, 2), &integer), ZR_OK);
  EXPECT_EQ(integer, INT64_MIN);
  double first = 0;
  double second = 0;
  EXPECT_EQ(zr_value_get_double(zr_value_item(map, 7), &first), ZR_OK);
  EXPECT_EQ(first, 1.5);
  EXPECT_EQ(zr_value_get_location(zr_value_item(map, 9), &first, &second), ZR_OK);
  EXPECT_EQ(second, -2);
  EXPECT_EQ(zr_value_item(map, 99), nullptr);
  zr_value_free(map);
}

// Each row is wrong in every state, for the same reason.
TEST_F(CApi, MisuseReturnsAnErrorWithAMessage) {
  zr_options* const options = zr_options_new();
  zr_value* const text = zr_value_string("text", ZR_NUL);
  zr_value* const list = zr_value_list();
  zr_properties* const properties = zr_properties_new();
  zr_builder* const builder = zr_builder_new(nullptr);
  const auto made = [](const void* handle) { return handle ? ZR_OK : zr_last_status(); };
  int64_t integer = 0;
  const struct {
    const char* what;
    zr_status status;
    zr_status expected;
  } rows[] = {
      {"a NULL text", made(zr_value_string(nullptr, 0)), ZR_ERROR_ARGUMENT},
      {"bytes without bytes", made(zr_value_bytes(nullptr, 1)), ZR_ERROR_ARGUMENT},
      {"a text that is cut", made(zr_value_string("ü", 1)), ZR_ERROR_UTF8},
      {"a name that is no UTF-8", zr_properties_add_bool(properties, "\xff", ZR_NUL, 1), ZR_ERROR_UTF8},
      {"an empty name", zr_properties_add_bool(properties, "", 0, 1), ZR_ERROR_ARGUMENT},
      {"a date that is none", zr_properties_add_iso_date(properties, "d", 1, "2026", ZR_NUL), ZR_ERROR_ARGUMENT},
      {"no properties", zr_properties_add_bool(nullptr, "a", 1, 1), ZR_ERROR_ARGUMENT},
      {"a NULL value", zr_properties_add(properties, "a", 1, nullptr), ZR_ERROR_ARGUMENT},
      {"bad JSON", made(zr_value_from_json("{", 1)), ZR_ERROR_JSON},
      {"JSON that is no object", made(zr_properties_from_json("[]", 2)), ZR_ERROR_JSON},
      {"an empty name in JSON", made(zr_properties_from_json("{\"\": 1}", ZR_NUL)), ZR_ERROR_ARGUMENT},
      {"a journal synced at a negative interval", zr_options_set_journal(options, 0, -1), ZR_ERROR_ARGUMENT},
      {"properties of a list", made(zr_properties_from_map(list)), ZR_ERROR_ARGUMENT},
      {"a text as a list", zr_value_append(text, text), ZR_ERROR_ARGUMENT},
      {"a list as a map", zr_value_set(list, "a", 1, text), ZR_ERROR_ARGUMENT},
      {"a text as a number", zr_value_get_integer(text, &integer), ZR_ERROR_ARGUMENT},
      {"a number without a place", zr_value_get_integer(text, nullptr), ZR_ERROR_ARGUMENT},
      {"a timestamp of 0", zr_builder_set_timestamp(builder, "a", 1, 0), ZR_ERROR_ARGUMENT},
      {"a latitude of 0", zr_builder_set_location(builder, "a", 1, 0, 1), ZR_ERROR_ARGUMENT},
      {"a condition of bad JSON", made(zr_condition_from_json("x", 1)), ZR_ERROR_JSON},
      {"a source of no map", made(zr_source_from_map(text)), ZR_ERROR_ARGUMENT},
      {"an unknown state", zr_options_set_state(options, static_cast<zr_state>(3)), ZR_ERROR_ARGUMENT},
      {"a remote configuration of bad JSON", zr_options_set_remote_configuration(options, "{]", 2), ZR_ERROR_JSON},
      {"a NULL callback", zr_options_set_log(options, nullptr, &host_, Host::release), ZR_ERROR_ARGUMENT},
      {"no options", zr_options_set_transport(nullptr, Host::send, &host_, Host::release), ZR_ERROR_ARGUMENT},
      {"a start without options", zr_start(nullptr), ZR_ERROR_ARGUMENT},
      {"a request that is none", zr_request_respond(nullptr, 200, "", 0, nullptr), ZR_ERROR_ARGUMENT},
      {"an event before the start", zr_track("a", 1, nullptr), ZR_ERROR_NOT_STARTED},
      {"a flush before the start", zr_flush(Host::complete, &host_, Host::release), ZR_ERROR_NOT_STARTED},
      {"a close before the start", zr_close(1, nullptr), ZR_ERROR_NOT_STARTED},
      {"a negative time", zr_close(-1, nullptr), ZR_ERROR_ARGUMENT},
  };
  for (const auto& row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
  EXPECT_EQ(zr_last_status(), ZR_ERROR_ARGUMENT);
  EXPECT_STREQ(zr_last_error(), "the time is negative or not a number");
  // The three rows that gave one.
  EXPECT_EQ(host_.released, 3);
  EXPECT_EQ(host_.calls, 0);
  zr_options_free(options);
  zr_value_free(text);
  zr_value_free(list);
  zr_properties_free(properties);
  zr_builder_free(builder);
}

TEST_F(CApi, AWrongConfigurationCanBeCorrectedAndStartsOnce) {
  zr_options* const made = options();
  ASSERT_EQ(zr_options_set_remote_configuration(made, "{\"no such key\": 1}", ZR_NUL), ZR_OK);
  EXPECT_EQ(zr_start(made), ZR_ERROR_CONFIGURATION);
  EXPECT_NE(std::string(zr_last_error()).find("no such key"), std::string::npos);
  ASSERT_EQ(zr_options_set_remote_configuration(made, "{\"device_model\": \"M\"}", ZR_NUL), ZR_OK);
  EXPECT_EQ(zr_start(made), ZR_OK) << zr_last_error();
  EXPECT_EQ(zr_start(made), ZR_ERROR_STARTED);
  EXPECT_EQ(zr_update_remote_configuration("{\"s_i_d\": \"x\"}", ZR_NUL), ZR_ERROR_CONFIGURATION);
  close();
  EXPECT_EQ(zr_start(made), ZR_ERROR_CLOSED);
  zr_options_free(made);
}

TEST_F(CApi, AttributesArriveTheSameInEachForm) {
  start();
  zr_value* const list = zr_value_from_json("[1]", ZR_NUL);
  zr_attribute flat[11] = {};
  const zr_kind kinds[] = {ZR_KIND_NULL, ZR_KIND_BOOL, ZR_KIND_INTEGER, ZR_KIND_DOUBLE,   ZR_KIND_STRING, ZR_KIND_BYTES,
                           ZR_KIND_URL,  ZR_KIND_LIST, ZR_KIND_JSON,    ZR_KIND_LOCATION, ZR_KIND_DATE};
  const std::string names = "abcdefghijk";
  for (size_t i = 0; i < names.size(); ++i) {
    flat[i] = {&names[i], 1, kinds[i], 0, 5, 1.5, 2.5, "7", 1, list};
  }
  struct Seen {
    Signal recorded;
    std::string attributes;
  } seen;
  const auto trigger = [](void* data, const char* name, size_t length, zr_value* event) {
    if (std::string(name, length) != "Flat") return;
    auto& to = *static_cast<Seen*>(data);
    to.attributes = attributesOf(event);
    to.recorded.set();
  };
  ASSERT_EQ(zr_set_trigger(ZR_TRIGGER_IN_APP, trigger, &seen, nullptr), ZR_OK);
  ASSERT_EQ(zr_track_attributes("Flat", ZR_NUL, flat, std::size(flat), sizeof flat[0]), ZR_OK) << zr_last_error();
  seen.recorded.wait();
  const std::string expected = R"({"a":"","b":true,"c":5,"d":1.5,"e":"7","f":"37","g":"7","h":[1],"i":7})"
                               R"({"timestamp":[{"k":1500.0}],"location":[{"j":"1.500000,2.500000"}]})";
  EXPECT_EQ(seen.attributes, expected);

  zr_properties* const properties = zr_properties_new();
  zr_properties_add_null(properties, "a", 1);
  zr_properties_add_bool(properties, "b", 1, 5);
  zr_properties_add_integer(properties, "c", 1, 5);
  zr_properties_add_double(properties, "d", 1, 1.5);
  zr_properties_add_string(properties, "e", 1, "7", 1);
  zr_properties_add_bytes(properties, "f", 1, "7", 1);
  zr_properties_add_url(properties, "g", 1, "7", 1);
  zr_properties_add(properties, "h", 1, list);
  zr_properties_add_integer(properties, "i", 1, 7);
  zr_properties_add_location(properties, "j", 1, 1.5, 2.5);
  zr_properties_add_date(properties, "k", 1, 1.5);
  zr_value* const event = zr_event_record("Flat", ZR_NUL, properties);
  EXPECT_EQ(attributesOf(event), expected);
  // An event that was tracked keeps what the handle held.
  ASSERT_EQ(zr_track("Before", ZR_NUL, properties), ZR_OK);
  zr_properties_add_string(properties, "e", 1, "changed", ZR_NUL);
  ASSERT_EQ(zr_track("After", ZR_NUL, properties), ZR_OK);
  zr_properties_free(properties);
  zr_value_free(event);
  zr_value_free(list);
  flat[3].kind = 99;
  EXPECT_EQ(zr_track_attributes("Flat", ZR_NUL, flat, std::size(flat), sizeof flat[0]), ZR_ERROR_ARGUMENT);
  EXPECT_EQ(zr_track_attributes("Flat", ZR_NUL, flat, 1, 8), ZR_ERROR_ARGUMENT);
  close();
  EXPECT_TRUE(host_.sent(R"("EVENT_ACTION":"Before","EVENT_ATTRS":{"a":"","b":true,"c":5,"d":1.5,"e":"7")"));
  EXPECT_TRUE(host_.sent(R"("EVENT_ACTION":"After","EVENT_ATTRS":{"a":"","b":true,"c":5,"d":1.5,"e":"changed")"));
}

}  // namespace
}  // namespace zorvane::testing
