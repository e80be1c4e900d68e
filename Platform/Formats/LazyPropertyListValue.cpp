#include <utility>

#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/JSONText.h"
#include "Platform/Formats/PropertyListDictionaryFile.h"

namespace zorvane::platform {
namespace {

// The number of containers around an entry's value. Elements are decoded as if they stood there, too: the check of the
// entry covers them.
constexpr int kEntryDepth = 1;
// No object has this index.
constexpr std::size_t kMissing = static_cast<std::size_t>(-1);

class DeferredValue final : public LazyJSON {
 public:
  explicit DeferredValue(LazyPropertyListValue value) : value_(std::move(value)) {}
  void appendTo(std::string& out) const override { value_.appendJSON(out); }
  Value plainValue() const override { return value_.decode(); }

 private:
  const LazyPropertyListValue value_;
};

}  // namespace

LazyPropertyListValue::LazyPropertyListValue(std::shared_ptr<const BinaryObjects> source, std::size_t object,
                                             bool isDecodable)
    : source_(std::move(source)), object_(object), isDecodable_(isDecodable) {}

Value LazyPropertyListValue::decode() const {
  if (!isDecodable_) return {};
  DecodingAllowance allowance;
  auto decoded = decodeObject(*source_, object_, kEntryDepth, allowance);
  return decoded ? std::move(decoded).value() : Value();
}

std::size_t LazyPropertyListValue::count() const {
  BinaryObject object;
  return source_->read(object_, object) && object.kind == BinaryObject::Kind::List ? object.count : 0;
}

bool LazyPropertyListValue::isArray() const {
  BinaryObject object;
  return source_->read(object_, object) && object.kind == BinaryObject::Kind::List;
}

bool LazyPropertyListValue::isDictionary() const {
  BinaryObject object;
  return source_->read(object_, object) && object.kind == BinaryObject::Kind::Dictionary;
}

void LazyPropertyListValue::appendJSON(std::string& out) const {
  DecodingAllowance allowance;
  if (!isDecodable_ || !appendJSONOfObject(*source_, object_, kEntryDepth, allowance, out)) out += "null";
}

std::vector<LazyPropertyListValue> LazyPropertyListValue::elements(std::span<const std::string_view> keys) const {
  std::vector<LazyPropertyListValue> found(keys.size(), LazyPropertyListValue(source_, kMissing, false));
  BinaryObject dictionary;
  if (!source_->read(object_, dictionary) || dictionary.kind != BinaryObject::Kind::Dictionary) return found;
  std::string storage;
  for (std::size_t i = 0; i < dictionary.count; ++i) {
    BinaryObject key;
    if (!source_->read(source_->reference(dictionary, i), key) || !key.isText()) continue;
    const std::string_view text = textOfObject(key, storage);
    for (std::size_t k = 0; k < keys.size(); ++k) {
      // Of a repeated key the first value holds.
      if (found[k].object_ != kMissing || keys[k] != text) continue;
      found[k].object_ = source_->reference(dictionary, dictionary.count + i);
      found[k].isDecodable_ = isDecodable_;
    }
  }
  return found;
}

Value LazyPropertyListValue::deferred() const {
  if (!isDecodable_) return {};
  return std::shared_ptr<const Object>(std::make_shared<DeferredValue>(*this));
}

}  // namespace zorvane::platform
