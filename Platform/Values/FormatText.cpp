#include "Platform/Values/FormatText.h"

#include <algorithm>

#include "Platform/Text/NumberText.h"

namespace zorvane::platform {

Value FormatArgument::asValue() const {
  switch (kind_) {
    case Kind::Value:
      return *value_;
    case Kind::Text:
      return text_;
    case Kind::Integer:
      return integer_;
    case Kind::Double:
      return double_;
  }
  return {};
}

std::string FormatArgument::description() const {
  return kind_ == Kind::Text ? std::string(text_) : asValue().description();
}
std::int64_t FormatArgument::integerValue() const {
  return asValue().integerValue();
}
double FormatArgument::doubleValue() const {
  return asValue().doubleValue();
}

std::string formatText(std::string_view pattern, std::initializer_list<FormatArgument> arguments) {
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
