#include "Platform/Formats/KeyedArchive.h"

#include <gtest/gtest.h>

#include "Formats/TestPropertyLists.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::platform {
namespace {

using Objects = std::vector<Value>;
using Archived = std::shared_ptr<const ArchivedObject>;
constexpr std::string_view kClasses[] = {"Item"};

Value uid(std::size_t index) {
  return std::make_shared<const PropertyListUID>(static_cast<std::uint32_t>(index));
}

Value classNamed(const char* name) {
  return Dictionary{{"$classname", name}, {"$classes", Array{name, "NSObject"}}};
}

// An archive as another writer lays it out, whose entry 1 is the root, a Root with the key "a" of entry 3.
Dictionary fileOf(Objects more) {
  Array objects = {"$null", Dictionary{{"a", uid(3)}, {"flag", true}, {"$class", uid(2)}}, classNamed("Root")};
  objects.insert(objects.end(), more.begin(), more.end());
  return Dictionary{{"$version", 100000},
                    {"$archiver", "NSKeyedArchiver"},
                    {"$top", Dictionary{{"root", uid(1)}, {"other", uid(0)}}},
                    {"$objects", objects}};
}

Archived readFile(const Value& file) {
  auto read = unarchiveRootObject(binaryPropertyList(file), "Root", kClasses);
  return read ? read.value() : nullptr;
}

// What the root's "a" reads as.
Value readObjects(Objects more) {
  const Archived root = readFile(fileOf(std::move(more)));
  return root ? root->decodeObject("a") : Value("no root");
}

TEST(KeyedArchive, NumbersDepthFirstWithEachClassBehindItsFirstInstance) {
  const auto item = std::make_shared<ArchivedObject>("Item");
  item->encodeObject("text", "t");
  item->encodeObject("date", Date{978307200.5});
  item->encodeObject("nothing", Value());
  item->encodeBool("yes", true);
  item->encodeObject("extras", Dictionary{{"k", Array{1, 2.5, true, null}}});
  const auto root = std::make_shared<ArchivedObject>("Root");
  root->encodeObject("items", Array{item, item});
  root->encodeObject("$own", Date{978307201});
  const std::string expected =
      R"({"$archiver":"NSKeyedArchiver","$objects":["$null",)"
      R"({"$$own":"uid:18","$class":"uid:19","items":"uid:2"},)"
      R"({"$class":"uid:15","NS.objects":["uid:3","uid:3"]},)"
      R"({"$class":"uid:17","date":"uid:5","extras":"uid:7","nothing":"uid:0","text":"uid:4","yes":true},)"
      R"("t",{"$class":"uid:6","NS.time":0.5},{"$classes":["NSDate","NSObject"],"$classname":"NSDate"},)"
      R"({"$class":"uid:16","NS.keys":["uid:8"],"NS.objects":["uid:9"]},"k",)"
      R"({"$class":"uid:15","NS.objects":["uid:10","uid:11","uid:12","uid:13"]},1,2.5,true,)"
      R"({"$class":"uid:14"},{"$classes":["NSNull","NSObject"],"$classname":"NSNull"},)"
      R"({"$classes":["NSArray","NSObject"],"$classname":"NSArray"},)"
      R"({"$classes":["NSDictionary","NSObject"],"$classname":"NSDictionary"},)"
      R"({"$classes":["Item","NSObject"],"$classname":"Item"},{"$class":"uid:6","NS.time":1.0},)"
      R"({"$classes":["Root","NSObject"],"$classname":"Root"}],"$top":{"root":"uid:1"},"$version":100000})";
  EXPECT_EQ(readByPython(archiveRootObject(root)), expected);

  const auto read = unarchiveRootObject(archiveRootObject(root), "Root", kClasses);
  ASSERT_TRUE(read) << read.error().message;
  EXPECT_EQ(archiveRootObject(read.value()), archiveRootObject(root));
  EXPECT_EQ(read.value()->decodeObject("$own"), Value(Date{978307201}));
  const Value items = read.value()->decodeObject("items");
  ASSERT_EQ(items.asArray()->size(), 2U);
  EXPECT_EQ((*items.asArray())[0].asObject(), (*items.asArray())[1].asObject());
  const auto readItem = (*items.asArray())[0].asObject<ArchivedObject>();
  EXPECT_EQ(readItem->className(), "Item");
  EXPECT_TRUE(readItem->decodeBool("yes"));
  EXPECT_EQ(readItem->decodeObject("date"), Value(Date{978307200.5}));
  EXPECT_EQ(readItem->decodeObject("extras"), Value(Dictionary{{"k", Array{1, 2.5, true, null}}}));
  for (const char* key : {"nothing", "missing", "yes"}) EXPECT_TRUE(readItem->decodeObject(key).isNil()) << key;
  for (const char* key : {"text", "missing"}) EXPECT_FALSE(readItem->decodeBool(key)) << key;
}

TEST(KeyedArchive, WhatItCannotHoldCostsOnlyItself) {
  const auto root = std::make_shared<ArchivedObject>("Root");
  root->encodeObject("a", Array{Value(), URL{"https://a/"}, uid(5)});
  root->encodeObject("self", std::shared_ptr<const ArchivedObject>(std::shared_ptr<void>(), root.get()));
  Value deep = 1;
  for (int i = 0; i < 1000; ++i) deep = Array{deep};
  root->encodeObject("deep", deep);
  const Archived read = unarchiveRootObject(archiveRootObject(root), "Root", {}).value();
  EXPECT_EQ(read->decodeObject("a"), Value(Array{"https://a/", Dictionary{{"CF$UID", 5}}}));
  EXPECT_TRUE(read->decodeObject("self").isNil());
  EXPECT_TRUE(read->decodeObject("deep").isArray());
}

TEST(KeyedArchive, ReadsWhatOtherWritersWrite) {
  const auto mantissa = [](std::vector<std::uint8_t> bytes) {
    bytes.resize(16);
    return Value(Data{std::move(bytes)});
  };
  const auto decimal = [&](const Value& words, int length, int exponent, bool isNegative, int order) {
    return Dictionary{{"NS.mantissa", words}, {"NS.length", length},       {"NS.exponent", exponent},
                      {"NS.compact", true},   {"NS.negative", isNegative}, {"NS.mantissa.bo", order},
                      {"$class", uid(4)}};
  };
  const Value number = classNamed("NSDecimalNumberPlaceholder");
  const Value mutableArray =
      Dictionary{{"$classname", "NSMutableArray"}, {"$classes", Array{"NSMutableArray", "NSArray", "NSObject"}}};
  const struct {
    Objects objects;
    Value value;
  } cases[] = {
      {{"$null"}, "$null"},
      {{Date{1000.25}}, Date{1000.25}},
      {{Dictionary{{"NS.time", -1.5}, {"$class", uid(4)}}, classNamed("NSDate")}, Date{978307198.5}},
      {{Dictionary{{"NS.string", "m"}, {"$class", uid(4)}}, classNamed("NSMutableString")}, "m"},
      {{Dictionary{{"NS.data", Data{{1}}}, {"$class", uid(4)}}, classNamed("NSMutableData")}, Data{{1}}},
      {{Dictionary{{"$class", uid(4)}}, classNamed("NSNull")}, null},
      {{Dictionary{{"NS.objects", Array{uid(5), uid(5)}}, {"$class", uid(4)}}, mutableArray, "x"}, Array{"x", "x"}},
      {{Dictionary{{"NS.keys", Array{uid(5)}}, {"NS.objects", Array{uid(6)}}, {"$class", uid(4)}},
        classNamed("NSMutableDictionary"), "k", 1.5},
       Dictionary{{"k", 1.5}}},
      {{decimal(mantissa({0x39, 0x30}), 1, 0, false, 1), number}, 12345},
      {{decimal(mantissa({0x30, 0x39}), 1, -2, true, 2), number}, -123.45},
      {{decimal(mantissa({0, 0, 1, 0}), 2, 3, false, 1), number}, 65536000},
      {{decimal(mantissa({1, 0}), 1, 30, false, 1), number}, 1e30},
      {{Dictionary{{"NS.string", "12.5"}, {"$class", uid(4)}}, classNamed("NSDecimalNumber")}, 12.5},
      {{Dictionary{{"NS.objects", Array{}}, {"$class", uid(4)}},
        Dictionary{{"$classname", "Private"}, {"$classhints", Array{"Other", "NSArray"}}}},
       Array{}},
  };
  for (const auto& [objects, value] : cases) {
    const Value read = readObjects(objects);
    EXPECT_EQ(read.kind(), value.kind()) << value.description();
    EXPECT_EQ(read, value);
  }
  const std::string xml =
      "<plist><dict><key>$version</key><integer>100000</integer><key>$archiver</key><string>NSKeyedArchiver</string>"
      "<key>$top</key><dict><key>root</key><dict><key>CF$UID</key><integer>1</integer></dict></dict>"
      "<key>$objects</key><array><string>$null</string><dict><key>a</key><dict><key>CF$UID</key><integer>3</integer></"
      "dict>"
      "<key>$class</key><dict><key>CF$UID</key><integer>2</integer></dict></dict>"
      "<dict><key>$classname</key><string>Root</string></dict><string>text</string></array></dict></plist>";
  const auto read = unarchiveRootObject(xml, "Root", {});
  ASSERT_TRUE(read) << read.error().message;
  EXPECT_EQ(read.value()->decodeObject("a"), Value("text"));
}

TEST(KeyedArchive, RefusesAnUnsoundTop) {
  ASSERT_TRUE(readFile(fileOf({"x"})));
  EXPECT_FALSE(unarchiveRootObject("junk", "Root", {}));
  EXPECT_FALSE(readFile(Array{}));
  const std::pair<const char*, Value> wrong[] = {{"$version", 99999},
                                                 {"$version", 100000.0},
                                                 {"$version", "100000"},
                                                 {"$archiver", "Other"},
                                                 {"$archiver", 1},
                                                 {"$top", uid(1)},
                                                 {"$objects", "$null"},
                                                 {"$top", Dictionary{{"root", uid(0)}}},
                                                 {"$objects", Array{}},
                                                 {"$top", Dictionary{}},
                                                 {"$top", Dictionary{{"root", 1}}},
                                                 {"$top", Dictionary{{"root", uid(99)}}},
                                                 {"$top", Dictionary{{"root", uid(2)}}},
                                                 {"$top", Dictionary{{"root", uid(3)}}}};
  for (const auto& [key, value] : wrong) {
    Dictionary file = fileOf({"x"});
    file.set(key, value);
    EXPECT_FALSE(readFile(file)) << key << " " << value.description();
    file.remove(key);
    EXPECT_FALSE(readFile(file)) << key;
  }
  EXPECT_FALSE(unarchiveRootObject(binaryPropertyList(fileOf({"x"})), "Item", kClasses));
}

TEST(KeyedArchive, AWrongValueCostsOnlyItself) {
  const Objects nils[] = {
      {uid(1)},
      {Value(Array{1})},
      {Dictionary{}},
      {Dictionary{{"$class", uid(1)}}},
      {Dictionary{{"$class", uid(99)}}},
      {Dictionary{{"$class", uid(4)}}, classNamed("Unknown")},
      {Dictionary{{"NS.time", "x"}, {"$class", uid(4)}}, classNamed("NSDate")},
      {Dictionary{{"NS.objects", uid(1)}, {"$class", uid(4)}}, classNamed("NSArray")},
      {Dictionary{{"NS.keys", Array{uid(4)}}, {"NS.objects", Array{}}, {"$class", uid(4)}}, classNamed("NSDictionary")},
      {Dictionary{{"NS.length", 1}, {"$class", uid(4)}}, classNamed("NSDecimalNumberPlaceholder")},
  };
  for (const Objects& objects : nils) {
    const Archived root = readFile(fileOf(objects));
    ASSERT_TRUE(root);
    EXPECT_TRUE(root->decodeObject("a").isNil()) << root->decodeObject("a").description();
    EXPECT_TRUE(root->decodeBool("flag"));
  }
  // In containers it is left out: a scalar in place of a reference, one out of range, nil, the container itself.
  EXPECT_EQ(readObjects({Dictionary{{"NS.objects", Array{1, uid(99), uid(0), uid(3), uid(5)}}, {"$class", uid(4)}},
                         classNamed("NSArray"), "x"}),
            Value(Array{"x"}));
  EXPECT_EQ(readObjects({Dictionary{{"NS.keys", Array{uid(5), uid(6), uid(7)}},
                                    {"NS.objects", Array{uid(5), uid(5), uid(99)}},
                                    {"$class", uid(4)}},
                         classNamed("NSDictionary"), "x", 1, "y"}),
            Value(Dictionary{{"x", "x"}}));
}

TEST(KeyedArchive, DeepAndEndlessGraphsAreCut) {
  // 100,000 arrays, each holding the next; then 100 arrays, each holding the next one ten times.
  for (const auto& [levels, width] : {std::pair<std::size_t, std::size_t>{100'000, 1}, {100, 10}}) {
    Objects objects;
    for (std::size_t i = 0; i < levels; ++i) {
      const std::size_t next = i + 1 < levels ? 3 + i + 1 : 3 + levels + 1;
      objects.push_back(Dictionary{{"NS.objects", Array(width, uid(next))}, {"$class", uid(3 + levels)}});
    }
    objects.push_back(classNamed("NSArray"));
    objects.push_back("end");
    const Archived root = readFile(fileOf(objects));
    ASSERT_TRUE(root);
    EXPECT_TRUE(root->decodeBool("flag"));
    EXPECT_LT(jsonText(root->decodeObject("a")).size(), 10'000'000U);
  }
}

}  // namespace
}  // namespace zorvane::platform
