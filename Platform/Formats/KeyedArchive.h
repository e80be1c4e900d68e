// Keyed archives in the platform's own layout (version 100000), inside a property list.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Export.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::platform {

// An object in an archive: its class name and its encoded keys. A key's value is a plain value. Objects in it, also
// inside arrays and dictionaries, are ArchivedObjects again.
class ZR_PUBLIC ArchivedObject final : public ObjectOf<ArchivedObject> {
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

// A binary property list with the object as its root. An object that is referred to several times is one entry. Nil is
// left out of arrays. The null marker is written as the archive's null object, a URL as its text, any other object as
// its plain value; anything beyond 256 levels as nil, or as "" in a container.
std::string archiveRootObject(const std::shared_ptr<const ArchivedObject>& root);

// Reads either encoding. Accepts the platform's plain classes, rootClass and classes. A malformed file, or a root of
// another class than rootClass, is an error. Below a valid root anything malformed reads as nil, and is left out of
// arrays and dictionaries. So are cycles, values deeper than 256 levels and values of more than a million parts.
Result<std::shared_ptr<const ArchivedObject>> unarchiveRootObject(std::string_view bytes, std::string_view rootClass,
                                                                  std::span<const std::string_view> classes);

}  // namespace zorvane::platform
