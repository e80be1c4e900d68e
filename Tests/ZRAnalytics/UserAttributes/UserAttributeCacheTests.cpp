#include "Support/ModuleTest.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributeData.h"

namespace zorvane::testing {
namespace {

class UserAttributeCacheTest : public ModuleTest {
 protected:
  void SetUp() override { start({{"user_attribute_caching_duration", 100}}); }
  std::optional<Date> lastTracked(std::size_t index) const {
    return cache_.userAttributesArray().at(index).lastTracked();
  }
  ZRUserAttributeData cache_;
};

TEST_F(UserAttributeCacheTest, ValueIsSentOnceAndAgainWhenItChanges) {
  EXPECT_TRUE(cache_.saveAttributeWithValue("a", 1));
  EXPECT_TRUE(log_->messages().empty());
  EXPECT_FALSE(cache_.saveAttributeWithValue("a", 1.0)) << "equal numbers";
  EXPECT_TRUE(cache_.saveAttributeWithValue("a", "1")) << "a number never equals text";
  EXPECT_TRUE(cache_.saveAttributeWithValue("a", 2));
  EXPECT_FALSE(cache_.saveAttributeWithValue("a", 2));
  EXPECT_EQ(log_->messages(), (std::vector<std::string>{"UserAttribute(a) wasn't updated as the value(1) is same.",
                                                        "Attribute value changed from (1) to (1)",
                                                        "Attribute value changed from (1) to (2)",
                                                        "UserAttribute(a) wasn't updated as the value(2) is same."}));
  EXPECT_TRUE(cache_.saveAttributeWithValue("b", Array{1, "x"}));
  EXPECT_FALSE(cache_.saveAttributeWithValue("b", Array{1, "x"}));
  EXPECT_TRUE(cache_.saveAttributeWithValue("c", null));
  EXPECT_FALSE(cache_.saveAttributeWithValue("c", null));
  EXPECT_EQ(cache_.userAttributesArray().size(), 3u);
}

TEST_F(UserAttributeCacheTest, NilAlwaysCountsAsChanged) {
  EXPECT_TRUE(cache_.saveAttributeWithValue("a", nullptr));
  EXPECT_TRUE(cache_.saveAttributeWithValue("a", nullptr));
  EXPECT_EQ(log_->messages(), std::vector<std::string>{"Attribute value changed from ((null)) to ((null))"});
}

TEST_F(UserAttributeCacheTest, EqualValueIsSentAgainAfterTheCachingDuration) {
  const struct {
    std::int64_t duration;
    double after;
    bool sent;
  } cases[] = {{100, 0, false}, {100, 99, false}, {100, 100, false}, {100, 100.5, true},
               {0, 0, false},   {0, 0.001, true}, {-1, 0, true}};
  for (const auto& [duration, after, sent] : cases) {
    updateRemoteConfiguration({{"user_attribute_caching_duration", duration}});
    clock_->setNow(Date{kStart});
    cache_.setUserAttributesArray({});
    cache_.saveAttributeWithValue("a", "x");
    clock_->advance(after);
    log_->clear();
    EXPECT_EQ(cache_.saveAttributeWithValue("a", "x"), sent) << duration << " s, after " << after;
    EXPECT_EQ(lastTracked(0), Date{sent ? kStart + after : kStart}) << "moves only when sent";
    EXPECT_EQ(log_->messages(),
              std::vector{sent ? "Caching duration(" + std::to_string(duration) +
                                     ") expired for User Attribute. \n Was last tracked on 2026-11-21 10:00:00 +0000"
                               : "UserAttribute(a) wasn't updated as the value(x) is same."});
  }
}

TEST_F(UserAttributeCacheTest, NotANumberEqualsItself) {
  for (const bool sent : {true, false}) {
    EXPECT_EQ(cache_.saveAttributeWithValue("a", std::numeric_limits<double>::quiet_NaN()), sent);
  }
  EXPECT_TRUE(cache_.saveAttributeWithValue("a", 1.0));
}

}  // namespace
}  // namespace zorvane::testing
