// The script: its lines, and the fields of one line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

namespace zorvane::host {

// Why a line is not an action.
class NotAnAction : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a file, a pipe or a terminal line by line; a line is there as soon as its end has arrived.
class LineReader {
 public:
  static constexpr std::size_t kMaximumLine = 64u << 20;

  // Owns the descriptor.
  explicit LineReader(int descriptor) : descriptor_(descriptor) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // "-" is the standard input.
  static platform::Result<int> open(const std::string& path);

  // The next line without its end, valid until the next call; empty at the end of the script. Throws NotAnAction for a
  // line beyond the maximum, and when reading fails.
  std::optional<std::string_view> next();

 private:
  int descriptor_;
  bool ended_ = false;
  std::string buffer_;
  std::size_t start_ = 0;
};

// One action. The readers throw NotAnAction when a field of zrhost's own is missing or of the wrong type.
class ScriptLine {
 public:
  struct Location {
    double latitude;
    double longitude;
  };
  // Of [latitude, longitude]. Throws NotAnAction that calls the value by that name.
  static Location locationOf(const platform::Value& value, std::string_view name);

  // Throws NotAnAction.
  ScriptLine(std::int64_t number, std::string_view text);
  // Blank, or a comment.
  static bool isSkipped(std::string_view text);

  std::int64_t number() const { return number_; }
  const std::string& action() const { return action_; }
  bool async() const { return async_; }

  bool has(std::string_view field) const { return fields_.contains(field); }
  // Any value, as it is handed to the module; nil when the field is left out.
  platform::Value value(std::string_view field) const { return fields_.objectForKey(field); }
  // False when the field is left out.
  bool flag(std::string_view field) const;
  bool requiredFlag(std::string_view field) const;
  std::optional<std::string> text(std::string_view field) const;
  std::string requiredText(std::string_view field) const;
  std::int64_t requiredInteger(std::string_view field) const;
  double requiredNumber(std::string_view field) const;
  // Null when the field is left out.
  const platform::Array* array(std::string_view field) const;
  const platform::Dictionary* object(std::string_view field) const;

 private:
  const platform::Value* find(std::string_view field, bool required) const;

  std::int64_t number_;
  platform::Dictionary fields_;
  std::string action_;
  bool async_ = false;
};

// An integer or a double; no boolean.
bool isPlainNumber(const platform::Value& value);

}  // namespace zorvane::host
