#include "Formats/TestPropertyLists.h"

#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::platform {

std::string numbered(const char* text, int number) {
  std::string result = text;
  result += std::to_string(number);
  return result;
}

std::string binaryFile(const std::vector<std::string>& objects, std::size_t top, std::size_t referenceSize) {
  std::string file = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    appendBigEndian(file.size(), 4, offsets);
    file += object;
  }
  const std::size_t tableStart = file.size();
  file += offsets;
  appendTrailer(4, referenceSize, objects.size(), top, tableStart, file);
  return file;
}

Value uid(std::size_t index) {
  return std::make_shared<const PropertyListUID>(static_cast<std::uint32_t>(index));
}

Dictionary archiveOf(const std::vector<Value>& more) {
  Array objects = {"$null", Dictionary{{"a", uid(3)}, {"flag", true}, {"$class", uid(2)}}, classNamed("Root")};
  objects.insert(objects.end(), more.begin(), more.end());
  return Dictionary{{"$version", 100000},
                    {"$archiver", "NSKeyedArchiver"},
                    {"$top", Dictionary{{"root", uid(1)}, {"other", uid(0)}}},
                    {"$objects", objects}};
}

Value classNamed(const char* name) {
  return Dictionary{{"$classname", name}, {"$classes", Array{name, "NSObject"}}};
}

}  // namespace zorvane::platform
