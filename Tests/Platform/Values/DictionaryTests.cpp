#include <gtest/gtest.h>

#include <map>
#include <random>

#include "Platform/Values/Value.h"

namespace zorvane::platform {
namespace {

std::string keysOf(const Dictionary& dictionary) {
  std::string keys;
  for (const auto& [key, value] : dictionary) keys += key;
  return keys;
}

TEST(Dictionary, KeepsTheOrderOfFirstSettingAndHoldsNoNil) {
  Dictionary dictionary{{"b", 1}, {"x", Value()}, {"a", 2}, {"b", 3}};
  EXPECT_EQ(keysOf(dictionary), "ba");
  EXPECT_EQ(dictionary.objectForKey("b"), Value(3));
  EXPECT_TRUE(dictionary.objectForKey("x").isNil());
  EXPECT_THROW(dictionary.set("a", nullptr), ValueError);
  dictionary.setObjectNilHandledForKey(nullptr, "a");
  EXPECT_EQ(dictionary.objectForKey("a"), Value(2));
  dictionary.set("c", null);
  EXPECT_TRUE(dictionary.remove("b"));
  EXPECT_FALSE(dictionary.remove("b"));
  EXPECT_EQ(keysOf(dictionary), "ac");
  dictionary.set("b", 4);
  EXPECT_EQ(keysOf(dictionary), "acb");
  dictionary.clear();
  EXPECT_EQ(dictionary, Dictionary());
}

TEST(Dictionary, RepairsItsKeys) {
  Dictionary dictionary;
  dictionary.set("a\xFF", 1);
  dictionary.set("a\xFE", 2);
  EXPECT_EQ(dictionary.size(), 1U);
  EXPECT_EQ(dictionary.objectForKey("a\xEF\xBF\xBD"), Value(2));
  dictionary.set(std::string_view("a\0b", 3), 3);
  EXPECT_FALSE(dictionary.contains("a"));
}

// Random steps around and far above the size at which keys are looked up by hash, compared with a std::map.
TEST(Dictionary, FindsWhatWasSetAndNotWhatWasRemoved) {
  std::mt19937 random(1);
  for (const std::size_t keyCount : {std::size_t{12}, std::size_t{40}, std::size_t{400}}) {
    Dictionary dictionary;
    std::map<std::string, int> expected;
    for (int step = 0; step < 5000; ++step) {
      const std::string key = "key" + std::to_string(random() % keyCount);
      if (random() % 5 < 2) {
        EXPECT_EQ(dictionary.remove(key), expected.erase(key) == 1);
      } else {
        dictionary.set(key, step);
        expected[key] = step;
      }
      if (step % 50 != 0) continue;
      ASSERT_EQ(dictionary.size(), expected.size());
      for (const auto& [name, value] : dictionary) ASSERT_EQ(value, Value(expected.at(std::string(name))));
      for (std::size_t i = 0; i < keyCount; ++i) {
        const std::string name = "key" + std::to_string(i);
        ASSERT_EQ(dictionary.contains(name), expected.contains(name)) << name;
      }
    }
    Dictionary copy = dictionary;
    ASSERT_EQ(copy, dictionary);
    const Dictionary moved = std::move(copy);
    ASSERT_EQ(moved, dictionary);
  }
}

}  // namespace
}  // namespace zorvane::platform
