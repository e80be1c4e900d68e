#include <unordered_map>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/KeyedArchive.h"
#include "Platform/Formats/KeyedArchiveClasses.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::platform {
namespace {

constexpr std::uint32_t kNil = 0;

Value reference(std::uint32_t index) {
  return std::make_shared<const PropertyListUID>(index);
}

class Writer {
 public:
  Writer() { objects_.push_back("$null"); }

  // Returns the index of the value's entry. An entry gets its index before its content; a class after the content of
  // its first instance.
  std::uint32_t add(const Value& value, int depth) {
    switch (value.kind()) {
      case Value::Kind::Nil:
        return kNil;
      case Value::Kind::Null:
        return fill(reserve(), "NSNull", Dictionary());
      case Value::Kind::URL:
        return addEntry(value.asURL()->absoluteString);
      case Value::Kind::Date:
        return fill(reserve(), "NSDate",
                    Dictionary{{"NS.time", value.asDate()->secondsSince1970 - kPropertyListEpoch}});
      case Value::Kind::Array:
      case Value::Kind::Dictionary:
        return depth < archive::kMaxDepth ? addContainer(value, depth) : kNil;
      case Value::Kind::Object:
        if (isLargeInteger(value)) return addEntry(value);
        return depth < archive::kMaxDepth ? addObject(value.asObject(), depth) : kNil;
      default:
        return addEntry(value);
    }
  }

  Array takeObjects() { return std::move(objects_); }

 private:
  std::uint32_t addEntry(Value value) {
    objects_.push_back(std::move(value));
    return static_cast<std::uint32_t>(objects_.size() - 1);
  }
  std::uint32_t reserve() { return addEntry(Value()); }

  std::uint32_t fill(std::uint32_t index, std::string_view className, Dictionary content) {
    content.set("$class", classNamed(className));
    objects_[index] = std::move(content);
    return index;
  }

  Value classNamed(std::string_view name) {
    if (const Value* known = classes_.find(name)) return *known;
    Value added = reference(addEntry(Dictionary{{"$classname", name}, {"$classes", Array{name, "NSObject"}}}));
    classes_.set(name, added);
    return added;
  }

  std::uint32_t addContainer(const Value& value, int depth) {
    const std::uint32_t index = reserve();
    Array keys;
    Array elements;
    const auto addElement = [&](const Value& element) {
      // The platform's readers reject nil in a container.
      const std::uint32_t entry = add(element, depth + 1);
      elements.push_back(reference(entry == kNil ? addEntry("") : entry));
    };
    if (const Array* array = value.asArray()) {
      for (const Value& element : *array) {
        if (!element.isNil()) addElement(element);
      }
      return fill(index, "NSArray", Dictionary{{"NS.objects", elements}});
    }
    for (const auto& [key, element] : *value.asDictionary()) keys.push_back(reference(addEntry(key)));
    for (const auto& [key, element] : *value.asDictionary()) addElement(element);
    return fill(index, "NSDictionary", Dictionary{{"NS.keys", keys}, {"NS.objects", elements}});
  }

  std::uint32_t addObject(const std::shared_ptr<const Object>& object, int depth) {
    const auto* archived = object->as<ArchivedObject>();
    if (!archived) return add(plainValueOf(*object), depth);
    const auto [known, isNew] = indices_.emplace(archived, 0);
    if (!isNew) return known->second;
    const std::uint32_t index = known->second = reserve();
    Dictionary content;
    for (const auto& [key, value, inPlace] : archived->fields()) {
      // Keys that begin with "$" are the archive's own: double it.
      const std::string name = key.starts_with('$') ? "$" + key : key;
      content.set(name, inPlace ? value : reference(add(value, depth + 1)));
    }
    return fill(index, archived->className(), std::move(content));
  }

  Array objects_;
  Dictionary classes_;  // references by name
  std::unordered_map<const ArchivedObject*, std::uint32_t> indices_;
};

}  // namespace

void ArchivedObject::encodeObject(std::string_view key, Value value) {
  fields_.push_back({std::string(key), std::move(value), false});
}

void ArchivedObject::encodeBool(std::string_view key, bool value) {
  fields_.push_back({std::string(key), value, true});
}

std::string archiveRootObject(const std::shared_ptr<const ArchivedObject>& root) {
  Writer writer;
  const std::uint32_t index = writer.add(root, 0);
  return binaryPropertyList(Dictionary{{"$version", archive::kVersion},
                                       {"$archiver", archive::kArchiver},
                                       {"$top", Dictionary{{"root", reference(index)}}},
                                       {"$objects", writer.takeObjects()}});
}

}  // namespace zorvane::platform
