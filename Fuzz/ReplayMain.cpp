// usage: TARGETReplay [COUNT] FOLDER ...
// Runs a fuzz target with each file of the folders, then with COUNT inputs generated from them, the same in each run.
#include <dirent.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void run(const std::string& name, const std::string& bytes) {
  std::printf("%s\n", name.c_str());
  std::fflush(stdout);  // the last name before a crash is the input's
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

bool readFile(const std::string& path, std::string& bytes) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  char buffer[4096];
  for (std::size_t size; (size = std::fread(buffer, 1, sizeof buffer, file)) > 0;) bytes.append(buffer, size);
  std::fclose(file);
  return true;
}

// Quoted texts, words and numbers; every other byte is a token of its own.
std::vector<std::string_view> tokensOf(std::string_view text) {
  const auto isWord = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-'; };
  std::vector<std::string_view> tokens;
  while (!text.empty()) {
    std::size_t length = 1;
    if (text[0] == '"') {
      length = std::min(text.find('"', 1), text.size() - 1) + 1;
    } else if (isWord(text[0])) {
      length = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isWord) - text.begin());
    }
    tokens.push_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return tokens;
}

// Replaces some tokens of an input by tokens of any input, mostly of the same kind, or removes them.
void runGenerated(const std::vector<std::string>& inputs, int count) {
  std::mt19937 random(1);
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  std::vector<std::string_view> pool;
  for (const std::string& input : inputs) {
    for (const std::string_view token : tokensOf(input)) pool.push_back(token);
  }
  const auto kindOf = [](std::string_view token) { return token[0] == '"' ? 0 : token.size() > 1 ? 1 : 2; };
  for (int i = 0; i < count; ++i) {
    std::vector<std::string_view> tokens = tokensOf(inputs[below(inputs.size())]);
    for (std::size_t changes = 1 + below(8); changes > 0 && !tokens.empty(); --changes) {
      std::string_view& token = tokens[below(tokens.size())];
      const std::string_view other = pool[below(pool.size())];
      const std::size_t chance = below(32);
      if (chance == 0) {
        token = {};
      } else if (token.empty() || kindOf(token) == kindOf(other) || chance < 3) {
        token = other;
      }
    }
    std::string bytes;
    for (const std::string_view token : tokens) bytes += token;
    run("generated " + std::to_string(i), bytes);
  }
}

}  // namespace

int main(int count, char** arguments) {
  int generated = 0;
  std::vector<std::string> inputs;
  for (int i = 1; i < count; ++i) {
    const std::string folder = arguments[i];
    if (std::isdigit(static_cast<unsigned char>(folder[0]))) generated = std::atoi(folder.c_str());
    DIR* directory = opendir(folder.c_str());
    if (!directory) continue;
    while (const dirent* entry = readdir(directory)) {
      if (entry->d_name[0] == '.') continue;
      const std::string path = folder + "/" + entry->d_name;
      if (!readFile(path, inputs.emplace_back())) return 1;
      run(path, inputs.back());
    }
    closedir(directory);
  }
  // The order of a directory differs between systems.
  std::sort(inputs.begin(), inputs.end());
  if (inputs.empty()) return 1;  // a missing or empty folder
  runGenerated(inputs, generated);
  return 0;
}
