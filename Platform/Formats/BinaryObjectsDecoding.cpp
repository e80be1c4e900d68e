#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/JSONText.h"
#include "Platform/Text/NumberText.h"

namespace zorvane::platform {
namespace {

// The keys of a dictionary as JSON, "first": and ,"second": and so on, each with a zero byte behind it.
struct JSONKeys {
  std::string_view references;
  std::string texts;
  std::size_t byteCount = 0;  // in the file
  bool areUnique = false;
};

// Reads objects as values or as JSON. Checks the depth of each and takes its cost from the allowance.
class Reader {
 public:
  Reader(const BinaryObjects& objects, DecodingAllowance& allowance) : objects_(objects), allowance_(allowance) {}

  const std::string& error() const { return error_; }

  bool decode(std::size_t index, int depth, Value& value) {
    BinaryObject object;
    if (!enter(index, depth, object)) return false;
    if (object.isContainer()) return decodeContainer(object, depth, value);
    value = scalarOf(object);
    return true;
  }

  bool appendJSON(std::size_t index, int depth, std::string& out) {
    BinaryObject object;
    if (!enter(index, depth, object)) return false;
    if (object.isText()) {
      appendJSONString(textOfObject(object, storage_), out);
    } else if (object.kind == Kind::List) {
      return appendArray(object, depth, out);
    } else if (object.kind == Kind::Dictionary) {
      return appendDictionary(object, depth, out);
    } else {
      platform::appendJSON(scalarOf(object), out);
    }
    return true;
  }

 private:
  using Kind = BinaryObject::Kind;
  static constexpr std::size_t kRememberedKeys = 8;

  // The depth limit ends cycles; the allowance ends values that shared children make huge.
  bool enter(std::size_t index, int depth, BinaryObject& object) {
    if (!objects_.read(index, object)) return fail("a missing or unsound object", index);
    if (depth > kMaxPropertyListDepth) return fail("too many levels at object", index);
    const bool isContainer = object.isContainer();
    return allowance_.take(isContainer ? object.count : 0, isContainer ? 0 : object.content.size()) ||
           fail("too many values at object", index);
  }

  bool readKey(const BinaryObject& dictionary, std::size_t pair, BinaryObject& key) {
    const std::size_t index = objects_.reference(dictionary, pair);
    if (!objects_.read(index, key) || !key.isText()) return fail("a key that is no text, object", index);
    return allowance_.take(0, key.content.size()) || fail("too long keys at object", index);
  }

  bool fail(const char* what, std::size_t index) {
    error_ = "no binary property list: ";
    error_ += what;
    error_ += ' ';
    error_ += textOfInteger(static_cast<std::int64_t>(index));
    return false;
  }

  Value scalarOf(const BinaryObject& object) {
    switch (object.kind) {
      case Kind::False:
      case Kind::True:
        return object.kind == Kind::True;
      case Kind::Integer:
        return integerOfObject(object);
      case Kind::Real:
        return realOfObject(object);
      case Kind::Date:
        return dateOfObject(object);
      case Kind::Data:
        return Data{{object.content.begin(), object.content.end()}};
      case Kind::ASCII:
      case Kind::UTF16:
        return textOfObject(object, storage_);
      case Kind::UID:
        return std::make_shared<const PropertyListUID>(uidOfObject(object));
      default:
        return null;
    }
  }

  bool decodeContainer(const BinaryObject& object, int depth, Value& value) {
    if (object.kind == Kind::List) {
      Array array;
      array.reserve(object.count);
      for (std::size_t i = 0; i < object.count; ++i) {
        if (!decode(objects_.reference(object, i), depth + 1, array.emplace_back())) return false;
      }
      value = Value(std::move(array));
      return true;
    }
    Dictionary dictionary;
    dictionary.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
      BinaryObject key;
      Value element;
      if (!readKey(object, i, key)) return false;
      if (!decode(objects_.reference(object, object.count + i), depth + 1, element)) return false;
      const std::string_view text = textOfObject(key, storage_);
      if (!dictionary.contains(text)) dictionary.set(text, std::move(element));
    }
    value = Value(std::move(dictionary));
    return true;
  }

  bool appendArray(const BinaryObject& object, int depth, std::string& out) {
    out += '[';
    for (std::size_t i = 0; i < object.count; ++i) {
      if (i != 0) out += ',';
      if (!appendJSON(objects_.reference(object, i), depth + 1, out)) return false;
    }
    out += ']';
    return true;
  }

  bool appendDictionary(const BinaryObject& object, int depth, std::string& out) {
    JSONKeys made;
    const JSONKeys* keys = keysOf(object, made);
    if (!keys) return false;
    if (!keys->areUnique) {
      Value value;
      if (!decodeContainer(object, depth, value)) return false;
      platform::appendJSON(value, out);
      return true;
    }
    out += '{';
    std::string_view key = keys->texts.c_str();
    for (std::size_t i = 0; i < object.count; ++i) {
      out += key;
      key = key.data() + key.size() + 1;
      if (!appendJSON(objects_.reference(object, object.count + i), depth + 1, out)) return false;
    }
    out += '}';
    return true;
  }

  // Events have few different sets of keys. The first ones are remembered, others are written to `made`.
  const JSONKeys* keysOf(const BinaryObject& object, JSONKeys& made) {
    made.references = {object.content.data(), object.content.size() / 2};
    for (const JSONKeys& known : keys_) {
      if (known.references != made.references) continue;
      if (allowance_.take(0, known.byteCount)) return &known;
      fail("too long keys at object", objects_.reference(object, 0));
      return nullptr;
    }
    Dictionary seen;
    for (std::size_t i = 0; i < object.count; ++i) {
      BinaryObject key;
      if (!readKey(object, i, key)) return nullptr;
      made.byteCount += key.content.size();
      const std::string_view text = textOfObject(key, storage_);
      seen.set(text, null);
      if (i != 0) made.texts += ',';
      appendJSONString(text, made.texts);
      made.texts.append(":", 2);
    }
    made.areUnique = seen.size() == object.count;
    if (keys_.size() == kRememberedKeys) return &made;
    keys_.reserve(kRememberedKeys);
    return &keys_.emplace_back(std::move(made));
  }

  const BinaryObjects& objects_;
  DecodingAllowance& allowance_;
  std::vector<JSONKeys> keys_;  // does not grow beyond its capacity: dictionaries being written refer to its elements
  std::string storage_;
  std::string error_;
};

}  // namespace

Result<Value> decodeObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance) {
  Reader reader(objects, allowance);
  Value value;
  if (!reader.decode(index, depth, value)) return Error{reader.error(), 0};
  return value;
}

bool appendJSONOfObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance,
                        std::string& out) {
  const std::size_t start = out.size();
  if (Reader(objects, allowance).appendJSON(index, depth, out)) return true;
  out.resize(start);
  return false;
}

}  // namespace zorvane::platform
