#include "Platform/Values/FormatText.h"

#include <algorithm>

#include "Platform/Text/NumberText.h"

namespace zorvane::platform {

std::string formatText(std::string_view pattern, std::initializer_list<Value> arguments) {
  std::string text;
  text.reserve(pattern.size() + arguments.size() * 16);
  auto argument = arguments.begin();
  while (!pattern.empty()) {
    const std::size_t percent = std::min(pattern.find('%'), pattern.size());
    text.append(pattern, 0, percent);
    pattern.remove_prefix(percent);
    if (pattern.empty()) break;
    if (pattern.starts_with("%%")) {
      text += '%';
      pattern.remove_prefix(2);
      continue;
    }
    const std::size_t length = pattern.starts_with("%@") || pattern.starts_with("%f") ? 2
                               : pattern.starts_with("%ld")                           ? 3
                                                                                      : 0;
    if (length == 0 || argument == arguments.end()) {
      text += '%';
      pattern.remove_prefix(1);
      continue;
    }
    if (pattern[1] == 'f') {
      text += fixedTextOfDouble(argument->doubleValue(), 6);
    } else if (pattern[1] == 'l') {
      text += textOfInteger(argument->integerValue());
    } else {
      text += argument->description();
    }
    ++argument;
    pattern.remove_prefix(length);
  }
  return text;
}

}  // namespace zorvane::platform
