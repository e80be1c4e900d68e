// Files that are small but endless, deep or simply huge: what reading them may allocate, all in all, is bounded.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>

#include "Formats/TestPropertyLists.h"
#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/KeyedArchive.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"

namespace {

std::atomic<std::size_t> allocatedBytes{0};

}  // namespace

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZR_OWN_ALLOCATOR
#endif
#endif
#if !defined(ZR_OWN_ALLOCATOR)  // ThreadSanitizer has one of its own; nothing is counted there
void* operator new(std::size_t size) {
  allocatedBytes += size;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
#endif

namespace zorvane::platform {
namespace {

using namespace std::string_literals;

constexpr std::size_t kMega = 1'000'000;
constexpr std::size_t kHuge = 100 * kMega;
// Four million values, which is where every reader ends, in lists that grow by doubling.
constexpr std::size_t kFullAllowance = 700 * kMega;

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

// Whether it is read, with no more allocated for that than so many bytes (the input does not count).
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

// Of objects with references and offsets of 4 bytes.
std::string largeFile(const std::vector<std::string>& objects) {
  std::string file = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    appendBigEndian(file.size(), 4, offsets);
    file += object;
  }
  const std::size_t tableStart = file.size();
  file += offsets;
  appendTrailer(4, 4, objects.size(), 0, tableStart, file);
  return file;
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
  for (std::size_t i = 1; i < kLevels; ++i) objects.push_back("\xA1" + reference(i));
  objects.push_back("\x09");
  EXPECT_FALSE(isRead(plist, largeFile(objects), kMega));
}

TEST(HostileSizes, HugeFilesCostNoMoreThanTheAllowance) {
  EXPECT_FALSE(isRead(json, "[" + repeated("1,", kHuge / 2), kFullAllowance));
  EXPECT_FALSE(isRead(plist, "<array>" + repeated("<true/>", kHuge / 7), kFullAllowance));
  std::string members = "{";
  std::string elements = "<dict>";
  for (int i = 0; members.size() < kHuge / 2; ++i) members += '"' + std::to_string(i) + "\":1,";
  for (int i = 0; elements.size() < kHuge; ++i) elements += "<key>" + std::to_string(i) + "</key><true/>";
  EXPECT_FALSE(isRead(json, members, kFullAllowance));
  EXPECT_FALSE(isRead(plist, elements, kFullAllowance));
  EXPECT_FALSE(isRead(plist, "<!--" + std::string(kHuge, 'x'), kMega));
  EXPECT_FALSE(isRead(plist, std::string(kHuge, 'x'), kMega));
  // An array of 25 million references to one number.
  const std::string count = reference(kHuge / 4);
  EXPECT_FALSE(isRead(plist, largeFile({"\xAF\x12" + count + repeated(reference(1), kHuge / 4), "\x10\x01"}), kMega));
  // What is one long text is read, at the price of a few copies.
  EXPECT_TRUE(isRead(json, "{\"a\":\"" + std::string(kHuge, 'x') + "\"}", 4 * kHuge));
  EXPECT_TRUE(isRead(plist, largeFile({"\x5F\x12" + reference(kHuge) + std::string(kHuge, 'x')}), 4 * kHuge));
}

TEST(HostileSizes, EntitiesAreNotDeclared) {
  std::string bomb = "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\">";
  for (char name = 'b'; name <= 'z'; ++name) {
    bomb += "<!ENTITY "s + name + " \"" + repeated("&"s + static_cast<char>(name - 1) + ";", 10) + "\">";
  }
  EXPECT_FALSE(isRead(plist, bomb + "]><plist><string>&z;</string></plist>", kMega));
  EXPECT_FALSE(isRead(plist, "<plist><string>&z;</string></plist>", kMega));
}

TEST(HostileSizes, WhatATrailerPromisesIsNotBelieved) {
  const std::string objects = "bplist00\x09";
  const auto fileOf = [&](std::size_t count, std::size_t top, std::size_t tableStart, const std::string& table) {
    std::string file = objects + table;
    appendTrailer(1, 1, count, top, tableStart, file);
    return file;
  };
  ASSERT_TRUE(plist(fileOf(1, 0, 9, "\x08")));
  const std::string unsound[] = {
      fileOf(std::size_t{1} << 60, 0, 9, "\x08"),
      fileOf(2, 0, 9, "\x08"),
      fileOf(1, 1, 9, "\x08"),
      fileOf(1, 0, 10, "\x08"),
      fileOf(1, 0, ~std::size_t{0}, "\x08"),
      fileOf(1, 0, std::size_t{1} << 63, "\x08"),
      fileOf(1, 0, 9, "\x09"),  // the table itself
      fileOf(1, 0, 9, "\xFF"),  // beyond the end
      // A length far beyond the file, of a list, a dictionary, text and data.
      largeFile({"\xAF\x12\x7F\xFF\xFF\xFF"}),
      largeFile({"\xDF\x13\x40\0\0\0\0\0\0\0"s}),
      largeFile({"\x6F\x13\x40\0\0\0\0\0\0\x01"s}),
      largeFile({"\x4F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}),
  };
  for (const std::string& file : unsound) {
    EXPECT_FALSE(isRead(plist, file, kMega)) << testing::PrintToString(file);
    const auto opens = [](const std::string& bytes) {
      const auto image = PropertyListDictionaryImage::open(bytes);
      return image && !image.value().entries().empty();
    };
    EXPECT_FALSE(isRead(opens, file, kMega)) << testing::PrintToString(file);
  }
}

TEST(HostileSizes, ArchivesThatGoRoundInCirclesAreCut) {
  static constexpr std::string_view kClasses[] = {"Item"};
  const auto uid = [](std::uint32_t index) { return Value(std::make_shared<const PropertyListUID>(index)); };
  // The root holds an item, which holds an array of ten times the item and a dictionary of the array.
  const Value file = Dictionary{
      {"$version", 100000},
      {"$archiver", "NSKeyedArchiver"},
      {"$top", Dictionary{{"root", uid(1)}}},
      {"$objects",
       Array{"$null", Dictionary{{"a", uid(3)}, {"$class", uid(2)}}, Dictionary{{"$classname", "Root"}},
             Dictionary{{"list", uid(5)}, {"map", uid(7)}, {"self", uid(3)}, {"root", uid(1)}, {"$class", uid(4)}},
             Dictionary{{"$classname", "Item"}}, Dictionary{{"NS.objects", Array(10, uid(3))}, {"$class", uid(6)}},
             Dictionary{{"$classname", "NSArray"}},
             Dictionary{{"NS.keys", Array{uid(9)}}, {"NS.objects", Array{uid(5)}}, {"$class", uid(8)}},
             Dictionary{{"$classname", "NSDictionary"}}, "key"}}};
  const auto unarchives = [](const std::string& bytes) {
    const auto root = unarchiveRootObject(bytes, "Root", kClasses);
    return root && !root.value()->decodeObject("a").isNil();
  };
  EXPECT_TRUE(isRead(unarchives, binaryPropertyList(file), kMega));
}

}  // namespace
}  // namespace zorvane::platform
