#include "Host/Script.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <vector>

#include "Platform/Formats/JSON.h"

namespace zorvane::host {
namespace {

constexpr std::size_t kReadSize = 64u << 10;
constexpr std::string_view kBlanks = " \t\r\n\v\f";

[[noreturn]] void wrongType(std::string_view field, std::string_view wanted) {
  throw NotAnAction("\"" + std::string(field) + "\" must be " + std::string(wanted));
}

}  // namespace

std::string_view withoutByteOrderMark(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  return text.starts_with(kMark) ? text.substr(kMark.size()) : text;
}

std::optional<std::string> repeatedKey(std::string_view json) {
  std::vector<std::set<std::string>> keys;  // of the objects around the position
  for (std::size_t at = 0; at < json.size(); ++at) {
    if (json[at] == '{') keys.emplace_back();
    if (json[at] == '}') keys.pop_back();
    if (json[at] != '"') continue;
    const std::size_t start = at++;
    while (json[at] != '"') at += json[at] == '\\' ? 2 : 1;
    const std::size_t after = json.find_first_not_of(kBlanks, at + 1);
    if (after == std::string_view::npos || json[after] != ':') continue;
    std::string key(*platform::parseJSON(json.substr(start, at + 1 - start)).value().asString());
    if (!keys.back().insert(key).second) return key;
  }
  return std::nullopt;
}

LineReader::~LineReader() {
  ::close(descriptor_);
}

platform::Result<int> LineReader::open(const std::string& path) {
  const auto failure = [&](int code) {
    return platform::Error{"cannot read the script " + path + ": " + std::strerror(code), code};
  };
  const int descriptor =
      path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return failure(errno);
  struct stat status {};
  if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    ::close(descriptor);
    return failure(EISDIR);
  }
  return descriptor;
}

bool LineReader::waitForInput() const {
  pollfd entries[] = {{descriptor_, POLLIN, 0}, {interruption_, POLLIN, 0}};
  while (::poll(entries, 2, -1) < 0 && errno == EINTR) {
  }
  return entries[1].revents == 0;
}

std::optional<std::string_view> LineReader::next() {
  std::size_t searched = start_;
  while (true) {
    const std::size_t end = buffer_.find('\n', searched);
    if (end != std::string::npos || (ended_ && start_ < buffer_.size())) {
      const std::string_view line =
          std::string_view(buffer_).substr(start_, end == std::string::npos ? end : end - start_);
      start_ = end == std::string::npos ? buffer_.size() : end + 1;
      return line;
    }
    if (ended_) return std::nullopt;
    buffer_.erase(0, start_);
    start_ = 0;
    const std::size_t kept = buffer_.size();
    if (kept > kMaximumLine) throw NotAnAction("the line is longer than 64 MB");
    if (!waitForInput()) return std::nullopt;
    searched = kept;
    buffer_.resize(kept + kReadSize);
    ssize_t count = 0;
    do {
      count = ::read(descriptor_, buffer_.data() + kept, kReadSize);
    } while (count < 0 && errno == EINTR);
    buffer_.resize(kept + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count < 0) throw NotAnAction(std::string("cannot read the script: ") + std::strerror(errno));
    ended_ = count == 0;
  }
}

bool ScriptLine::isSkipped(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos || text[first] == '#';
}

ScriptLine::ScriptLine(std::int64_t number, std::string_view text) : number_(number) {
  auto parsed = platform::parseJSON(text);
  if (!parsed) throw NotAnAction("not JSON: " + parsed.error().message);
  if (!parsed.value().isDictionary()) throw NotAnAction("not a JSON object");
  fields_ = std::move(parsed.value().mutableDictionary());
  if (const auto key = repeatedKey(text)) throw NotAnAction("the key \"" + *key + "\" stands twice");
  action_ = requiredText("do");
  async_ = flag("async");
}

ScriptLine::Location ScriptLine::locationOf(const platform::Value& value, std::string_view name) {
  const platform::Array* pair = value.asArray();
  if (!pair || pair->size() != 2 || !isPlainNumber(pair->front()) || !isPlainNumber(pair->back())) {
    wrongType(name, "[latitude, longitude]");
  }
  return {pair->front().doubleValue(), pair->back().doubleValue()};
}

void ScriptLine::expectOnly(std::string_view keys) const {
  const std::string known = " do async " + std::string(keys) + " ";
  for (const auto& field : fields_) {
    const std::string key(field.key);
    if (key.empty() || key.find(' ') != std::string::npos || known.find(" " + key + " ") == std::string::npos) {
      throw NotAnAction("\"" + action_ + "\" has no key \"" + key + "\"");
    }
  }
}

const platform::Value* ScriptLine::find(std::string_view field, bool required) const {
  const platform::Value* found = fields_.find(field);
  if (!found && required) throw NotAnAction("\"" + std::string(field) + "\" is missing");
  return found;
}

bool ScriptLine::flag(std::string_view field) const {
  const platform::Value* found = find(field, false);
  if (found && !found->asBool()) wrongType(field, "true or false");
  return found && *found->asBool();
}

bool ScriptLine::requiredFlag(std::string_view field) const {
  find(field, true);
  return flag(field);
}

std::optional<std::string> ScriptLine::text(std::string_view field) const {
  const platform::Value* found = find(field, false);
  if (!found) return std::nullopt;
  if (!found->isString()) wrongType(field, "text");
  return std::string(*found->asString());
}

std::string ScriptLine::requiredText(std::string_view field) const {
  find(field, true);
  return *text(field);
}

std::int64_t ScriptLine::requiredInteger(std::string_view field) const {
  const platform::Value* found = find(field, true);
  if (!found->asInteger()) wrongType(field, "an integer");
  return *found->asInteger();
}

double ScriptLine::requiredNumber(std::string_view field) const {
  const platform::Value* found = find(field, true);
  if (!isPlainNumber(*found)) wrongType(field, "a number");
  return found->doubleValue();
}

const platform::Array* ScriptLine::array(std::string_view field) const {
  const platform::Value* found = find(field, false);
  if (found && !found->isArray()) wrongType(field, "an array");
  return found ? found->asArray() : nullptr;
}

const platform::Dictionary* ScriptLine::object(std::string_view field) const {
  const platform::Value* found = find(field, false);
  if (found && !found->isDictionary()) wrongType(field, "an object");
  return found ? found->asDictionary() : nullptr;
}

bool isPlainNumber(const platform::Value& value) {
  return value.asInteger() || value.asDouble();
}

}  // namespace zorvane::host
