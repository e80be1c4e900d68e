// Reads a script: its lines, and the fields of a line.
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

// Why a line is not a valid action.
class NotAnAction : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a file, a pipe or a terminal line by line. Returns each line as soon as its end arrives.
class LineReader {
 public:
  static constexpr std::size_t kMaximumLine = 64u << 20;

  // Owns the descriptor. The lines end when the other one becomes readable; negative: none.
  explicit LineReader(int descriptor, int interruption = -1) : descriptor_(descriptor), interruption_(interruption) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Opens the script for reading; "-" is standard input. The caller owns the descriptor.
  static platform::Result<int> open(const std::string& path);

  // The next line without its line break, valid until the next call; none at the end. Throws NotAnAction for a line
  // that is too long, and if reading fails.
  std::optional<std::string_view> next();

 private:
  // False once the interruption is readable.
  bool waitForInput() const;

  int descriptor_;
  int interruption_;
  bool ended_ = false;
  std::string buffer_;
  std::size_t start_ = 0;
};

// Some editors write a byte order mark before the text.
std::string_view withoutByteOrderMark(std::string_view text);

// The first key that an object in the text has twice, at any depth. The text must be valid JSON.
std::optional<std::string> repeatedKey(std::string_view json);

// One line's action. A line in which an object has the same key twice is none. The accessors throw NotAnAction if a
// required field is missing or a field has the wrong type.
class ScriptLine {
 public:
  struct Location {
    double latitude;
    double longitude;
  };
  // From [latitude, longitude]. The name is for the message of NotAnAction.
  static Location locationOf(const platform::Value& value, std::string_view name);

  // Throws NotAnAction.
  ScriptLine(std::int64_t number, std::string_view text);
  // Blank, or a comment.
  static bool isSkipped(std::string_view text);

  std::int64_t number() const { return number_; }
  const std::string& action() const { return action_; }
  bool async() const { return async_; }

  // Throws NotAnAction if the line has another key than "do", "async" and these names, which spaces separate.
  void expectOnly(std::string_view keys) const;

  bool has(std::string_view field) const { return fields_.contains(field); }
  // Any value, as the module gets it; nil if the field is absent.
  platform::Value value(std::string_view field) const { return fields_.objectForKey(field); }
  // False if the field is absent.
  bool flag(std::string_view field) const;
  bool requiredFlag(std::string_view field) const;
  std::optional<std::string> text(std::string_view field) const;
  std::string requiredText(std::string_view field) const;
  std::int64_t requiredInteger(std::string_view field) const;
  double requiredNumber(std::string_view field) const;
  // Null if the field is absent.
  const platform::Array* array(std::string_view field) const;
  const platform::Dictionary* object(std::string_view field) const;

 private:
  const platform::Value* find(std::string_view field, bool required) const;

  std::int64_t number_;
  platform::Dictionary fields_;
  std::string action_;
  bool async_ = false;
};

// Whether it is an integer or a double, not a boolean.
bool isPlainNumber(const platform::Value& value);

}  // namespace zorvane::host
