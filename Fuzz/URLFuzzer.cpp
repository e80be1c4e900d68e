#include <algorithm>

#include "Check.h"
#include "Module.h"
#include "Platform/Text/URLComponents.h"
#include "Platform/Text/Utf8.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/SessionAndSource/ZRSource.h"

using namespace zorvane;

namespace {

std::string escaped(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    result += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return result;
}

// The session manager with a manual clock and no network.
void startModule() {
  CoreSetup core;
  core.remoteConfiguration = {{"source_extra_keys", Array{"x", ""}}, {"periodic_flush_enabled", false}};
  fuzz::startModule(std::move(core));
}

void checkItems(std::string_view text, const std::vector<platform::QueryItem>& items) {
  std::string again = "a:?";
  for (const auto& [name, value] : items) {
    fuzz::check(platform::validUtf8(name) == name, "a name is UTF-8");
    fuzz::check(platform::validUtf8(value.value_or("")) == value.value_or(""), "a value is UTF-8");
    if (&name != &items.front().name) again += '&';
    again += escaped(name);
    if (value) again += '=' + escaped(*value);
  }
  if (items.empty()) return;
  const std::string_view beforeFragment = text.substr(0, text.find('#'));
  const auto separators =
      std::count(beforeFragment.begin() + static_cast<long>(beforeFragment.find('?')), beforeFragment.end(), '&');
  fuzz::check(items.size() == static_cast<std::size_t>(separators) + 1, "an item between any two separators");
  const auto read = platform::queryItemsOfURL(again);
  // A single item without name and value is an empty query.
  if (again == "a:?") return;
  fuzz::check(read.size() == items.size(), "the escaped items are read again");
  for (std::size_t i = 0; i < items.size(); ++i) {
    fuzz::check(read[i].name == items[i].name && read[i].value == items[i].value, "with the same texts");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const bool started = (startModule(), true);
  (void)started;
  const std::string text(fuzz::textOf(data, size));
  checkItems(text, platform::queryItemsOfURL(text));

  const URL url = *Value(URL{text}).asURL();  // valid UTF-8, like a host's URL
  const auto source = ZRSource::initSourceWithURL(url.absoluteString);
  const Dictionary info = source->getSourceInfoDict();
  fuzz::check(source->sourceURL() == Value(url.absoluteString), "the text is kept");
  ZRSessionManager::processURL(url);
  if (source->isValidSource()) {
    const Array current = ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray();
    fuzz::check(current.size() == 1, "a source is the session's only one");
    Dictionary other = *current[0].asDictionary();
    Dictionary own = info;
    // Of two URLs with equal sources the first one is kept.
    other.remove("source_url");
    own.remove("source_url");
    fuzz::check(other == own, "a valid source becomes the session's");
  }
  platform::hostServices().scheduler->waitUntilIdle();
  return 0;
}
