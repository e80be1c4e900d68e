#include "Check.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"

using namespace zorvane;
using Snapshot = platform::PropertyListDictionarySnapshot;

namespace {

std::string contentOf(const Snapshot& snapshot) {
  std::string content;
  for (const std::string_view piece : snapshot.pieces()) content += piece;
  return content;
}

void checkEntry(const platform::LazyPropertyListValue& lazy) {
  const platform::Value value = lazy.decode();
  std::string text;
  lazy.appendJSON(text);
  fuzz::check(text == platform::jsonText(value), "an entry has the JSON of its value");
  const platform::Dictionary* dictionary = value.asDictionary();
  if (!dictionary) return;
  for (const auto& [key, element] : *dictionary) {
    if (key.empty()) continue;
    const platform::LazyPropertyListValue found = lazy.element(key);
    fuzz::check(fuzz::same(found.decode(), element), "a value can be decoded by key");
    fuzz::check(found.count() == (element.isArray() ? element.asArray()->size() : 0), "elements can be counted by key");
    text.clear();
    found.appendJSON(text);
    fuzz::check(text == platform::jsonText(element), "JSON can be written by key");
  }
}

platform::Dictionary validEntries(const Snapshot& snapshot) {
  platform::Dictionary values;
  for (const auto& [key, value] : snapshot.entries()) values.setObjectNilHandledForKey(value.decode(), key);
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const auto opened = Snapshot::open(std::string(fuzz::textOf(data, size)));
  if (!opened) return 0;
  for (const auto& entry : opened.value().entries()) checkEntry(entry.value);

  const Snapshot rewritten = Snapshot::ofEntries(opened.value().entries());
  platform::Dictionary content = validEntries(rewritten);
  fuzz::check(fuzz::same(content, validEntries(opened.value())), "a rewritten file holds the decodable entries");
  fuzz::check(rewritten.entries().size() == opened.value().entries().size(), "and keeps the others");
  const auto again = Snapshot::open(contentOf(rewritten));
  fuzz::check(again && fuzz::same(content, validEntries(again.value())), "a rewritten file can be opened");
  content.set("new", 1);
  const auto grown = Snapshot::open(contentOf(rewritten.withEntry("new", 1)));
  fuzz::check(grown && fuzz::same(validEntries(grown.value()), content), "a rewritten file can be extended");

  const auto reopened = Snapshot::open(contentOf(opened.value().withEntry("new", platform::Array{"x"})));
  fuzz::check(static_cast<bool>(reopened), "any file can be extended");
  const platform::Dictionary entries = validEntries(reopened.value());
  fuzz::check(entries.objectForKey("new") == platform::Value(platform::Array{"x"}),
              "an extended file holds the new entry");
  return 0;
}
