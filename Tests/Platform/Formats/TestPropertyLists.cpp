#include "Formats/TestPropertyLists.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "Platform/Formats/BinaryEncoder.h"
#include "Platform/Formats/PropertyList.h"

namespace zorvane::platform {

std::string numbered(const char* text, int number) {
  std::string result = text;
  result += std::to_string(number);
  return result;
}

std::string binaryFile(const std::vector<std::string>& objects, std::size_t top) {
  std::string file = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    appendBigEndian(file.size(), 2, offsets);
    file += object;
  }
  const std::size_t tableStart = file.size();
  file += offsets;
  appendTrailer(2, 1, objects.size(), top, tableStart, file);
  return file;
}

Value randomPropertyListValue(std::mt19937& random, int depth) {
  static const char* const kTexts[] = {
      "", "a", "name", "Grüße", "😀 and \"more\"\n", "a text of more than fifteen letters", "id"};
  const auto below = [&random](unsigned limit) { return static_cast<std::size_t>(random() % limit); };
  switch (below(depth < 4 ? 11 : 8)) {
    case 0:
      return below(2) == 0;
    case 1:
      return static_cast<std::int64_t>(random()) - 2147483648;
    case 2:
      return static_cast<std::int64_t>(std::uint64_t{random()} << 32 | random());
    case 3:
      return static_cast<double>(random()) / 16;
    case 4:
      return Date{static_cast<double>(random()) + 0.25};
    case 5:
      return Data{std::vector<std::uint8_t>(below(20), static_cast<std::uint8_t>(random() & 0xFF))};
    case 6:
      return kTexts[below(std::size(kTexts))];
    case 7:
      return std::make_shared<const PropertyListUID>(static_cast<std::uint32_t>(random() >> below(32)));
    case 8: {
      Array array;
      for (std::size_t count = below(6); array.size() < count;)
        array.push_back(randomPropertyListValue(random, depth + 1));
      return array;
    }
    default: {
      Dictionary dictionary;
      for (std::size_t count = below(24), i = 0; i < count; ++i) {
        dictionary.set(kTexts[below(std::size(kTexts))] + std::to_string(below(12)),
                       randomPropertyListValue(random, depth + 1));
      }
      return dictionary;
    }
  }
}

std::string readByPython(std::string_view file) {
  char path[] = "/tmp/formats-test-XXXXXX";
  const int descriptor = mkstemp(path);
  if (descriptor < 0 || write(descriptor, file.data(), file.size()) != static_cast<ssize_t>(file.size())) {
    ADD_FAILURE() << "cannot write " << path;
    return {};
  }
  close(descriptor);
  const std::string command =
      "python3 '" ZR_SOURCE_DIR "/Tests/Platform/Formats/read_plist.py' " + std::string(path) + " 2>&1";
  std::string output;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, size);
    pclose(pipe);
  }
  unlink(path);
  return output;
}

}  // namespace zorvane::platform
