#include "ZRAnalytics/Utils/ZRArchiving.h"

#include "Support/ModuleTest.h"

namespace zorvane::testing {
namespace {

class ArchivingTest : public ModuleTest {};

TEST_F(ArchivingTest, WriteThatBeganFirstDoesNotReplaceALaterOne) {
  start();
  const auto archiveOf = [](const char* name) {
    const auto object = std::make_shared<platform::ArchivedObject>("ZRSource");
    object->encodeObject("source", name);
    return object;
  };
  const std::string path = archivePath("archive");
  ZRArchiveWriter writer;
  writer.write(path, [&] {
    writer.write(path, [&] { return archiveOf("later"); });
    return archiveOf("earlier");
  });
  const std::string_view classes[] = {"ZRSource"};
  const auto read = readArchive(path, "ZRSource", classes);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->decodeObject("source"), Value("later"));
}

}  // namespace
}  // namespace zorvane::testing
