#include "Platform/Files/DefaultsStore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "Platform/Files/FileSystem.h"
#include "Platform/Files/SystemCalls.h"
#include "Platform/HostServices.h"
#include "Support/TemporaryDirectory.h"

namespace zorvane::platform {
namespace {

TEST(DefaultsStore, KeepsTypedValuesOverALaunch) {
  TemporaryDirectory directory;
  const std::string path = directory.file("deep/er/store.plist");
  const Dictionary content{{"text", "ä"}, {"yes", true}, {"count", 42}, {"list", Array{1, "b"}}, {"date", Date{1.5}}};
  {
    DefaultsStore store("name", path);
    for (const auto& [key, value] : content) store.setObjectForKey(value, key);
    store.setObjectForKey("gone", "gone");
    store.setObjectForKey(nullptr, "gone");
    EXPECT_FALSE(fileExists(path));
    ASSERT_TRUE(store.synchronize());
    store.setObjectForKey("lost", "unsynchronised");
  }
  DefaultsStore store("name", path);
  EXPECT_EQ(store.dictionaryRepresentation(), content);
  EXPECT_EQ(store.objectForKey("yes").kind(), Value::Kind::Bool);
  EXPECT_TRUE(store.objectForKey("missing").isNil());
}

TEST(DefaultsStore, SyncsTheDirectoryForALastingChangeAlsoAfterAFailure) {
  TemporaryDirectory directory;
  DefaultsStore store("name", directory.file("store.plist"));
  static int syncs = 0;
  static bool fails = false;
  SystemCalls calls = kRealSystemCalls;
  calls.fsync = [](int) {
    ++syncs;
    return fails ? -1 : 0;
  };
  setSystemCalls(&calls);
  int value = 0;
  const auto syncsAfter = [&](std::initializer_list<Durability> changes) {
    syncs = 0;
    for (const Durability durability : changes) store.setObjectForKey(++value, "key", durability);
    EXPECT_EQ(static_cast<bool>(store.writeChanges()), !fails);
    return syncs;
  };
  constexpr Durability kEventual = Durability::Eventual;
  EXPECT_EQ(syncsAfter({kEventual, kEventual}), 1) << "the file";
  EXPECT_EQ(syncsAfter({Durability::Lasting, kEventual}), 2) << "the directory, too";
  fails = true;
  (void)syncsAfter({Durability::Lasting});
  fails = false;
  EXPECT_EQ(syncsAfter({}), 2) << "of what failed";
  EXPECT_EQ(syncsAfter({kEventual}), 1);
  store.makeLasting();
  EXPECT_EQ(syncsAfter({}), 2) << "of what is written already";
  EXPECT_EQ(syncsAfter({}), 0);
  setSystemCalls(nullptr);
}

TEST(DefaultsStore, ReadsBooleansOutOfNumbersAndTextOnly) {
  TemporaryDirectory directory;
  DefaultsStore store("name", directory.file("store.plist"));
  const struct {
    Value value;
    bool expected;
  } kCases[] = {{true, true},  {0, false},        {2.5, true},     {"YES", true},
                {"no", false}, {Array{1}, false}, {Date{1}, false}};
  for (const auto& [value, expected] : kCases) {
    store.setObjectForKey(value, "key");
    EXPECT_EQ(store.boolForKey("key"), expected) << value.description();
  }
  EXPECT_FALSE(store.boolForKey("missing"));
}

TEST(DefaultsStore, KeepsADamagedFileAsideAndSaysSoOnce) {
  TemporaryDirectory directory;
  std::vector<std::string> problems;
  setDefaultsProblemHook([&](const std::string& problem) { problems.push_back(problem); });
  for (const char* bytes : {"", "bplist00", "no property list", "<plist><array/></plist>"}) {
    ASSERT_TRUE(replaceFileAtomically(directory.file("store.plist"), bytes));
    DefaultsStore store("name", directory.file("store.plist"));
    EXPECT_TRUE(store.dictionaryRepresentation().empty());
    EXPECT_TRUE(store.objectForKey("key").isNil());
    EXPECT_EQ(readFile(directory.file("store.plist.damaged"), 100).value(), bytes);
  }
  setDefaultsProblemHook({});
  EXPECT_EQ(problems.size(), 4U);
}

TEST(DefaultsStore, NeverWritesOverAFileThatCannotBeReadAtTheMoment) {
  TemporaryDirectory directory;
  const std::string path = directory.file("store.plist");
  {
    DefaultsStore store("name", path);
    for (const char* key : {"kept", "changed", "removed", "made"}) store.setObjectForKey("old", key);
    ASSERT_TRUE(store.synchronize());
  }
  static SystemCalls broken = kRealSystemCalls;
  broken.read = [](int, void*, std::size_t) -> ssize_t {
    errno = EIO;
    return -1;
  };
  setSystemCalls(&broken);
  DefaultsStore store("name", path);
  store.setObjectForKey("new", "changed");
  store.removeObjectForKey("removed");
  for (const char* key : {"made", "missing"}) EXPECT_EQ(store.textForKeyOrStored(key, "new"), "new");
  EXPECT_FALSE(store.synchronize());
  setSystemCalls(nullptr);
  ASSERT_TRUE(store.synchronize());
  EXPECT_EQ(store.textForKeyOrStored("made", "newer"), "old");
  EXPECT_EQ(DefaultsStore("again", path).dictionaryRepresentation(),
            (Dictionary{{"kept", "old"}, {"changed", "new"}, {"made", "old"}, {"missing", "new"}}));
}

TEST(DefaultsStore, WritesOnlyChangesAndTriesAgainAfterAFailure) {
  TemporaryDirectory directory;
  const std::string path = directory.file("blocked/store.plist");
  ASSERT_TRUE(replaceFileAtomically(directory.file("blocked"), "a file where a directory should be"));
  DefaultsStore store("name", path);
  EXPECT_TRUE(store.synchronize());  // nothing to be written
  store.setObjectForKey(1, "key");
  EXPECT_FALSE(store.synchronize());
  EXPECT_EQ(store.objectForKey("key"), Value(1));
  ASSERT_TRUE(removeFile(directory.file("blocked")));
  ASSERT_TRUE(store.synchronize());
  EXPECT_EQ(DefaultsStore("again", path).objectForKey("key"), Value(1));
  ASSERT_TRUE(removeFile(path));
  ASSERT_TRUE(store.synchronize());
  store.removeObjectForKey("missing");
  store.setObjectForKey(1, "key");
  ASSERT_TRUE(store.synchronize());
  EXPECT_FALSE(fileExists(path));
  store.setObjectForKey(true, "key");  // equal, but of another kind
  ASSERT_TRUE(store.synchronize());
  EXPECT_TRUE(DefaultsStore("again", path).objectForKey("key").asBool());
}

TEST(DefaultsStore, NeverLosesAValueToASynchronisationBesideIt) {
  TemporaryDirectory directory;
  const std::string path = directory.file("store.plist");
  DefaultsStore store("name", path);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&store, &path, thread] {
      for (int i = 0; i < 25; ++i) {
        const std::string key = std::to_string(thread) + "." + std::to_string(i);
        store.setObjectForKey(i, key);
        ASSERT_TRUE(store.synchronize());
        ASSERT_EQ(DefaultsStore("reader", path).objectForKey(key), Value(i));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(DefaultsStore("reader", path).dictionaryRepresentation().size(), 100U);
}

TEST(SharedDefaults, StandBelowTheHostsDirectoryUnderTheirNames) {
  TemporaryDirectory directory;
  HostServices services;
  services.directories.defaults = directory.path();
  ASSERT_TRUE(configureHost(std::move(services)));
  std::string synchronized;
  setSynchronizeHook([&](const std::string& store) { synchronized += store + ";"; });
  const struct {
    DefaultsStore& store;
    const char* file;
  } kStores[] = {
      {standardDefaults(), "standard.plist"},
      {sdkDefaults(), "sdk.plist"},
      {groupDefaults("group.com.example"), "groups/group.com.example.plist"},
      {groupDefaults("../a/b"), "groups/%2e.%2fa%2fb.plist"},
      {groupDefaults("%2e.%2fa%2fb"), "groups/%252e.%252fa%252fb.plist"},
  };
  for (const auto& [store, file] : kStores) {
    store.setObjectForKey(file, "file");
    ASSERT_TRUE(store.synchronize());
    EXPECT_EQ(DefaultsStore("reader", directory.file(file)).objectForKey("file"), Value(file));
  }
  setSynchronizeHook({});
  EXPECT_TRUE(sdkDefaults().synchronize());
  EXPECT_EQ(synchronized, "standard;sdk;group.com.example;../a/b;%2e.%2fa%2fb;");
  EXPECT_EQ(&groupDefaults("../a/b"), &kStores[3].store);
}

}  // namespace
}  // namespace zorvane::platform
