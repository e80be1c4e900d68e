// Keyed archives in the platform's own layout (version 100000), inside a property list.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// An object of one of the archive's own classes, as a reader or writer of archives sees it: the class name and the
// encoded keys. Values are plain values; an object inside is an ArchivedObject in a Value again, also within arrays and
// dictionaries.
class ArchivedObject final : public Object {
 public:
  explicit ArchivedObject(std::string className) : className_(std::move(className)) {}

  const std::string& className() const { return className_; }

  // Writing: in the order of the calls. A nil object is written as the archive's nil.
  void encodeObject(std::string_view key, Value value);
  void encodeBool(std::string_view key, bool value);

  // Reading: nil and false when the key is missing or of another kind.
  Value decodeObject(std::string_view key) const;
  bool decodeBool(std::string_view key) const;

  std::string description() const override { return className_; }

  struct Field {
    std::string key;
    Value value;
    bool inPlace = false;
  };
  const std::vector<Field>& fields() const { return fields_; }

 private:
  std::string className_;
  std::vector<Field> fields_;
};

// A binary property list with the object as its root. An object that stands in several places is one entry. Nil is left
// out of arrays; the null marker is the archive's null object, a URL its text, any other object its plain value; beyond
// 256 levels nil or, in a container, "" stands in.
std::string archiveRootObject(const std::shared_ptr<const ArchivedObject>& root);

// Reads either encoding. Of the classes in the archive only the platform's plain ones and those named here are
// accepted; an unsound file, or a root of another class than rootClass, is an error. Below a sound root a wrong value
// reads as nil and costs only itself; in an array or a dictionary it is left out. Cycles, depth (256 levels) and shared
// children (a million parts of a value) are bounded.
Result<std::shared_ptr<const ArchivedObject>> unarchiveRootObject(std::string_view bytes, std::string_view rootClass,
                                                                  std::span<const std::string_view> classes);

}  // namespace zorvane::platform
