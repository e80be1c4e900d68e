// How the module speaks through the core's logger, and the guard around its public operations.
#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// One line (type 1); the pattern as platform::formatText takes it.
void logLine(std::string_view pattern, std::initializer_list<Value> arguments = {});

// Where an exception is reported from: the source file's base name, a line of it, the operation.
struct ReportSite {
  constexpr ReportSite(std::string_view fileName, std::string_view operationName,
                       std::int64_t lineNumber = __builtin_LINE())
      : file(fileName), operation(operationName), line(lineNumber) {}
  std::string_view file;
  std::string_view operation;
  std::int64_t line;
};

// Reports the exception being handled; the pattern's "%@" is filled with it. Only in a catch block.
void reportCurrentException(const ReportSite& site, std::string_view pattern) noexcept;

// Runs the work; an exception is reported and not passed on. True when there was none.
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

// Calls somebody else's block, if there is one; what it throws is reported and costs this call only.
template <typename Block, typename... Arguments>
void callBlock(const Block& block, Arguments&&... arguments) noexcept {
  if (!block) return;
  guarded({"ZRReport", "callBlock"}, "exception in completion block : %@",
          [&] { block(std::forward<Arguments>(arguments)...); });
}

}  // namespace zorvane
