// Files that are huge, deep, or small but stand for huge values: what reading them allocates is bounded.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/KeyedArchive.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"
#include "Support/ReplacedNew.h"
#include "TestPropertyLists.h"

namespace {

std::atomic<std::size_t> allocatedBytes{0};

}  // namespace

void zorvane::testing::allocating(std::size_t size) {
  allocatedBytes += size;
}

namespace zorvane::platform {
namespace {

using namespace std::string_literals;

constexpr std::size_t kMega = 1'000'000;
constexpr std::size_t kHuge = 100 * kMega;
// Every reader stops at four million values, here in lists that grow by doubling.
constexpr std::size_t kFullAllowance = 700 * kMega;

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string result;
  for (const std::string_view part : parts) result += part;
  return result;
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

// Whether the file is read. Checks what reading allocates, the file not counted.
bool isRead(const std::function<bool(const std::string&)>& reads, const std::string& file, std::size_t bound) {
  const std::size_t before = allocatedBytes;
  const bool isRead = reads(file);
  EXPECT_LE(allocatedBytes - before, bound) << file.substr(0, 40);
  return isRead;
}
bool json(const std::string& file) {
  return static_cast<bool>(parseJSON(file));
}
bool plist(const std::string& file) {
  return static_cast<bool>(parsePropertyList(file));
}
// Whether the root is read, and its value "a" is cut.
bool archive(const std::string& file) {
  static constexpr std::string_view kClasses[] = {"Item"};
  const auto root = unarchiveRootObject(file, "Root", kClasses);
  if (!root || !root.value()->decodeBool("flag")) return false;
  const Value value = root.value()->decodeObject("a");
  return !value.isNil() && jsonText(value).size() < 10 * kMega;
}

std::string largeFile(const std::vector<std::string>& objects) {
  return binaryFile(objects, 0, 4);
}

std::string reference(std::size_t index) {
  std::string bytes;
  appendBigEndian(index, 4, bytes);
  return bytes;
}

TEST(HostileSizes, DeepNestingIsRefusedAtItsLimit) {
  constexpr std::size_t kLevels = 100'000;
  EXPECT_FALSE(isRead(json, repeated("[", kLevels) + repeated("]", kLevels), kMega));
  EXPECT_FALSE(isRead(json, repeated("{\"a\":", kLevels) + "1" + repeated("}", kLevels), kMega));
  EXPECT_FALSE(isRead(plist, repeated("<array>", kLevels) + repeated("</array>", kLevels), kMega));
  EXPECT_FALSE(
      isRead(plist, repeated("<dict><key>a</key>", kLevels) + "<true/>" + repeated("</dict>", kLevels), kMega));
  std::vector<std::string> objects;
  for (std::size_t i = 1; i < kLevels; ++i) objects.push_back(joined({"\xA1", reference(i)}));
  objects.push_back("\x09");
  EXPECT_FALSE(isRead(plist, largeFile(objects), kMega));
}

TEST(HostileSizes, HugeFilesCostNoMoreThanTheAllowance) {
  EXPECT_FALSE(isRead(json, joined({"[", repeated("1,", kHuge / 2)}), kFullAllowance));
  EXPECT_FALSE(isRead(plist, joined({"<array>", repeated("<true/>", kHuge / 7)}), kFullAllowance));
  std::string members = "{";
  std::string elements = "<dict>";
  for (int i = 0; members.size() < kHuge / 2; ++i) members += joined({"\"", std::to_string(i), "\":1,"});
  for (int i = 0; elements.size() < kHuge; ++i) {
    elements += joined({"<key>", std::to_string(i), "</key><true/>"});
  }
  EXPECT_FALSE(isRead(json, members, kFullAllowance));
  EXPECT_FALSE(isRead(plist, elements, kFullAllowance));
  const std::string text(kHuge, 'x');
  EXPECT_FALSE(isRead(plist, joined({"<!--", text}), kMega));
  EXPECT_FALSE(isRead(plist, text, kMega));
  // An array of 25 million references to one number.
  const std::string references = repeated(reference(1), kHuge / 4);
  EXPECT_FALSE(
      isRead(plist, largeFile({joined({"\xAF\x12", reference(kHuge / 4), references}), "\x10\x01"}), kFullAllowance));
  // One long text is read, at the cost of a few copies.
  EXPECT_TRUE(isRead(json, joined({"{\"a\":\"", text, "\"}"}), 4 * kHuge));
  EXPECT_TRUE(isRead(plist, largeFile({joined({"\x5F\x12", reference(kHuge), text})}), 4 * kHuge));
}

TEST(HostileSizes, SharedObjectsThatMakeAHugeValueAreRefused) {
  // Object 6 and the following: arrays, each holding the next one ten times.
  std::vector<std::string> objects = {
      "\xD3\x01\x02\x03\x04\x04\x05", "\x51"s + "a", "\x51"s + "b", "\x51"s + "c", "\xA1\x06", "\x10\x01"};
  for (char i = 6; i < 66; ++i) objects.push_back(joined({"\xAA", std::string(10, static_cast<char>(i + 1))}));
  objects.push_back("\x10\x01");
  EXPECT_FALSE(isRead(plist, binaryFile(objects), kFullAllowance));
  // Of a dictionary file each entry is refused by itself.
  const auto lazy = [](const std::string& file) {
    const auto opened = PropertyListDictionarySnapshot::open(file);
    std::string text;
    for (const auto& [key, value] : opened.value().entries()) value.appendJSON(text);
    for (const auto& [key, value] : opened.value().entries()) text += value.decode().description();
    return text == "nullnull1(null)(null)1";
  };
  EXPECT_TRUE(isRead(lazy, binaryFile(objects), kMega));
  // One long text, thousands of times.
  const std::string text = joined({"\x5F\x11\x7F\xFF", std::string(0x7FFF, 'a')});
  EXPECT_FALSE(isRead(plist, binaryFile({joined({"\xAF\x11\x7F\xFF", std::string(0x7FFF, '\x01')}), text}), 3 * kHuge));
}

TEST(HostileSizes, TheTrailerIsNotTrusted) {
  const auto fileOf = [&](std::uint64_t count, std::uint64_t top, std::uint64_t tableStart, const char* table) {
    std::string file = joined({"bplist00\x09", table});
    appendTrailer(1, 1, count, top, tableStart, file);
    return file;
  };
  ASSERT_TRUE(plist(fileOf(1, 0, 9, "\x08")));
  const std::string malformed[] = {
      fileOf(std::uint64_t{1} << 60, 0, 9, "\x08"),
      fileOf((std::uint64_t{1} << 32) + 1, 0, 9, "\x08"),
      fileOf(1, std::uint64_t{1} << 32, 9, "\x08"),
      fileOf(2, 0, 9, "\x08"),
      fileOf(1, 1, 9, "\x08"),
      fileOf(1, 0, 10, "\x08"),
      fileOf(1, 0, ~std::uint64_t{0}, "\x08"),
      fileOf(1, 0, std::uint64_t{1} << 63, "\x08"),
      fileOf(1, 0, 9, "\x09"),  // the table itself
      fileOf(1, 0, 9, "\xFF"),  // beyond the end
      // A length far beyond the file, of a list, a dictionary, text and data.
      largeFile({"\xAF\x12\x7F\xFF\xFF\xFF"}),
      largeFile({"\xDF\x13\x40\0\0\0\0\0\0\0"s}),
      largeFile({"\x6F\x13\x40\0\0\0\0\0\0\x01"s}),
      largeFile({"\x4F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}),
  };
  const auto opens = [](const std::string& bytes) {
    const auto opened = PropertyListDictionarySnapshot::open(bytes);
    return opened && !opened.value().entries().empty();
  };
  for (const std::string& file : malformed) {
    EXPECT_FALSE(isRead(plist, file, kMega)) << ::testing::PrintToString(file);
    EXPECT_FALSE(isRead(opens, file, kMega)) << ::testing::PrintToString(file);
  }
}

TEST(HostileSizes, ArchivesWithCyclesOrHugeValuesAreCut) {
  // The root holds an item, which holds an array of ten times the item and a dictionary of the array.
  const Dictionary cycles = archiveOf({
      Dictionary{{"list", uid(5)}, {"map", uid(7)}, {"self", uid(3)}, {"root", uid(1)}, {"$class", uid(4)}},
      classNamed("Item"),
      Dictionary{{"NS.objects", Array(10, uid(3))}, {"$class", uid(6)}},
      classNamed("NSArray"),
      Dictionary{{"NS.keys", Array{uid(9)}}, {"NS.objects", Array{uid(5)}}, {"$class", uid(8)}},
      classNamed("NSDictionary"),
      "key",
  });
  EXPECT_TRUE(isRead(archive, binaryPropertyList(cycles), kMega));
  // 100,000 arrays, each holding the next; then 100 arrays, each holding the next one ten times.
  for (const auto& [levels, width] : {std::pair<std::size_t, std::size_t>{100'000, 1}, {100, 10}}) {
    std::vector<Value> objects;
    for (std::size_t i = 0; i < levels; ++i) {
      const std::size_t next = i + 1 < levels ? 3 + i + 1 : 3 + levels + 1;
      objects.push_back(Dictionary{{"NS.objects", Array(width, uid(next))}, {"$class", uid(3 + levels)}});
    }
    objects.push_back(classNamed("NSArray"));
    objects.push_back("end");
    EXPECT_TRUE(isRead(archive, binaryPropertyList(archiveOf(objects)), kFullAllowance));
  }
}

}  // namespace
}  // namespace zorvane::platform
