// The module's own archives: the session file and the attribute cache.
#include "Check.h"
#include "Platform/Formats/KeyedArchive.h"
#include "ZRAnalytics/SessionAndSource/ZRSession.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributeData.h"

using namespace zorvane;

namespace {

constexpr std::string_view kClasses[] = {"ZRSessionInfo", "ZRSession", "ZRSource", "ZRUserAttributeData",
                                         "ZRUserAttribute"};

// An object that can be read is archived and read again without a difference.
template <typename Class>
void checkArchive(std::string_view bytes) {
  const auto root = platform::unarchiveRootObject(bytes, Class::kClassName, kClasses);
  if (!root) return;
  const std::string written = platform::archiveRootObject(Class::initWithCoder(*root.value())->encodeWithCoder());
  const auto again = platform::unarchiveRootObject(written, Class::kClassName, kClasses);
  fuzz::check(static_cast<bool>(again), "the archive can be read");
  fuzz::check(platform::archiveRootObject(Class::initWithCoder(*again.value())->encodeWithCoder()) == written,
              "and archived again the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  checkArchive<ZRSessionInfo>(fuzz::textOf(data, size));
  checkArchive<ZRUserAttributeData>(fuzz::textOf(data, size));
  return 0;
}
