#include "Platform/Formats/PropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Formats/TestPropertyLists.h"
#include "Platform/Formats/BinaryEncoder.h"

namespace zorvane::platform {
namespace {

using namespace std::string_literals;

Value uid(std::uint32_t index) {
  return std::make_shared<const PropertyListUID>(index);
}

Value nested(int levels) {
  Value value = 1;
  for (int i = 0; i < levels; ++i) value = Array{value};
  return value;
}

TEST(BinaryPropertyList, WhatIsWrittenIsReadBack) {
  std::mt19937 random(1);
  for (int i = 0; i < 300; ++i) {
    const Value value = randomPropertyListValue(random);
    const auto read = parsePropertyList(binaryPropertyList(value));
    ASSERT_TRUE(read) << read.error().message;
    ASSERT_EQ(read.value(), value);
    ASSERT_EQ(binaryPropertyList(read.value()), binaryPropertyList(value));  // kinds, too
  }
}

TEST(BinaryPropertyList, AnotherReaderSeesTheSame) {
  Array many;
  for (int i = 0; i < 300; ++i) many.push_back(numbered("text ", i));
  const Value value = Dictionary{{"bool", true},
                                 {"integers", Array{0, 255, 256, 65536, 4294967296, -1}},
                                 {"real", 1.5},
                                 {"date", Date{1700000000}},
                                 {"data", Data{{1, 0xFE}}},
                                 {"text", Array{"plain", "Grüße 😀", ""}},
                                 {"uid", Array{uid(1), uid(300), uid(70000)}},
                                 {"many", many}};
  std::string expectedMany;
  for (int i = 0; i < 300; ++i) expectedMany += (i ? ",\"text " : "\"text ") + std::to_string(i) + '"';
  EXPECT_EQ(readByPython(binaryPropertyList(value)),
            R"({"bool":true,"data":"data:01fe","date":"date:1700000000.0","integers":[0,255,256,65536,4294967296,-1],)"
            R"("many":[)" +
                expectedMany + R"(],"real":1.5,"text":["plain","Grüße 😀",""],"uid":["uid:1","uid:300","uid:70000"]})");
}

struct Plain final : Object {
  std::string description() const override { return "plain"; }
  Value plainValue() const override { return Array{1, "x"}; }
};

TEST(BinaryPropertyList, WhatItCannotHoldCostsOnlyItself) {
  const Value value = Dictionary{{"null", null},
                                 {"nil", Array{1, Value(), 2}},
                                 {"url", URL{"https://a/"}},
                                 {"object", std::make_shared<const Plain>()},
                                 {"infinite", INFINITY}};
  EXPECT_EQ(parsePropertyList(binaryPropertyList(value)).value(), Value(Dictionary{{"null", ""},
                                                                                   {"nil", Array{1, 2}},
                                                                                   {"url", "https://a/"},
                                                                                   {"object", Array{1, "x"}},
                                                                                   {"infinite", INFINITY}}));
  EXPECT_TRUE(parsePropertyList(binaryPropertyList(nested(128))).value() == nested(128));
  Value cut = "";
  for (int i = 0; i < 128; ++i) cut = Array{cut};
  EXPECT_EQ(parsePropertyList(binaryPropertyList(nested(129))).value(), cut);
}

TEST(BinaryPropertyList, EqualTextsStandOnce) {
  const Value event = Dictionary{{"event name", "shown"}, {"value", "event name"}};
  const std::string one = binaryPropertyList(Array{event});
  const std::string ten =
      binaryPropertyList(Array{event, event, event, event, event, event, event, event, event, event});
  EXPECT_EQ(ten.size(), one.size() + 9 * (1 + 1 + 4 + 1));
}

TEST(BinaryPropertyList, ReadsWhatOtherWritersWrite) {
  const struct {
    std::string object;
    Value value;
  } cases[] = {
      {"\x00"s, null},
      {"\x10\xFF", 255},
      {"\x11\xFF\xFF", 65535},
      {"\x12\xFF\xFF\xFF\xFF", 4294967295},
      {"\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", -1},
      {"\x14\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, 18446744073709551615.0},
      {"\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x05"s, 5},
      {"\x22\x3F\xC0\0\0"s, 1.5},
      {"\x33\0\0\0\0\0\0\0\0"s, Date{978307200}},
      {"\x5F\x12\0\0\0\x03"s + "abc", "abc"},
      {"\x53"s + "a\xFFz", "a\uFFFDz"},
      {"\x63\xD8\x3D\xDE\x00\0a"s, "😀a"},
      {"\x62\xD8\x3D\0a"s, "\uFFFDa"},
      {"\x84\0\0\0\0\x07"s, uid(7)},
  };
  for (const auto& [object, value] : cases) {
    const auto read = parsePropertyList(binaryFile({object}));
    ASSERT_TRUE(read) << testing::PrintToString(object) << read.error().message;
    EXPECT_EQ(read.value().kind(), value.kind()) << testing::PrintToString(object);
    EXPECT_EQ(read.value(), value) << testing::PrintToString(object);
  }
  // Unused and overlapping objects, the root anywhere, a key twice (the first holds).
  EXPECT_EQ(parsePropertyList(binaryFile({"\x51k", "\x51k", "\x10\x01", "\x10\x02", "\xD2\0\x01\x02\x03"s, "junk"}, 4))
                .value(),
            Value(Dictionary{{"k", 1}}));
}

TEST(BinaryPropertyList, RefusesUnsoundFiles) {
  const std::string sound = binaryFile({"\xA1\x01", "\x51"s + "a"});
  ASSERT_TRUE(parsePropertyList(sound));
  for (std::size_t length = 0; length < sound.size(); ++length) {
    EXPECT_FALSE(parsePropertyList(std::string_view(sound).substr(0, length))) << length;
  }
  EXPECT_FALSE(parsePropertyList(sound + "x"));
  const std::vector<std::string> unsound[] = {
      {"\xA1\0"s},                   // contains itself
      {"\xA1\x01", "\xA1\0"s},       // through another
      {"\xA1\x05"},                  // no such object
      {"\xD1\x01\x01", "\x10\x05"},  // a key that is no text
      {"\x15"},
      {"\x21"},
      {"\x30"},
      {"\x0F"},
      {"\x70"},
      {"\xC0"},  // unknown markers
      {"\x5F\x10\x40"},
      {"\x6F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"},
      {"\xAF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"},
      {"\x5F\x23\0\0"s},
      {"\x5F"},               // unsound lengths
      {"\x84\x01\0\0\0\0"s},  // a UID beyond 32 bits
  };
  for (const auto& objects : unsound) {
    EXPECT_FALSE(parsePropertyList(binaryFile(objects))) << testing::PrintToString(objects);
  }
}

TEST(BinaryPropertyList, SmallFilesWithEndlessValuesAreRefused) {
  // Each array holds the next one ten times.
  std::vector<std::string> objects;
  for (char i = 1; i <= 60; ++i) objects.push_back("\xAA"s + std::string(10, i));
  objects.push_back("\x10\x01");
  EXPECT_FALSE(parsePropertyList(binaryFile(objects)));
  // One long text, thousands of times over.
  const std::string text = "\x5F\x11\x7F\xFF"s + std::string(0x7FFF, 'a');
  const std::string references = "\xAF\x11\x7F\xFF"s + std::string(0x7FFF, '\x01');
  EXPECT_FALSE(parsePropertyList(binaryFile({references, text})));
}

TEST(XMLPropertyList, ReadsEachElement) {
  const struct {
    const char* text;
    Value value;
  } cases[] = {
      {"<string>a &lt;&gt;&amp;&apos;&quot; &#233;&#x20AC;<![CDATA[<&]]>\r\n</string>", "a <>&'\" é€<&\r\n"},
      {"<string/>", ""},
      {"<integer> -5</integer>", -5},
      {"<integer>+0x7f</integer>", 127},
      {"<integer>-9223372036854775808</integer>", std::numeric_limits<std::int64_t>::min()},
      {"<integer>18446744073709551615</integer>", 18446744073709551615.0},
      {"<real>5</real>", 5.0},
      {"<real> -.5e1</real>", -5.0},
      {"<real>+Infinity</real>", INFINITY},
      {"<real>1e999</real>", INFINITY},
      {"<true/>", true},
      {"<false></false>", false},
      {"<date>2001-01-01T00:00:00Z</date>", Date{978307200}},
      {"<data>\n\tAQID\n\t/w==\n</data>", Data{{1, 2, 3, 255}}},
      {"<array/>", Array{}},
      {"<array><!-- c --> <true/><?pi?><dict/></array>", Array{true, Dictionary{}}},
      {"<dict><key>a</key><integer>1</integer><key>a</key><integer>2</integer></dict>", Dictionary{{"a", 2}}},
      {"<dict><key>CF$UID</key><integer>7</integer></dict>", uid(7)},
      {"<dict><key>CF$UID</key><string>7</string></dict>", Dictionary{{"CF$UID", "7"}}},
      {"<string a='>' b = \">\">x</string>", "x"},
      {"<true/>anything", true},
  };
  for (const auto& [text, value] : cases) {
    const auto read = parsePropertyList(text);
    ASSERT_TRUE(read) << text << read.error().message;
    EXPECT_EQ(read.value().kind(), value.kind()) << text;
    EXPECT_EQ(read.value(), value) << text;
  }
  EXPECT_TRUE(std::isnan(parsePropertyList("<real>NaN</real>").value().doubleValue()));
}

TEST(XMLPropertyList, ReadsWholeFilesInTheUsualEncodings) {
  const std::string body =
      "<!DOCTYPE plist PUBLIC \"-//X//DTD PLIST 1.0//EN\" \"http://x/p.dtd\">\n<plist version=\"1.0\">\n<string>";
  const std::string end = "</string>\n</plist>\n";
  const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  std::string wide = "\xFE\xFF";
  for (const char c : "<plist><string>a"s) wide += "\0"s + c;
  wide += "\xD8\x3D\xDE\x00"s;
  for (const char c : "</string></plist>"s) wide += "\0"s + c;
  const std::pair<std::string, const char*> files[] = {
      {head + body + "é" + end, "é"},
      {"\xEF\xBB\xBF" + body + "é" + end, "é"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + body + "\xE9" + end, "é"},
      {wide, "a😀"},
  };
  for (const auto& [file, text] : files) {
    const auto read = parsePropertyList(file);
    ASSERT_TRUE(read) << read.error().message;
    EXPECT_EQ(read.value(), Value(text));
  }
}

TEST(XMLPropertyList, RefusesUnsoundFiles) {
  const char* const texts[] = {"",
                               " ",
                               "x",
                               "<",
                               "<!--",
                               "<plist/>",
                               "<plist><true/>",
                               "<plist><true/><true/></plist>",
                               "<array>",
                               "<array>x</array>",
                               "<array><true/></dict>",
                               "</array>",
                               "<dict><true/></dict>",
                               "<dict><key>a</key></dict>",
                               "<set/>",
                               "<arrayx/>",
                               "<data/>",
                               "<integer/>",
                               "<real/>",
                               "<date/>",
                               "<integer></integer>",
                               "<integer>1 </integer>",
                               "<integer>1.0</integer>",
                               "<integer>18446744073709551616</integer>",
                               "<integer>-9223372036854775809</integer>",
                               "<integer>0x</integer>",
                               "<real>1 </real>",
                               "<real>x</real>",
                               "<real>1e</real>",
                               "<real>.</real>",
                               "<date>2001-01-01T00:00:00.5Z</date>",
                               "<date>2001-02-30T00:00:00Z</date>",
                               "<date>2001-13-01T00:00:00Z</date>",
                               "<data>A</data>",
                               "<data>A*==</data>",
                               "<string>&nbsp;</string>",
                               "<string>&#xD800;</string>",
                               "<string>&#x110000;</string>",
                               "<string>&lt</string>",
                               "<string>&#x000000041;</string>",
                               "<string>a<!-- c --></string>",
                               "<string>\xC0\x80</string>",
                               "<string>a",
                               "<string><![CDATA[a</string>",
                               "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>",
                               "<?xml version=\"1.0\" encoding=\"EBCDIC\"?><true/>",
                               "{ a = b; }"};
  for (const char* text : texts) EXPECT_FALSE(parsePropertyList(text)) << text;
  EXPECT_EQ(parsePropertyList("<array>\n<integer>x</integer></array>").error().message,
            "no property list: an unsound integer at byte 17");
  const auto deep = [](int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) text += "<array>";
    for (int i = 0; i < levels; ++i) text += "</array>";
    return text;
  };
  EXPECT_TRUE(parsePropertyList(deep(128)));
  EXPECT_FALSE(parsePropertyList(deep(129)));
  EXPECT_FALSE(parsePropertyList(deep(100'000)));
}

}  // namespace
}  // namespace zorvane::platform
