#include "Platform/Formats/PropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "TestPropertyLists.h"

namespace zorvane::platform {
namespace {

using namespace std::string_literals;

Value nested(int levels) {
  Value value = 1;
  for (int i = 0; i < levels; ++i) value = Array{value};
  return value;
}

const Value kLargest = valueOfUnsigned(18446744073709551615U);

struct Plain final : Object {
  std::string description() const override { return "plain"; }
  Value plainValue() const override { return Array{1, "x"}; }
};

TEST(BinaryPropertyList, ReplacesWhatItCannotHold) {
  const Value value = Dictionary{{"null", null},
                                 {"nil", Array{1, Value(), 2}},
                                 {"url", URL{"https://a/"}},
                                 {"object", std::make_shared<const Plain>()},
                                 {"large", kLargest},
                                 {"infinite", INFINITY}};
  EXPECT_EQ(parsePropertyList(binaryPropertyList(value)).value(), Value(Dictionary{{"null", ""},
                                                                                   {"nil", Array{1, 2}},
                                                                                   {"url", "https://a/"},
                                                                                   {"object", Array{1, "x"}},
                                                                                   {"large", kLargest},
                                                                                   {"infinite", INFINITY}}));
  EXPECT_TRUE(parsePropertyList(binaryPropertyList(nested(128))).value() == nested(128));
  Value cut = "";
  for (int i = 0; i < 128; ++i) cut = Array{cut};
  EXPECT_EQ(parsePropertyList(binaryPropertyList(nested(129))).value(), cut);
}

TEST(BinaryPropertyList, WritesEqualScalarsOnce) {
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
      {"\x14\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, kLargest},
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

TEST(BinaryPropertyList, RefusesMalformedFiles) {
  const std::string valid = binaryFile({"\xA1\x01", "\x51"s + "a"});
  ASSERT_TRUE(parsePropertyList(valid));
  for (std::size_t length = 0; length < valid.size(); ++length) {
    EXPECT_FALSE(parsePropertyList(std::string_view(valid).substr(0, length))) << length;
  }
  EXPECT_FALSE(parsePropertyList(valid + "x"));
  const std::vector<std::string> malformed[] = {
      // References: to itself, in a circle, out of range, a key that is no text.
      {"\xA1\0"s},
      {"\xA1\x01", "\xA1\0"s},
      {"\xA1\x05"},
      {"\xD1\x01\x01", "\x10\x05"},
      // Lengths, and a UID beyond 32 bits.
      {"\x5F\x10\x40"},
      {"\x5F\x23\0\0"s},
      {"\x5F"},
      {"\x84\x01\0\0\0\0"s},
  };
  for (const auto& objects : malformed) {
    EXPECT_FALSE(parsePropertyList(binaryFile(objects))) << testing::PrintToString(objects);
  }
  for (const char* marker : {"\x0F", "\x15", "\x21", "\x30", "\x70", "\xC0"}) {
    EXPECT_FALSE(parsePropertyList(binaryFile({marker}))) << testing::PrintToString(marker);
  }
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
      {"<integer>18446744073709551615</integer>", kLargest},
      {"<real>5</real>", 5.0},
      {"<real> -.5e1</real>", -5.0},
      {"<real>+Infinity</real>", INFINITY},
      {"<real>1e999</real>", INFINITY},
      {"<true />", true},
      {"<false></false\n>", false},
      {"<date>2001-01-01T00:00:00Z</date>", Date{978307200}},
      {"<date>0000-12-30T00:00:00Z</date>", Date{-62135769600}},  // the distant past of some writers
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
  std::string wide = "\xFE\xFF";  // UTF-16, big-endian, then little-endian
  for (const char c : "<plist><string>a"s) wide.append(1, '\0').append(1, c);
  wide += "\xD8\x3D\xDE\x00"s;
  for (const char c : "</string></plist>"s) wide.append(1, '\0').append(1, c);
  std::string swapped = wide;
  for (std::size_t i = 0; i < wide.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
  const std::pair<std::string, const char*> files[] = {
      {head + body + "é" + end, "é"},
      {"\xEF\xBB\xBF" + body + "é" + end, "é"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + body + "\xE9" + end, "é"},
      {wide, "a😀"},
      {swapped, "a😀"},
      {swapped.substr(2), "a😀"},
  };
  for (const auto& [file, text] : files) {
    const auto read = parsePropertyList(file);
    ASSERT_TRUE(read) << read.error().message;
    EXPECT_EQ(read.value(), Value(text));
  }
}

TEST(XMLPropertyList, RefusesMalformedFiles) {
  const std::vector<const char*> groups[] = {
      // documents
      {"", " ", "x", "<", "<!--", "<plist/>", "<plist><true/>", "<plist><true/><true/></plist>", "{ a = b; }",
       "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>",
       "<?xml version=\"1.0\" encoding=\"EBCDIC\"?><true/>"},
      // containers and unknown elements
      {"<array>", "<array>x</array>", "<array><true/></dict>", "</array>", "<dict><true/></dict>",
       "<dict><key>a</key></dict>", "<set/>", "<arrayx/>"},
      // numbers
      {"<integer/>", "<integer></integer>", "<integer>1 </integer>", "<integer>1.0</integer>",
       "<integer>18446744073709551616</integer>", "<integer>-9223372036854775809</integer>", "<integer>0x</integer>",
       "<real/>", "<real>1 </real>", "<real>x</real>", "<real>1e</real>", "<real>.</real>"},
      // dates and data
      {"<date/>", "<date>2001-01-01T00:00:00.5Z</date>", "<date>2001-02-30T00:00:00Z</date>",
       "<date>2001-13-01T00:00:00Z</date>", "<data/>", "<data>A</data>", "<data>A*==</data>"},
      // text
      {"<string>&nbsp;</string>", "<string>&#xD800;</string>", "<string>&#x110000;</string>", "<string>&lt</string>",
       "<string>&#x000000041;</string>", "<string>a<!-- c --></string>", "<string>\xC0\x80</string>", "<string>a",
       "<string><![CDATA[a</string>"},
  };
  for (const auto& texts : groups) {
    for (const char* text : texts) EXPECT_FALSE(parsePropertyList(text)) << text;
  }
  EXPECT_EQ(parsePropertyList("<array>\n<integer>x</integer></array>").error().message,
            "no property list: an unsound integer at byte 17");
  std::string deep = "<true/>";
  for (int i = 0; i < 128; ++i) deep.insert(0, "<array>").append("</array>");
  EXPECT_TRUE(parsePropertyList(deep));
  EXPECT_FALSE(parsePropertyList(deep.insert(0, "<array>").append("</array>")));
}

}  // namespace
}  // namespace zorvane::platform
