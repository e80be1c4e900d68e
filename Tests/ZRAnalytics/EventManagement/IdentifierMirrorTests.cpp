// Companion extensions of the application read the user's identifiers from the application group's defaults.
#include "Platform/Files/DefaultsStore.h"
#include "Platform/Formats/PropertyList.h"
#include "ZRAnalytics/UserTest.h"

namespace zorvane::testing {
namespace {

class IdentifierMirrorTest : public UserTest {
 protected:
  void sendAnEvent() {
    save({"event"});
    Answers answers;
    flush(answers);
    settle();
    ASSERT_EQ(answers, (Answers{{true, true}}));
  }
  std::string groupFile() const { return (directory_ / "Defaults/groups/group.test.plist").string(); }
};

TEST_F(IdentifierMirrorTest, ReportWritesTheIdentifiersBesideTheGroupsOtherEntries) {
  startWithSession({{"app_group_id", "group.test"}});
  platform::DefaultsStore& group = platform::groupDefaults("group.test");
  group.setObjectForKey("kept", "OTHER");
  group.setObjectForKey(Dictionary{{"badge", 1}, {"zrv_identifiers", Dictionary{{"segment_id", "old"}}}}, "APP");
  handler().setUserAttributeUniqueID("u");
  sendAnEvent();
  const Dictionary expected{{"OTHER", "kept"},
                            {"APP", Dictionary{{"badge", 1}, {"zrv_identifiers", Dictionary{{"zrv_user_id", "u"}}}}}};
  EXPECT_EQ(group.dictionaryRepresentation(), expected);
  const auto written = platform::parsePropertyList(readAll(groupFile()));
  ASSERT_TRUE(written);
  EXPECT_EQ(written.value(), Value(expected));
}

TEST_F(IdentifierMirrorTest, NothingIsWrittenWithoutAUserOrAGroup) {
  startWithSession({{"app_group_id", "group.test"}});
  sendAnEvent();
  EXPECT_FALSE(std::filesystem::exists(groupFile()));
  updateRemoteConfiguration({{"app_group_id", ""}});
  handler().setUserAttributeUniqueID("u");
  sendAnEvent();
  EXPECT_FALSE(std::filesystem::exists(directory_ / "Defaults/groups"));
  EXPECT_EQ(service_->requests().size(), 2u);
}

}  // namespace
}  // namespace zorvane::testing
