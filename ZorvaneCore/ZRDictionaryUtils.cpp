#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {

Value validObjectForKey(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.findNonNull(key);
  return value ? *value : Value();
}

Value validObjectForKeyPath(const Dictionary& dictionary, std::string_view path) {
  const Dictionary* current = &dictionary;
  while (true) {
    const std::size_t dot = path.find('.');
    const Value* value = current->findNonNull(path.substr(0, dot));
    if (!value) return {};
    if (dot == std::string_view::npos) return *value;
    current = value->asDictionary();
    if (!current) return {};
    path.remove_prefix(dot + 1);
  }
}

}  // namespace zorvane
