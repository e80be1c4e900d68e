#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>

#include "Platform/Text/CaseMapping.h"
#include "Platform/Text/Hex.h"
#include "Platform/Text/SHA1.h"
#include "Platform/Text/Text.h"
#include "Platform/Text/URLComponents.h"
#include "Platform/Text/UUID.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

std::string hexDigest(std::string_view bytes) {
  std::string text;
  appendHex(text, sha1Digest(bytes));
  return text;
}

TEST(Utf8, EachInvalidSequenceBecomesOneReplacement) {
  // "?" stands for U+FFFD.
  const struct {
    const char* text;
    const char* repaired;
  } kCases[] = {
      {"plain text of more than eight bytes", "plain text of more than eight bytes"},
      {"ä€😀 \xED\x9F\xBF \xEE\x80\x80 \xF4\x8F\xBF\xBF", "ä€😀 \xED\x9F\xBF \xEE\x80\x80 \xF4\x8F\xBF\xBF"},
      {"12345678\xFFz", "12345678?z"},
      {"\x80\xBF", "??"},
      {"\xC3", "?"},
      {"\xC3z", "?z"},
      {"\xE2\x82", "?"},
      {"\xE2\x82z", "?z"},
      {"\xF0\x9F\x98", "?"},
      {"\xF0\x9F\x98\xC3\xA4", "?ä"},
      {"\xC0\xAF", "??"},            // overlong
      {"\xE0\x80\xAF", "???"},       //
      {"\xF0\x80\x80\xAF", "????"},  //
      {"\xED\xA0\x80", "???"},       // a surrogate
      {"\xF4\x90\x80\x80", "????"},  // above U+10FFFF
      {"\xF8\x88\x80\x80\x80", "?????"},
      {"\xFE\xFF", "??"},
  };
  for (const auto& [text, pattern] : kCases) {
    std::string expected;
    for (const char* c = pattern; *c; ++c) expected += *c == '?' ? std::string("\xEF\xBF\xBD") : std::string(1, *c);
    EXPECT_EQ(validUtf8(text), expected);
    EXPECT_TRUE(isValidUtf8(expected));
    EXPECT_EQ(isValidUtf8(text), expected == text);
  }
  EXPECT_TRUE(isValidUtf8(std::string_view("a\0b", 3)));
}

