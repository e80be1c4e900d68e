#include "Platform/Files/FileSystem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "Support/FileFaults.h"
#include "Support/TemporaryDirectory.h"

namespace zorvane::platform {
namespace {

constexpr std::size_t kNoLimit = std::size_t{1} << 30;

std::string contentOf(const std::string& path) {
  Result<std::string> content = readFile(path, kNoLimit);
  return content ? content.value() : content.error().message;
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return status.st_mode & 07777U;
}

TEST(ReplaceFile, WritesThePiecesInOrderAndKeepsTheFilePrivate) {
  TemporaryDirectory directory;
  const std::string path = directory.file("file");
  std::vector<std::string> texts;
  std::string all;
  for (int i = 0; i < 1000; ++i)
    all += texts.emplace_back(static_cast<std::size_t>(i % 7), static_cast<char>('a' + i % 26));
  const std::vector<std::string_view> pieces(texts.begin(), texts.end());
  ASSERT_TRUE(replaceFileAtomically(path, pieces));
  EXPECT_EQ(contentOf(path), all);
  EXPECT_EQ(modeOf(path), 0600U);
  ASSERT_TRUE(replaceFileAtomically(path, ""));
  EXPECT_EQ(contentOf(path), "");
  EXPECT_EQ(directory.entries(), 1U);
}

TEST(ReplaceFile, ReplacesALinkInsteadOfItsTarget) {
  TemporaryDirectory directory;
  ASSERT_TRUE(replaceFileAtomically(directory.file("victim"), "precious"));
  ASSERT_EQ(::symlink(directory.file("victim").c_str(), directory.file("link").c_str()), 0);
  EXPECT_FALSE(readFile(directory.file("link"), kNoLimit));
  ASSERT_TRUE(replaceFileAtomically(directory.file("link"), "new"));
  EXPECT_EQ(contentOf(directory.file("victim")), "precious");
  EXPECT_EQ(contentOf(directory.file("link")), "new");
}

TEST(ReplaceFile, AnyCallThatFailsLeavesAWholeFileAndNoTemporaryOne) {
  const struct {
    int code;
    const char* reason;
  } kErrors[] = {{ENOSPC, "No space left on device"}, {EIO, "Input/output error"}, {EACCES, "Permission denied"}};
  for (const std::size_t maxWrite : {std::size_t{0}, std::size_t{2}}) {
    for (const auto& [code, reason] : kErrors) {
      int failures = 0;
      for (int number = 0;; ++number) {
        SCOPED_TRACE(testing::Message() << "call " << number << ", " << reason << ", writes of " << maxWrite);
        TemporaryDirectory directory;
        const std::string path = directory.file("file");
        ASSERT_TRUE(replaceFileAtomically(path, "old"));
        FileFaults faults(number, FaultKind::Once, code);
        faults.limitWrites(maxWrite);
        const std::string_view pieces[] = {"ne", "", "w content"};
        const Status status = replaceFileAtomically(path, pieces);
        faults.lift();
        EXPECT_EQ(faults.openFiles(), 0);
        EXPECT_EQ(directory.entries(), 1U);
        const std::string content = contentOf(path);
        if (status) {
          EXPECT_EQ(content, "new content");
        } else {
          ++failures;
          EXPECT_TRUE(content == "old" || content == "new content") << content;
          EXPECT_EQ(status.error().code, code);
          EXPECT_EQ(status.error().message.find("cannot write " + path + ": " + reason), 0U) << status.error().message;
        }
        if (!faults.reached()) break;
      }
      // Each step before the closing of the directory: open, openat, write, fsync, close, rename, fsync.
      EXPECT_GE(failures, maxWrite == 0 ? 7 : 12);
    }
  }
}

TEST(ReplaceFile, ASignalAtAnyCallCostsNothing) {
  for (int number = 0;; ++number) {
    SCOPED_TRACE(number);
    TemporaryDirectory directory;
    FileFaults faults(number, FaultKind::Once, EINTR);
    EXPECT_TRUE(replaceFileAtomically(directory.file("file"), "content"));
    faults.lift();
    EXPECT_EQ(contentOf(directory.file("file")), "content");
    EXPECT_EQ(directory.entries(), 1U);
    if (!faults.reached()) break;
  }
}

TEST(ReplaceFile, FirstWritesOfSeveralThreadsInADirectoryAllStand) {
  skipFsync();
  for (int round = 0; round < 500; ++round) {
    TemporaryDirectory directory;
    std::vector<std::thread> threads;
    for (const char* name : {"a", "b", "c", "d"}) {
      threads.emplace_back([&, name] { EXPECT_TRUE(replaceFileAtomically(directory.file(name), "content")); });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

TEST(ReplaceFile, AFileSizeLimitIsAnErrorAndNotASignal) {
  TemporaryDirectory directory;
  ASSERT_TRUE(replaceFileAtomically(directory.file("file"), "old"));
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{4096, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const Status status = replaceFileAtomically(directory.file("file"), std::string(8192, 'x'));
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  ASSERT_FALSE(status);
  EXPECT_EQ(status.error().code, EFBIG);
  EXPECT_EQ(contentOf(directory.file("file")), "old");
  EXPECT_EQ(directory.entries(), 1U);
}

TEST(ReplaceFile, RefusesWhatIsNoPath) {
  TemporaryDirectory directory;
  for (const std::string& path : {std::string(), directory.file(""), directory.file(std::string("a\0b", 3))}) {
    EXPECT_FALSE(replaceFileAtomically(path, "content")) << path;
  }
  EXPECT_EQ(directory.entries(), 0U);
}

TEST(ReadFile, RefusesWhatIsTooLongOrNoRegularFile) {
  TemporaryDirectory directory;
  ASSERT_TRUE(replaceFileAtomically(directory.file("file"), "12345"));
  EXPECT_TRUE(readFile(directory.file("file"), 5));
  EXPECT_EQ(readFile(directory.file("file"), 4).error().code, EFBIG);
  EXPECT_EQ(readFile(directory.file("missing"), 5).error().code, ENOENT);
  EXPECT_EQ(readFile(directory.path(), kNoLimit).error().code, EISDIR);
  ASSERT_EQ(::mkfifo(directory.file("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(readFile(directory.file("pipe"), kNoLimit));  // and does not wait for a writer
}

TEST(ReadFile, AnyCallThatFailsIsAnError) {
  TemporaryDirectory directory;
  ASSERT_TRUE(replaceFileAtomically(directory.file("file"), "12345"));
  for (int number = 0; number < 4; ++number) {  // open, fstat, read, read of the end
    FileFaults faults(number, FaultKind::Once, EIO);
    const Result<std::string> content = readFile(directory.file("file"), kNoLimit);
    ASSERT_FALSE(content) << number;
    EXPECT_NE(content.error().message.find("cannot read " + directory.file("file") + ": Input/output error"),
              std::string::npos);
    EXPECT_EQ(faults.openFiles(), 0);
  }
}

TEST(Directories, AreMadePrivateWithTheirParents) {
  TemporaryDirectory directory;
  const std::string deep = directory.file("a/b//c/");
  EXPECT_EQ(makeDirectory(deep).error().code, ENOENT);
  ASSERT_TRUE(makeDirectories(deep));
  ASSERT_TRUE(makeDirectories(deep));
  for (const char* name : {"a", "a/b", "a/b/c"}) EXPECT_EQ(modeOf(directory.file(name)), 0700U);
  ASSERT_TRUE(replaceFileAtomically(directory.file("file"), ""));
  EXPECT_FALSE(makeDirectory(directory.file("file")));
  EXPECT_FALSE(makeDirectories(directory.file("file/below")));
  ASSERT_TRUE(replaceFileAtomically(directory.file("d/e/file"), "content"));
  EXPECT_EQ(modeOf(directory.file("d")), 0700U);
  EXPECT_FALSE(replaceFileAtomically(directory.file("file/below/file"), ""));
}

TEST(RemoveFile, OfAMissingFileIsNoError) {
  TemporaryDirectory directory;
  ASSERT_TRUE(replaceFileAtomically(directory.file("file"), ""));
  EXPECT_TRUE(removeFile(directory.file("file")));
  EXPECT_FALSE(fileExists(directory.file("file")));
  EXPECT_TRUE(removeFile(directory.file("file")));
  EXPECT_FALSE(removeFile(directory.path()));
}

TEST(JoinPath, PutsOneSlashBetween) {
  EXPECT_EQ(joinPath("/a", "b"), "/a/b");
  EXPECT_EQ(joinPath("/a/", "/b/c"), "/a/b/c");
  EXPECT_EQ(joinPath("/", "b"), "/b");
  EXPECT_EQ(joinPath("", "b"), "b");
}

}  // namespace
}  // namespace zorvane::platform
