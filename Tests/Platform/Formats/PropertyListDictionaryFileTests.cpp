#include "Platform/Formats/PropertyListDictionaryFile.h"

#include <gtest/gtest.h>

#include <thread>

#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"
#include "TestPropertyLists.h"

namespace zorvane::platform {
namespace {

using namespace std::string_literals;
using Snapshot = PropertyListDictionarySnapshot;

std::string contentOf(const Snapshot& snapshot) {
  std::string content;
  for (const std::string_view piece : snapshot.pieces()) content += piece;
  return content;
}

Snapshot opened(std::string bytes) {
  auto snapshot = Snapshot::open(std::move(bytes));
  if (snapshot) return snapshot.value();
  ADD_FAILURE() << snapshot.error().message;
  return Snapshot();
}

Value contentOfFile(const Snapshot& snapshot) {
  const auto read = parsePropertyList(contentOf(snapshot));
  return read ? read.value() : Value(read.error().message);
}

Value valuesOf(const Snapshot& snapshot) {
  Dictionary values;
  for (const auto& [key, value] : snapshot.entries()) values.setObjectNilHandledForKey(value.decode(), key);
  return values;
}

Value batch(int number) {
  Array events;
  for (int i = 0; i < 5; ++i) {
    events.push_back(Dictionary{{"name", "shown"}, {"number", number * 100 + i}, {"text", numbered("batch ", number)}});
  }
  return Dictionary{{"id", numbered("b", number)}, {"events", events}};
}

TEST(PropertyListDictionaryFile, GrowsEntryByEntryOverManyRuns) {
  Snapshot snapshot;
  Dictionary expected;
  EXPECT_EQ(contentOfFile(snapshot), Value(expected));
  EXPECT_TRUE(opened(contentOf(snapshot)).entries().empty());
  for (int i = 0; i < 120; ++i) {
    snapshot = snapshot.withEntry(numbered("key", i), batch(i));
    expected.set(numbered("key", i), batch(i));
    if (i % 40 == 39) snapshot = opened(contentOf(snapshot));
  }
  EXPECT_EQ(valuesOf(snapshot), Value(expected));
  EXPECT_EQ(contentOfFile(snapshot), Value(expected));
  EXPECT_LT(snapshot.pieces().size(), 40U);
}

TEST(PropertyListDictionaryFile, ExistingBytesAreCopied) {
  const Snapshot snapshot = opened(contentOf(Snapshot().withEntry("a", batch(1))));
  const std::string before = contentOf(snapshot);
  const std::string after = contentOf(snapshot.withEntry("b", batch(1)));
  // All objects stay in place but the root, which is last before the offset table. Others refuse offsets of eight
  // bytes.
  EXPECT_EQ(before[before.size() - 26], 4);
  const std::size_t rootSize = 1 + 2 * 2;
  const std::size_t tableSize = 4 * static_cast<std::size_t>(static_cast<unsigned char>(before[before.size() - 17]));
  const std::size_t objects = before.size() - 32 - tableSize - rootSize;
  EXPECT_EQ(after.substr(0, objects), before.substr(0, objects));
  // The same batch again adds its containers and the new key. Its scalars exist.
  const std::size_t newObjects = 5 * (1 + 6 * 2) + (1 + 5 * 2) + (1 + 4 * 2) + 2;
  EXPECT_EQ(after.size() - before.size(), newObjects + 8 * 4 + 2 * 2);
  // Extending a snapshot, even twice, does not change it.
  const Snapshot left = snapshot.withEntry("left", 1);
  const Snapshot right = snapshot.withEntry("right", 2);
  EXPECT_EQ(contentOf(snapshot), before);
  EXPECT_EQ(contentOfFile(left), Value(Dictionary{{"a", batch(1)}, {"left", 1}}));
  EXPECT_EQ(contentOfFile(right), Value(Dictionary{{"a", batch(1)}, {"right", 2}}));
}

TEST(PropertyListDictionaryFile, GrowsBeyondTheReachOfShortReferences) {
  const auto numbers = [](int first) {
    Array array;
    for (int i = 0; i < 10'000; ++i) array.push_back(first + i);
    return Value(array);
  };
  const auto referenceSizeOf = [](const Snapshot& snapshot) { return contentOf(snapshot).end()[-25]; };
  Snapshot snapshot;
  Dictionary expected;
  for (int i = 0; i < 8; ++i) {
    snapshot = snapshot.withEntry(numbered("key", i), numbers(i * 10'000));
    expected.set(numbered("key", i), numbers(i * 10'000));
    EXPECT_EQ(referenceSizeOf(snapshot), i < 6 ? 2 : 4);
    if (i % 3 == 2) snapshot = opened(contentOf(snapshot));
  }
  EXPECT_EQ(contentOfFile(snapshot), Value(expected));
  EXPECT_EQ(contentOf(Snapshot::ofEntries(snapshot.entries())).size(), contentOf(snapshot).size());
  const Snapshot kept = Snapshot::ofEntries(std::span(snapshot.entries()).first(1));
  EXPECT_EQ(referenceSizeOf(kept), 2);
  EXPECT_EQ(contentOfFile(kept), Value(Dictionary{{"key0", numbers(0)}}));
}

TEST(PropertyListDictionaryFile, AKnownKeyIsReplacedAndNilChangesNothing) {
  const Snapshot snapshot = Snapshot().withEntry("a", 1).withEntry("b", 2);
  EXPECT_EQ(contentOfFile(snapshot.withEntry("a", 3)), Value(Dictionary{{"a", 3}, {"b", 2}}));
  EXPECT_EQ(contentOfFile(opened(contentOf(snapshot)).withEntry("b", 3)), Value(Dictionary{{"a", 1}, {"b", 3}}));
  EXPECT_EQ(contentOfFile(snapshot.withEntry("a", Value())), contentOfFile(snapshot));
}

TEST(PropertyListDictionaryFile, OpensOtherFilesToo) {
  const Dictionary root{{"a", batch(1)}, {"b", Array{1, 2}}};
  const std::string xml =
      "<plist><dict><key>a</key><dict><key>k</key><array><true/></array></dict><key>b</key><real>2</real></dict></"
      "plist>";
  const Snapshot binary = opened(binaryPropertyList(root));
  EXPECT_EQ(contentOf(binary), binaryPropertyList(root));
  EXPECT_EQ(valuesOf(binary), Value(root));
  EXPECT_EQ(contentOfFile(binary.withEntry("c", 3)), Value(Dictionary{{"a", batch(1)}, {"b", Array{1, 2}}, {"c", 3}}));
  const Snapshot text = opened(xml);
  EXPECT_EQ(valuesOf(text), contentOfFile(text));
  EXPECT_EQ(text.entries()[0].value.element("k").count(), 1U);
  EXPECT_EQ(contentOfFile(text.withEntry("c", 3)),
            Value(Dictionary{{"a", Dictionary{{"k", Array{true}}}}, {"b", 2.0}, {"c", 3}}));
  for (const std::string& bytes : {""s, "bplist00"s, binaryPropertyList(Array{}), "<array/>"s, "{\"a\":1}"s}) {
    EXPECT_FALSE(Snapshot::open(bytes)) << bytes;
  }
}

TEST(PropertyListDictionaryFile, AnEntryIsReadByKey) {
  for (const Value& value : {batch(7), Value(Dictionary{{"grüße", "é"}, {"events", "none"}})}) {
    const LazyPropertyListValue lazy = opened(contentOf(Snapshot().withEntry("x", value))).entries()[0].value;
    const Dictionary& dictionary = *value.asDictionary();
    for (const char* key : {"id", "events", "grüße", "missing", ""}) {
      const Value element = dictionary.objectForKey(key);
      EXPECT_EQ(lazy.element(key).decode(), element);
      EXPECT_EQ(lazy.element(key).count(), element.isArray() ? element.asArray()->size() : 0);
    }
    EXPECT_FALSE(lazy.isArray());
  }
  EXPECT_TRUE(Snapshot().withEntry("x", Array{}).entries()[0].value.isArray());
}

TEST(PropertyListDictionaryFile, AnEntryThatCannotBeDecodedIsKept) {
  // The last key is a number; b contains itself, c an object beyond the end.
  const Snapshot snapshot =
      opened(binaryFile({"\xD4\x01\x02\x03\x04\x05\x06\x07\x08", "\x51"s + "a", "\x51"s + "b", "\x51"s + "c",
                         "\x10\x01", "\x10\x07", "\xA1\x06", "\xA1\x63", "\x10\x08"}));
  EXPECT_EQ(valuesOf(snapshot), Value(Dictionary{{"a", 7}}));
  ASSERT_EQ(snapshot.entries().size(), 3U);
  for (const Snapshot& same : {snapshot, opened(contentOf(Snapshot::ofEntries(snapshot.entries())))}) {
    for (const auto& [key, value] : same.entries()) {
      std::string text;
      value.appendJSON(text);
      EXPECT_EQ(text, key == "a" ? "7" : "null");
      EXPECT_EQ(value.isDecodable(), key == "a");
    }
    const Snapshot grown = opened(contentOf(same.withEntry("d", 9)));
    EXPECT_EQ(valuesOf(grown), Value(Dictionary{{"a", 7}, {"d", 9}}));
    EXPECT_EQ(grown.entries().size(), 4U);
  }

  // In the own layout: damage inside one entry, then an unknown marker.
  std::string file = contentOf(Snapshot().withEntry("a", Array{"text"}).withEntry("b", 2));
  const std::size_t array = file.find("\xA1\0\x01"s);
  ASSERT_NE(array, std::string::npos);
  file[array + 2] = '\x7F';
  EXPECT_EQ(valuesOf(opened(file)), Value(Dictionary{{"b", 2}}));
  EXPECT_EQ(valuesOf(opened(file).withEntry("c", 3)), Value(Dictionary{{"b", 2}, {"c", 3}}));
  file[array] = '\xCF';
  EXPECT_EQ(valuesOf(opened(file).withEntry("c", 3)), Value(Dictionary{{"b", 2}, {"c", 3}}));
}

TEST(PropertyListDictionaryFile, ElementsAreCountedThatOneEntryCanHold) {
  const Value million = Array(1'000'000, 1);
  const Array elements{million, million, million, million, "x", Array(5, million), std::string(128'000'001, 'x')};
  EXPECT_EQ(countForEntry(elements, 0, 0), 3U);
  EXPECT_EQ(countForEntry(elements, 3, 0), 2U);
  EXPECT_EQ(countForEntry(elements, 5, 0), 0U);
  EXPECT_EQ(countForEntry(elements, 6, 0), 1U);
  EXPECT_EQ(countForEntry(elements, 6, elements[6]), 0U);
  EXPECT_FALSE(Snapshot().withEntries({{"a", 1}, {"b", elements[5]}}));
  EXPECT_EQ(Snapshot().withEntries({{"a", Array(3, million)}})->entries()[0].value.count(), 3U);
}

TEST(PropertyListDictionaryFile, OfXMLAndBinaryFilesLargeIntegersArePassedOn) {
  const std::string number = "18446744073709551615";
  const Dictionary root{{"a", Array{valueOfUnsigned(18446744073709551615U)}}};
  for (const std::string& file :
       {binaryPropertyList(root), "<dict><key>a</key><array><integer>" + number + "</integer></array></dict>"}) {
    const Snapshot grown = opened(file).withEntry("b", 1);
    EXPECT_EQ(contentOfFile(grown).asDictionary()->objectForKey("a"), root.objectForKey("a"));
    std::string text;
    grown.entries()[0].value.appendJSON(text);
    EXPECT_EQ(text, "[" + number + "]");
  }
}

TEST(PropertyListDictionaryFile, OneSnapshotServesSeveralThreads) {
  const Snapshot snapshot = opened(contentOf(Snapshot().withEntry("a", batch(1)).withEntry("b", batch(2))));
  std::vector<std::thread> threads;
  std::vector<Value> seen(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&snapshot, &seen, i] {
      const Snapshot grown = snapshot.withEntry("c", i);
      std::string text;
      snapshot.entries()[0].value.element("events").appendJSON(text);
      seen[static_cast<std::size_t>(i)] = valuesOf(grown);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(seen[static_cast<std::size_t>(i)], Value(Dictionary{{"a", batch(1)}, {"b", batch(2)}, {"c", i}}));
  }
}

TEST(PropertyListDictionaryFile, OfEntriesHoldsOnlyWhatTheyNeed) {
  Snapshot snapshot;
  for (int i = 0; i < 50; ++i) snapshot = snapshot.withEntry(numbered("key", i), batch(i));
  const std::vector<Snapshot::Entry> some = {snapshot.entries()[3], snapshot.entries()[40]};
  const Snapshot kept = Snapshot::ofEntries(some);
  EXPECT_EQ(contentOfFile(kept), Value(Dictionary{{"key3", batch(3)}, {"key40", batch(40)}}));
  EXPECT_EQ(contentOf(kept), contentOf(Snapshot().withEntry("key3", batch(3)).withEntry("key40", batch(40))));
}

}  // namespace
}  // namespace zorvane::platform
