// Runs a fuzz target over every file of the folders that are given.
#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  std::string bytes;
  char buffer[4096];
  for (std::size_t size; (size = std::fread(buffer, 1, sizeof buffer, file)) > 0;) bytes.append(buffer, size);
  std::fclose(file);
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);  // the last name before a crash is the input's
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  int inputs = 0;
  for (int i = 1; i < count; ++i) {
    const std::string folder = arguments[i];
    DIR* directory = opendir(folder.c_str());
    if (!directory) continue;
    while (const dirent* entry = readdir(directory)) {
      if (entry->d_name[0] == '.') continue;
      if (!replay(folder + "/" + entry->d_name)) return 1;
      ++inputs;
    }
    closedir(directory);
  }
  // A folder that is missing or empty must not pass for one that was replayed.
  return inputs > 0 ? 0 : 1;
}
