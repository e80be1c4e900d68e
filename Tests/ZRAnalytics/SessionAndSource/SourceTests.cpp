#include "Support/ModuleTest.h"
#include "ZRAnalytics/SessionAndSource/ZRSource.h"

namespace zorvane::testing {
namespace {

class SourceTest : public ModuleTest {
 protected:
  void startWithExtraKeys(const Array& keys) { start({{"source_extra_keys", keys}}); }
  static std::shared_ptr<ZRSource> sourceOfQuery(const std::string& query) {
    return ZRSource::initSourceWithURL("shop://open?" + query);
  }
  // The source's dictionary without the URL.
  static Dictionary fieldsOfURL(const std::string& url) {
    Dictionary info = ZRSource::initSourceWithURL(url)->getSourceInfoDict();
    EXPECT_EQ(info.objectForKey("source_url"), url);
    info.remove("source_url");
    return info;
  }
};

TEST_F(SourceTest, QueryItemsBecomeFields) {
  startWithExtraKeys({});
  const struct {
    const char* query;
    Dictionary fields;
  } cases[] = {
      {"utm_source=a&source=b", {{"source", "a"}}},
      {"source=b", {{"source", "b"}}},
      {"source=b&utm_source=", {{"source", ""}}},  // empty, but there
      {"utm_source&source=b", {{"source", "b"}}},
      {"utm_source=a&utm_source=b", {{"source", "b"}}},
      {"utm_source=a&utm_source", {}},
      {"utm_source=a&utm_source&utm_source=c", {{"source", "c"}}},
      {"utm_id=7", {{"campaign_id", "7"}}},
      {"id=7&campaign_id=7", {}},
      {"campaign=x", {{"campaign_name", "x"}}},
      {"campaign=x&utm_campaign=y", {{"campaign_name", "y"}}},
      {"campaign_name=x", {}},
      {"medium=m&term=t&content=c", {{"medium", "m"}, {"term", "t"}, {"content", "c"}}},
      {"medium=m&term=t&content=c&utm_medium=M&utm_term=T&utm_content=C",
       {{"medium", "M"}, {"term", "T"}, {"content", "C"}}},
      {"utm_source=a%20b+c%26d=e&utm%5Fterm=%C3%A4", {{"source", "a b+c&d=e"}, {"term", "\xC3\xA4"}}},
      {"foo=1", {}},
  };
  for (const auto& [query, fields] : cases) {
    EXPECT_EQ(fieldsOfURL("shop://open?" + std::string(query)), fields) << query;
  }
}

TEST_F(SourceTest, URLWithoutAQueryIsKeptAsText) {
  startWithExtraKeys({});
  for (const char* url :
       {"shop://open", "shop://open?", "shop://open#utm_source=a", "no url?utm_source=a", "%zz?source=a", ""}) {
    EXPECT_EQ(fieldsOfURL(url), Dictionary()) << url;
    EXPECT_FALSE(ZRSource::initSourceWithURL(url)->isValidSource()) << url;
  }
  EXPECT_EQ(ZRSource::initSourceWithURL(nullptr)->getSourceInfoDict(), Dictionary()) << "not even the URL";
}

TEST_F(SourceTest, ExtrasAreTheConfiguredKeys) {
  startWithExtraKeys({"foo", "utm_source", "missing"});
  EXPECT_EQ(fieldsOfURL("shop://open?utm_source=a&foo=1&bar=2"),
            (Dictionary{{"source", "a"}, {"extras", Dictionary{{"foo", "1"}, {"utm_source", "a"}}}}));
  EXPECT_TRUE(sourceOfQuery("foo=1")->isValidSource());
  EXPECT_TRUE(sourceOfQuery("bar=2")->extras().isNil());
  EXPECT_TRUE(ZRSource::getExtraDictFromInfoDict(nullptr).isNil());
  const Dictionary nested{{"foo", Dictionary{{"deep", Array{1, null}}}}};
  EXPECT_EQ(ZRSource::getExtraDictFromInfoDict(nested), nested) << "copied unchanged";
  updateRemoteConfiguration({{"source_extra_keys", Array{}}});
  EXPECT_FALSE(sourceOfQuery("foo=1")->isValidSource()) << "read at the moment of use";
}

TEST_F(SourceTest, OneNonEmptyFieldMakesASourceValid) {
  startWithExtraKeys({});
  for (const char* key : {"utm_source", "utm_medium", "utm_term", "utm_id", "utm_campaign", "utm_content"}) {
    EXPECT_TRUE(ZRSource::initSourceWithSourceInfoDict(Dictionary{{key, "x"}})->isValidSource()) << key;
    EXPECT_FALSE(ZRSource::initSourceWithSourceInfoDict(Dictionary{{key, ""}})->isValidSource()) << key;
  }
  EXPECT_FALSE(ZRSource::initSourceWithSourceInfoDict(nullptr)->isValidSource());
}

TEST_F(SourceTest, ValuesKeepTheirTypeAndNullIsMissing) {
  startWithExtraKeys({});
  const auto source = ZRSource::initSourceWithSourceInfoDict(
      Dictionary{{"utm_source", null}, {"source", "b"}, {"utm_id", 42}, {"term", null}});
  EXPECT_EQ(source->getSourceInfoDict(), (Dictionary{{"source", "b"}, {"campaign_id", 42}}));
}

TEST_F(SourceTest, OwnPushPayloadsFallBackToTheirScreenData) {
  startWithExtraKeys({"foo"});
  const auto nested = [](Value screenData) { return Dictionary{{"screenData", std::move(screenData)}}; };
  const struct {
    Value payload;
    Dictionary own, foreign;
  } cases[] = {
      {Dictionary{{"app_extra", nested(Dictionary{{"source", "s"}, {"foo", 1}})}},
       {{"source", "s"}, {"extras", Dictionary{{"foo", 1}}}},
       {}},
      {Dictionary{{"utm_id", "7"}, {"app_extra", nested(Dictionary{{"source", "s"}})}},
       {{"campaign_id", "7"}},
       {{"campaign_id", "7"}}},
      {Dictionary{{"foo", 1}, {"app_extra", nested(Dictionary{{"source", "s"}})}},
       {{"extras", Dictionary{{"foo", 1}}}},
       {{"extras", Dictionary{{"foo", 1}}}}},
      // A source with only an empty field is invalid, so screen data replaces it.
      {Dictionary{{"source", ""}, {"app_extra", nested(Dictionary{{"term", "t"}})}}, {{"term", "t"}}, {{"source", ""}}},
      {Dictionary{{"source", ""}, {"app_extra", nested(null)}}, {{"source", ""}}, {{"source", ""}}},
      {Dictionary{{"source", ""}, {"app_extra", "text"}}, {{"source", ""}}, {{"source", ""}}},
      {Value(), {}, {}},
  };
  for (const auto& [payload, own, foreign] : cases) {
    EXPECT_EQ(ZRSource::initZrvSourceWithPushPayload(payload)->getSourceInfoDict(), own) << payload.description();
    EXPECT_EQ(ZRSource::initSourceWithPushPayload(payload)->getSourceInfoDict(), foreign) << payload.description();
  }
}

TEST_F(SourceTest, EqualityIgnoresOnlyTheURL) {
  startWithExtraKeys({"foo"});
  const auto base = sourceOfQuery("utm_source=a&foo=1");
  EXPECT_TRUE(base->isEqual(sourceOfQuery("foo=1&utm_source=a&x=1").get()));
  EXPECT_TRUE(base->isEqual(ZRSource::initSourceWithSourceInfoDict(Dictionary{{"source", "a"}, {"foo", "1"}}).get()));
  for (const char* other : {"utm_source=b&foo=1", "utm_source=a&foo=2", "utm_source=a", "foo=1",
                            "utm_source=a&foo=1&utm_id=1", "utm_source=a&foo=1&term=", "utm_medium=a&foo=1"}) {
    EXPECT_FALSE(base->isEqual(sourceOfQuery(other).get())) << other;
  }
  EXPECT_FALSE(base->isEqual(nullptr));
}

}  // namespace
}  // namespace zorvane::testing
