#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HostRun.h"
#include "Support/TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(ZRHostCondition, IsAskedOfTheRecordThatTriggersSee) {
  const zorvane::platform::TemporaryDirectory directory;
  const FakeService service;
  HostProcess host(
      {"--data", directory.file("app"), "--endpoint", service.url(), "--clock", "2026-11-21T10:00:00.000Z"},
      directory.file("stderr"));
  const std::string condition =
      R"({"do": "condition", "condition": {"eventName": "Purchase", "filters": [)"
      R"({"name": "sku", "data_type": "string", "operator": "is", "value": "3cff"},)"
      R"({"name": "delivery", "data_type": "datetime", "operator": "inTheNext", "value_type": "relative_future",)"
      R"( "value": 3}]}, )";
  for (const char* rest : {
           R"("event": "Purchase", "attributes": {"sku": "3CFF"}, "dates": {"delivery": "2026-11-23T10:00:00Z"}})",
           R"("event": "Purchase", "attributes": {"sku": "3CFF"}, "dates": {"delivery": 1795600800}})",
           R"("event": "Purchase", "attributes": {"sku": "3CFF", "delivery": "2026-11-23T10:00:00Z"}})",
           R"("event": "Other", "attributes": {"sku": "3CFF"}, "dates": {"delivery": "2026-11-23T10:00:00Z"}})",
           R"("attributes": {"sku": "3CFF"}})",
       }) {
    host.write(condition + rest);
  }
  host.write(R"({"do": "condition", "event": "Purchase"})");
  const HostResult result = host.finish();
  EXPECT_THAT(result.values(), ElementsAre(true, false, false, false, false));
  EXPECT_EQ(result.output.front(), Json::parse(R"({"line": 1, "value": true})"));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, HasSubstr("line 6: \"condition\" is missing"));
}

}  // namespace
