#include "Host/BatchText.h"

#include <algorithm>
#include <unordered_set>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/BinaryObjects.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/JSONText.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::host {
namespace {

using platform::BinaryObject;
using platform::BinaryObjects;

constexpr std::size_t kMaximumFile = 512u << 20;
constexpr platform::DecodingAllowance kEventAllowance{1'000'000, 16u << 20};
constexpr std::size_t kLeastText = 64u << 20;
constexpr std::size_t kTextPerFileByte = 16;
// The file, a batch and its events are containers; an event is put as a whole.
constexpr int kEventDepth = 3;

class BatchWriter {
 public:
  BatchWriter(const BinaryObjects& objects, std::size_t textLimit, const LineFile::Put& put)
      : objects_(objects), textLeft_(textLimit), put_(put) {}

  void write(std::size_t index, int depth) {
    BinaryObject object;
    if (depth == kEventDepth || textLeft_ == 0 || !objects_.read(index, object) || !object.isContainer()) {
      return writeWhole(index, depth);
    }
    const bool isList = object.kind == BinaryObject::Kind::List;
    put_(isList ? "[" : "{");
    std::unordered_set<std::string> keys;
    const char* separator = "";
    for (std::size_t i = 0; i < object.count; ++i) {
      std::string before = separator;
      if (!isList) {
        BinaryObject key;
        std::string storage;
        if (!objects_.read(objects_.reference(object, i), key) || !key.isText()) continue;
        const std::string text(platform::textOfObject(key, storage));
        if (!keys.insert(text).second) continue;
        platform::appendJSONString(text, before);
        before += ':';
      }
      putText(before);
      write(objects_.reference(object, isList ? i : object.count + i), depth + 1);
      separator = ",";
    }
    put_(isList ? "]" : "}");
  }

  std::size_t leftOut() const { return leftOut_; }

 private:
  void writeWhole(std::size_t index, int depth) {
    platform::DecodingAllowance allowance = kEventAllowance;
    std::string text;
    if (textLeft_ == 0 || !platform::appendJSONOfObject(objects_, index, depth, allowance, text)) {
      text = "null";
      ++leftOut_;
    }
    putText(text);
  }
  void putText(std::string_view text) {
    put_(text);
    textLeft_ -= std::min(textLeft_, text.size());
  }

  const BinaryObjects& objects_;
  std::size_t textLeft_;
  const LineFile::Put& put_;
  std::size_t leftOut_ = 0;
};

// XML cannot share objects: its text is about as large as the file.
std::string textOfXML(const std::string& bytes) {
  const auto parsed = platform::parsePropertyList(bytes);
  return parsed && parsed.value().isDictionary() ? platform::jsonText(parsed.value()) : "null";
}

}  // namespace

std::size_t writeBatches(const std::string& path, const LineFile::Put& put) {
  const auto file = platform::readFile(path, kMaximumFile);
  if (!file || !file.value().starts_with("bplist")) return put(file ? textOfXML(file.value()) : "null"), 0;
  const auto objects = BinaryObjects::open(file.value(), nullptr);
  BinaryObject root;
  if (!objects || !objects.value().read(objects.value().top, root) || root.kind != BinaryObject::Kind::Dictionary) {
    return put("null"), 0;
  }
  BatchWriter writer(objects.value(), std::max(kLeastText, kTextPerFileByte * file.value().size()), put);
  writer.write(objects.value().top, 0);
  return writer.leftOut();
}

}  // namespace zorvane::host
