#include "Platform/Formats/KeyedArchive.h"

#include <gtest/gtest.h>

#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"
#include "TestPropertyLists.h"

namespace zorvane::platform {
namespace {

using Objects = std::vector<Value>;
using Archived = std::shared_ptr<const ArchivedObject>;
constexpr std::string_view kClasses[] = {"Item"};

Archived readFile(const Value& file) {
  auto read = unarchiveRootObject(binaryPropertyList(file), "Root", kClasses);
  return read ? read.value() : nullptr;
}

// What the root's "a" reads as.
Value readObjects(Objects more) {
  const Archived root = readFile(archiveOf(std::move(more)));
  return root ? root->decodeObject("a") : Value("no root");
}

// The archive as JSON, with "#" and its number for each UID.
std::string jsonOfArchive(const std::string& archive) {
  constexpr std::string_view kUID = "{\"CF$UID\":";
  std::string text = jsonText(parsePropertyList(archive).value());
  for (std::size_t start; (start = text.find(kUID)) != std::string::npos;) {
    text.erase(text.find('}', start), 1).replace(start, kUID.size(), "#");
  }
  return text;
}

TEST(KeyedArchive, NumbersDepthFirstWithEachClassBehindItsFirstInstance) {
  const auto item = std::make_shared<ArchivedObject>("Item");
  item->encodeObject("text", "t");
  item->encodeObject("date", Date{978307200.5});
  item->encodeObject("nothing", Value());
  item->encodeBool("yes", true);
  const Value large = valueOfUnsigned(18446744073709551615U);
  item->encodeObject("extras", Dictionary{{"k", Array{large, 2.5, true, null}}});
  const auto root = std::make_shared<ArchivedObject>("Root");
  root->encodeObject("items", Array{item, item});
  root->encodeObject("$own", Date{978307201});
  EXPECT_EQ(jsonOfArchive(archiveRootObject(root)),
            R"({"$version":100000,"$archiver":"NSKeyedArchiver","$top":{"root":#1},"$objects":["$null",)"
            R"({"items":#2,"$$own":#18,"$class":#19},)"
            R"({"NS.objects":[#3,#3],"$class":#15},)"
            R"({"text":#4,"date":#5,"nothing":#0,"yes":true,"extras":#7,"$class":#17},)"
            R"("t",{"NS.time":0.5,"$class":#6},{"$classname":"NSDate","$classes":["NSDate","NSObject"]},)"
            R"({"NS.keys":[#8],"NS.objects":[#9],"$class":#16},"k",)"
            R"({"NS.objects":[#10,#11,#12,#13],"$class":#15},18446744073709551615,2.5,true,)"
            R"({"$class":#14},{"$classname":"NSNull","$classes":["NSNull","NSObject"]},)"
            R"({"$classname":"NSArray","$classes":["NSArray","NSObject"]},)"
            R"({"$classname":"NSDictionary","$classes":["NSDictionary","NSObject"]},)"
            R"({"$classname":"Item","$classes":["Item","NSObject"]},{"NS.time":1.0,"$class":#6},)"
            R"({"$classname":"Root","$classes":["Root","NSObject"]}]})");

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
  EXPECT_EQ(readItem->decodeObject("extras"), Value(Dictionary{{"k", Array{large, 2.5, true, null}}}));
  for (const char* key : {"nothing", "missing", "yes"}) EXPECT_TRUE(readItem->decodeObject(key).isNil()) << key;
  for (const char* key : {"text", "missing"}) EXPECT_FALSE(readItem->decodeBool(key)) << key;
}

TEST(KeyedArchive, ReplacesWhatItCannotHold) {
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
}

TEST(KeyedArchive, RefusesAMalformedTop) {
  ASSERT_TRUE(readFile(archiveOf({"x"})));
  EXPECT_FALSE(unarchiveRootObject("junk", "Root", {}));
  EXPECT_FALSE(readFile(Array{}));
  const std::pair<const char*, std::vector<Value>> wrong[] = {
      {"$version", {99999, 100000.0, "100000"}},
      {"$archiver", {"Other", 1}},
      {"$objects", {"$null", Value(Array{})}},
      {"$top",
       {uid(1), Dictionary{}, Dictionary{{"root", 1}}, Dictionary{{"root", uid(0)}}, Dictionary{{"root", uid(99)}},
        Dictionary{{"root", uid(2)}}, Dictionary{{"root", uid(3)}}}},
  };
  for (const auto& [key, values] : wrong) {
    Dictionary file = archiveOf({"x"});
    for (const Value& value : values) {
      file.set(key, value);
      EXPECT_FALSE(readFile(file)) << key << " " << value.description();
    }
    file.remove(key);
    EXPECT_FALSE(readFile(file)) << key;
  }
  EXPECT_FALSE(unarchiveRootObject(binaryPropertyList(archiveOf({"x"})), "Item", kClasses));
}

TEST(KeyedArchive, AMalformedValueIsNil) {
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
    const Archived root = readFile(archiveOf(objects));
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

}  // namespace
}  // namespace zorvane::platform
