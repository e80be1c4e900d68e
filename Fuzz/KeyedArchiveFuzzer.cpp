#include "Check.h"
#include "Platform/Formats/KeyedArchive.h"
#include "Platform/Formats/PropertyList.h"

using namespace zorvane;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static constexpr std::string_view kClasses[] = {"Item"};
  const auto read = platform::unarchiveRootObject(fuzz::textOf(data, size), "Root", kClasses);
  if (!read) return 0;
  const std::string archive = platform::archiveRootObject(read.value());
  const auto again = platform::unarchiveRootObject(archive, "Root", kClasses);
  fuzz::check(static_cast<bool>(again), "a written archive can be read");
  fuzz::check(fuzz::same(platform::parsePropertyList(archive).value(),
                         platform::parsePropertyList(platform::archiveRootObject(again.value())).value()),
              "an archive read back is written the same");
  return 0;
}
