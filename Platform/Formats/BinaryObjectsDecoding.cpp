#include <forward_list>
#include <unordered_set>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/JSONText.h"
#include "Platform/Text/NumberText.h"

namespace zorvane::platform {
namespace {

std::string positionText(const BinaryObject& object) {
  return " at byte " + textOfInteger(static_cast<std::int64_t>(object.position));
}

// Base of Decoder and Transcoder: reads each object, checks its depth and takes its cost from the allowance.
class ObjectVisitor {
 public:
  ObjectVisitor(const BinaryObjects& objects, DecodingAllowance& allowance)
      : objects_(objects), allowance_(allowance) {}

  const std::string& error() const { return error_; }

 protected:
  using Kind = BinaryObject::Kind;

  // The depth limit ends cycles; the allowance ends values that shared children make huge.
  bool enter(std::size_t index, int depth, BinaryObject& object) {
    if (!objects_.read(index, object)) {
      return fail("object " + textOfInteger(static_cast<std::int64_t>(index)) + " is missing or unsound");
    }
    if (depth > kMaxPropertyListDepth) return fail("too many levels" + positionText(object));
    const bool isContainer = object.isContainer();
    if (!allowance_.take(isContainer ? object.count : 0, isContainer ? 0 : object.content.size())) {
      return fail("too many values" + positionText(object));
    }
    return true;
  }

  bool readKey(const BinaryObject& dictionary, std::size_t pair, BinaryObject& key) {
    if (!objects_.read(objects_.reference(dictionary, pair), key) || !key.isText()) {
      return fail("a key is no text in the dictionary" + positionText(dictionary));
    }
    if (!allowance_.take(0, key.content.size())) return fail("too long keys" + positionText(dictionary));
    return true;
  }

  bool fail(std::string what) {
    error_ = "no binary property list: " + std::move(what);
    return false;
  }

  const BinaryObjects& objects_;

 private:
  DecodingAllowance& allowance_;
  std::string error_;
};

class Decoder : public ObjectVisitor {
 public:
  using ObjectVisitor::ObjectVisitor;

  bool decode(std::size_t index, int depth, Value& value) {
    BinaryObject object;
    if (!enter(index, depth, object)) return false;
    switch (object.kind) {
      case Kind::Null:
        value = null;
        return true;
      case Kind::False:
      case Kind::True:
        value = object.kind == Kind::True;
        return true;
      case Kind::Integer:
        value = integerOfObject(object);
        return true;
      case Kind::Real:
        value = realOfObject(object);
        return true;
      case Kind::Date:
        value = dateOfObject(object);
        return true;
      case Kind::Data:
        value = Data{{object.content.begin(), object.content.end()}};
        return true;
      case Kind::ASCII:
      case Kind::UTF16:
        value = textOfObject(object, storage_);
        return true;
      case Kind::UID:
        value = std::make_shared<const PropertyListUID>(uidOfObject(object));
        return true;
      case Kind::List:
        return decodeArray(object, depth, value);
      case Kind::Dictionary:
        return decodeDictionary(object, depth, value);
    }
    return false;
  }

 private:
  bool decodeArray(const BinaryObject& object, int depth, Value& value) {
    Array array;
    array.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
      if (!decode(objects_.reference(object, i), depth + 1, array.emplace_back())) return false;
    }
    value = Value(std::move(array));
    return true;
  }

  bool decodeDictionary(const BinaryObject& object, int depth, Value& value) {
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

  std::string storage_;
};

// A set of texts: searched one by one while it is small, then by hash.
class TextSet {
 public:
  // False when the text is in the set already. isStable: the bytes outlive the set; others are copied.
  bool insert(std::string_view text, bool isStable) {
    constexpr std::size_t kMaxSearched = 16;
    if (texts_.size() < kMaxSearched) {
      for (const std::string_view other : texts_) {
        if (other == text) return false;
      }
    } else {
      if (hashed_.empty()) hashed_.insert(texts_.begin(), texts_.end());
      if (hashed_.count(text) != 0) return false;
    }
    if (!isStable) text = copies_.emplace_front(text);
    if (texts_.size() < kMaxSearched) {
      texts_.push_back(text);
    } else {
      hashed_.insert(text);
    }
    return true;
  }

 private:
  std::vector<std::string_view> texts_;
  std::unordered_set<std::string_view> hashed_;
  std::forward_list<std::string> copies_;
};

class Transcoder : public ObjectVisitor {
 public:
  Transcoder(const BinaryObjects& objects, DecodingAllowance& allowance, std::string& out)
      : ObjectVisitor(objects, allowance), out_(out) {}

  bool append(std::size_t index, int depth) {
    BinaryObject object;
    if (!enter(index, depth, object)) return false;
    switch (object.kind) {
      case Kind::Null:
        out_ += "null";
        return true;
      case Kind::False:
        out_ += "false";
        return true;
      case Kind::True:
        out_ += "true";
        return true;
      case Kind::Integer:
        appendJSON(integerOfObject(object), out_);
        return true;
      case Kind::Real:
        appendJSONDouble(realOfObject(object), out_);
        return true;
      case Kind::Date:
        appendJSONDate(dateOfObject(object), out_);
        return true;
      case Kind::Data:
        appendJSONData({reinterpret_cast<const std::uint8_t*>(object.content.data()), object.content.size()}, out_);
        return true;
      case Kind::ASCII:
      case Kind::UTF16:
        appendJSONString(textOfObject(object, storage_), out_);
        return true;
      case Kind::UID:
        out_ += "{\"CF$UID\":";
        appendJSONInteger(uidOfObject(object), out_);
        out_ += '}';
        return true;
      case Kind::List:
        return appendArray(object, depth);
      case Kind::Dictionary:
        return appendDictionary(object, depth);
    }
    return false;
  }

 private:
  bool appendArray(const BinaryObject& object, int depth) {
    out_ += '[';
    for (std::size_t i = 0; i < object.count; ++i) {
      if (i != 0) out_ += ',';
      if (!append(objects_.reference(object, i), depth + 1)) return false;
    }
    out_ += ']';
    return true;
  }

  bool appendDictionary(const BinaryObject& object, int depth) {
    out_ += '{';
    TextSet keys;
    bool isFirst = true;
    for (std::size_t i = 0; i < object.count; ++i) {
      BinaryObject key;
      if (!readKey(object, i, key)) return false;
      const std::string_view text = textOfObject(key, storage_);
      const bool isNew = keys.insert(text, text.data() == key.content.data());
      const std::size_t start = out_.size();
      if (!isFirst) out_ += ',';
      appendJSONString(text, out_);
      out_ += ':';
      if (!append(objects_.reference(object, object.count + i), depth + 1)) return false;
      if (isNew) {
        isFirst = false;
      } else {
        out_.resize(start);  // the first value of a key holds; this one was only checked
      }
    }
    out_ += '}';
    return true;
  }

  std::string& out_;
  std::string storage_;
};

}  // namespace

Result<Value> decodeObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance) {
  Decoder decoder(objects, allowance);
  Value value;
  if (!decoder.decode(index, depth, value)) return Error{decoder.error(), 0};
  return value;
}

bool appendJSONOfObject(const BinaryObjects& objects, std::size_t index, int depth, DecodingAllowance& allowance,
                        std::string& out) {
  const std::size_t start = out.size();
  if (Transcoder(objects, allowance, out).append(index, depth)) return true;
  out.resize(start);
  return false;
}

}  // namespace zorvane::platform
