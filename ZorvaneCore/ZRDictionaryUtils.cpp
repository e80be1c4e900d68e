#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

// Null unless there is something under the key.
const Value* findValid(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  return value && !value->isNull() ? value : nullptr;
}

}  // namespace

Value validObjectForKey(const Dictionary& dictionary, std::string_view key) {
  const Value* value = findValid(dictionary, key);
  return value ? *value : Value();
}

Value validObjectForKeyPath(const Dictionary& dictionary, std::string_view path) {
  const Dictionary* current = &dictionary;
  while (true) {
    const std::size_t dot = path.find('.');
    const Value* value = findValid(*current, path.substr(0, dot));
    if (!value) return {};
    if (dot == std::string_view::npos) return *value;
    current = value->asDictionary();
    if (!current) return {};
    path.remove_prefix(dot + 1);
  }
}

}  // namespace zorvane