TEST(SHA1, PublishedDigestsAndEveryPaddingLength) {
  EXPECT_EQ(hexDigest(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(hexDigest("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(hexDigest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
  EXPECT_EQ(hexDigest(std::string(1'000'000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
  // The digest of the joined digests of 0 to 129 letters.
  std::string digests;
  for (std::size_t length = 0; length < 130; ++length) digests += hexDigest(std::string(length, 'a'));
  EXPECT_EQ(hexDigest(digests), "020e571fd23e2a086018fa9bfa2fb3269f35017a");
}

TEST(RandomUUID, IsUniqueAndCanonical) {
  std::set<std::string> all;
  for (int i = 0; i < 500; ++i) all.insert(randomUUID());
  EXPECT_EQ(all.size(), 500U);
  for (const std::string& text : all) {
    std::string form = text;
    for (char& c : form) c = kUpperHexDigits.find(c) == std::string_view::npos ? c : 'X';
    ASSERT_EQ(form, "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX");
    ASSERT_EQ(text[14], '4');
    ASSERT_NE(std::string_view("89AB").find(text[19]), std::string_view::npos) << text;
  }
}

TEST(Lowercased, FollowsUnicodeOneCharacterAtATime) {
  const struct {
    const char* text;
    const char* lower;
  } kCases[] = {
      {"Hello, World! [@`{", "hello, world! [@`{"},
      {"ÄÖÜß×÷ẞ", "äöüß×÷ß"},
      {"ŁÓDŹ Ĺĺ Ÿ", "łódź ĺĺ ÿ"},
      {"ΌΔΟΣ", "όδοσ"},  // no final sigma: the mapping knows no neighbours
      {"ПРИВЕТ Ёё", "привет ёё"},
      {"İI", "ii"},  // neither the Turkish mapping nor the longer one
      {"Ǆǅǆ", "ǆǆǆ"},
      {"K Å Ω", "k å ω"},
      {"Ꭰ Ა", "ꭰ ა"},
      {"𐐀𐐧𐐨 𞤀𞤡𞤢", "𐐨𐑏𐐨 𞤢𞥃𞤢"},
      {"日本 😀 \U0010FFFF", "日本 😀 \U0010FFFF"},
  };
  for (const auto& [text, lower] : kCases) {
    EXPECT_EQ(lowercased(text), lower);
  }
}

std::string itemsOf(std::string_view url) {
  std::string text;
  for (const auto& [name, value] : queryItemsOfURL(url)) text += "[" + name + (value ? "=" + *value : "") + "]";
  return text;
}

TEST(QueryItems, AreTakenInOrderAndDecoded) {
  const struct {
    const char* url;
    const char* items;
  } kCases[] = {
      {"https://shop.example/a?utm_source=a&source=b", "[utm_source=a][source=b]"},
      {"app://open?x=1#y?z=2", "[x=1]"},
      {"app://open#y?z=2", ""},
      {"path/only?a=b", "[a=b]"},
      {"?a=b", "[a=b]"},
      {"mailto:x@y?subject=1", "[subject=1]"},
      {"//host?a", "[a]"},
      // empty and odd items, escapes
      {"http://h?a=&=b&c&&d==e=f", "[a=][=b][c][][d==e=f]"},
      {"http://h?a?b=/:@!$'()*+,;&", "[a?b=/:@!$'()*+,;][]"},
      {"http://h?a%26b=%3D%2B+%C3%A4", "[a&b==++ä]"},
      {"http://h?a=%FF%E2%82", "[a=\xEF\xBF\xBD\xEF\xBF\xBD]"},
      // authorities and schemes
      {"http://u:p%20@[::1]:80/p;x=1/?a=1", "[a=1]"},
      {"http://h:/?a=1", "[a=1]"},
      {"x+y-z.1:/p?a=1", "[a=1]"},
      // without a query
      {"http://h", ""},
      {"http://h?", ""},
      {"", ""},
  };
  for (const auto& [url, items] : kCases) {
    EXPECT_EQ(itemsOf(url), items) << url;
  }
  EXPECT_EQ(queryItemsOfURL("?a=%00z")[0].value, std::string("\0z", 2));
}

TEST(QueryItems, OfATextThatIsNoURLAreNone) {
  for (const char* url :
       {"http://h?a b=1",   "http://h/a b?a=1", " http://h?a=1",    "http://h?ä=1",      "http://h?a=%",
        "http://h?a=%4",    "http://h?a=%4g",   "http://h/%zz?a=1", "http://h?a=1#%",    "http://h?a=1#b c",
        "http://h?a=1#b#c", "http://h?a[]=1",   "http://h/[x]?a=1", "http://h?a=\"1\"",  "http://h?a=<1>",
        "http://h?a=1\n",   "http://h?a={b}",   "http://h?a=b|c",   "http://h?a=b\\c",   "http://h?a=b^c",
        "http://h?a=`b`",   "1a:b?a=1",         ":b?a=1",           "a_b:c?a=1",         "http://h:8x?a=1",
        "http://a@b@c?a=1", "http://[::1?a=1",  "http://[]?a=1",    "http://[::1]x?a=1", "http://[%31]?a=1",
        "http://a:b:1?a=1", "\x7F?a=1"}) {
    EXPECT_EQ(itemsOf(url), "") << url;
  }
}

TEST(Text, KeepsBytesOfAnySizeInEachCopy) {
  const std::string bytes = std::string("a\0", 2) + "bcdefghijklmnopqrstuvwxyz0123456789";
  for (std::size_t size = 0; size <= bytes.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string expected = bytes.substr(0, size);
    Text text{expected};
    const Text copy = text;
    Text moved = std::move(text);
    EXPECT_TRUE(text.empty());  // NOLINT(bugprone-use-after-move)
    text = moved;
    for (const Text& each : {text, copy, moved}) {
      EXPECT_EQ(each.view(), expected);
      EXPECT_EQ(each.size(), size);
      EXPECT_EQ(each.c_str()[size], 0);
      std::string room(size + Text::kCopyRoom, '.');
      EXPECT_EQ(each.copyTo(room.data()), room.data() + size);
      EXPECT_EQ(room.substr(0, size), expected);
    }
    moved = Text("other");
    text = std::move(moved);
    EXPECT_EQ(text, "other");
    EXPECT_EQ(copy, expected);
  }
}

TEST(Text, StandsWhereTheTextOfTheStandardLibraryDoes) {
  const Text text{"b"};
  std::ostringstream out;
  out << text << Text();
  EXPECT_EQ(out.str(), "b");
  const std::string copy = text;
  EXPECT_EQ(copy, std::string(text.begin(), text.end()));
  EXPECT_TRUE(Text("a") < text && text < "c" && "\x7F" < Text("\xC3"));
  std::map<std::string, int, std::less<>> byString{{"b", 1}};
  EXPECT_EQ(byString.find(text)->second, 1);
  EXPECT_EQ(++byString[text], 2);
  std::unordered_map<Text, int> byText{{text, 3}};
  EXPECT_EQ(byText[Text("b")], 3);
}

}  // namespace
}  // namespace zorvane::platform
