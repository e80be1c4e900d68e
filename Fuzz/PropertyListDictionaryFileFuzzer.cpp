#include "Check.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"

using namespace zorvane;
using Image = platform::PropertyListDictionaryImage;

namespace {

std::string contentOf(const Image& image) {
  std::string content;
  for (const std::string_view piece : image.pieces()) content += piece;
  return content;
}

void checkEntry(const platform::LazyPropertyListValue& lazy) {
  const platform::Value value = lazy.decode();
  std::string text;
  lazy.appendJSONOfKey("", text);
  fuzz::check(text == platform::jsonText(value), "the JSON of an entry is that of its value");
  const platform::Dictionary* dictionary = value.asDictionary();
  if (!dictionary) return;
  for (const auto& [key, element] : *dictionary) {
    if (key.empty()) continue;
    fuzz::check(fuzz::same(lazy.decodeKey(key), element), "an element can be had alone");
    fuzz::check(lazy.countOfKey(key) == (element.isArray() ? element.asArray()->size() : 0), "so can its count");
    text.clear();
    lazy.appendJSONOfKey(key, text);
    fuzz::check(text == platform::jsonText(element), "so can its JSON");
  }
}

platform::Dictionary soundEntries(const Image& image) {
  platform::Dictionary values;
  for (const auto& [key, value] : image.entries()) values.setObjectNilHandledForKey(value.decode(), key);
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const auto opened = Image::open(std::string(fuzz::textOf(data, size)));
  if (!opened) return 0;
  for (const auto& entry : opened.value().entries()) checkEntry(entry.value);

  const Image rewritten = Image::ofEntries(opened.value().entries());
  const auto content = platform::parsePropertyList(contentOf(rewritten));
  fuzz::check(static_cast<bool>(content), "sound entries make a sound file");
  fuzz::check(fuzz::same(content.value(), soundEntries(rewritten)), "which holds them");
  platform::Dictionary extended = *content.value().asDictionary();
  extended.set("new", 1);
  const auto grown = platform::parsePropertyList(contentOf(rewritten.withEntry("new", 1)));
  fuzz::check(grown && fuzz::same(grown.value(), extended), "it can be extended");

  const auto reopened = Image::open(contentOf(opened.value().withEntry("new", platform::Array{"x"})));
  fuzz::check(static_cast<bool>(reopened), "any file can be extended");
  const platform::Dictionary entries = soundEntries(reopened.value());
  fuzz::check(entries.objectForKey("new") == platform::Value(platform::Array{"x"}), "with what is new in it");
  return 0;
}
