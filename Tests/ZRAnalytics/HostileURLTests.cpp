#include "Platform/Values/Text.h"
#include "Support/HostileURLs.h"
#include "ZRAnalytics/EventManagement/EventPipelineTest.h"

namespace zorvane::testing {
namespace {

TEST_F(EventPipelineTest, NoURLTextDoesHarmAndASourceAmongThemIsFound) {
  startWithSession();
  HostileURLs urls(20);
  constexpr std::size_t kCount = 20000;
  for (std::size_t i = 0; i < kCount; ++i) {
    if (i % 500 != 0) {
      ZRSessionManager::processURL(*Value(URL{urls.next()}).asURL());
      continue;
    }
    const std::string name = std::to_string(i) + urls.bytes(20);
    const std::string text = "a:?" + HostileURLs::repeated("utm_source=x&", urls.below(3)) +
                             HostileURLs::escaped("source") + "=y&utm_source=" + HostileURLs::escaped(name) +
                             "&utm_medium";
    ZRSessionManager::processURL(URL{text});
    EXPECT_EQ(ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray(),
              (Array{Dictionary{{"source", platform::validUtf8(name)}, {"source_url", text}}}));
  }
  settle();
  std::size_t incoming = 0;
  for (const std::string& message : log_->messages()) incoming += message.starts_with("Incoming URL : ");
  EXPECT_EQ(incoming, kCount);
  EXPECT_TRUE(log_->errors().empty());
}

}  // namespace
}  // namespace zorvane::testing
