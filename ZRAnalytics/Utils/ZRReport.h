// Log lines, and the guard that reports exceptions from public operations.
#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Logs one line of type 1. The pattern is one of platform::formatText.
void logLine(std::string_view pattern, std::initializer_list<Value> arguments = {});

// Where a report comes from: source file base name, operation, line number. Log analysis identifies the place by the
// number, so a given number is fixed and need not be a line of this source. The default is the caller's line.
struct ReportSite {
  constexpr ReportSite(std::string_view fileName, std::string_view operationName,
                       std::int64_t lineNumber = __builtin_LINE())
      : file(fileName), operation(operationName), line(lineNumber) {}
  std::string_view file;
  std::string_view operation;
  std::int64_t line;
};

// Logs the exception being handled as an error; its text replaces the pattern's "%@". Call only in a catch block.
void reportCurrentException(const ReportSite& site, std::string_view pattern) noexcept;

// Runs the work. An exception is reported and stops here. True if there was none.
template <typename Work>
bool guarded(const ReportSite& site, std::string_view pattern, Work&& work) noexcept {
  try {
    std::forward<Work>(work)();
    return true;
  } catch (...) {
    reportCurrentException(site, pattern);
    return false;
  }
}

// Calls a block of the host, if there is one. An exception is reported and stops here.
template <typename Block, typename... Arguments>
void callBlock(const Block& block, Arguments&&... arguments) noexcept {
  if (!block) return;
  guarded({"ZRReport", "callBlock"}, "exception in completion block : %@",
          [&] { block(std::forward<Arguments>(arguments)...); });
}

}  // namespace zorvane
