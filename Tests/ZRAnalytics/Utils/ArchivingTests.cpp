#include "ZRAnalytics/Utils/ZRArchiving.h"

#include "Support/ModuleTest.h"

namespace zorvane::testing {
namespace {

class ArchivingTest : public ModuleTest {};

std::shared_ptr<platform::ArchivedObject> archiveOf(const char* name) {
  const auto object = std::make_shared<platform::ArchivedObject>("ZRSource");
  object->encodeObject("source", name);
  return object;
}

TEST_F(ArchivingTest, OnlyAFileWithOtherContentIsWritten) {
  start();
  const std::string path = archivePath("archive");
  ZRArchiveWriter writer;
  const auto identityAfter = [&](const char* name, platform::Durability durability) {
    EXPECT_TRUE(writer.write(path, durability, [&] { return archiveOf(name); }));
    return platform::fileIdentity(path).value();
  };
  const auto first = identityAfter("a", platform::Durability::Eventual);
  EXPECT_EQ(identityAfter("a", platform::Durability::Lasting), first);
  const auto second = identityAfter("b", platform::Durability::Lasting);
  EXPECT_NE(second, first);
  ASSERT_TRUE(platform::removeFile(path));
  EXPECT_TRUE(identityAfter("b", platform::Durability::Eventual));
}

TEST_F(ArchivingTest, WriteThatBeganFirstDoesNotReplaceALaterOne) {
  start();
  const std::string path = archivePath("archive");
  ZRArchiveWriter writer;
  writer.write(path, platform::Durability::Eventual, [&] {
    writer.write(path, platform::Durability::Eventual, [&] { return archiveOf("later"); });
    return archiveOf("earlier");
  });
  const std::string_view classes[] = {"ZRSource"};
  const auto read = readArchive(path, "ZRSource", classes);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->decodeObject("source"), Value("later"));
}

}  // namespace
}  // namespace zorvane::testing
