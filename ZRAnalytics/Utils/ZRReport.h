// Log lines, and the guard that reports exceptions from public operations.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "Platform/Values/FormatText.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Logs one line of type 1. The pattern is one of platform::formatText.
void logLine(const char* pattern, std::initializer_list<platform::FormatArgument> arguments = {});

// Where a report comes from: source file base name, operation, line number. Log analysis recognises a site by its
// number. A number that is passed never changes and is not a line of this source. Without one, the caller's line is
// used; then pass the caller's file.
struct ReportSite {
  constexpr ReportSite(const char* fileName, const char* operationName, std::int64_t lineNumber = __builtin_LINE())
      : file(fileName), operation(operationName), line(lineNumber) {}
  const char* file;
  const char* operation;
  std::int64_t line;
};

// Logs the exception being handled as an error; its text replaces the pattern's "%@". Call only in a catch block.
void reportCurrentException(const ReportSite& site, const char* pattern) noexcept;

// Calls run(work). An exception is reported and stops here. True if there was none.
bool runGuarded(const ReportSite& site, const char* pattern, void (*run)(const void* work), const void* work) noexcept;

// The same for a function object.
template <typename Work>
bool guarded(const ReportSite& site, const char* pattern, const Work& work) noexcept {
  return runGuarded(
      site, pattern, [](const void* function) { (*static_cast<const Work*>(function))(); }, &work);
}

// Calls a block of the host, if there is one. The site and the pattern are those of the operation that took the block:
// an exception is reported under them and stops here.
template <typename Block, typename... Arguments>
void callBlock(const ReportSite& site, const char* pattern, const Block& block,
               const Arguments&... arguments) noexcept {
  if (block) guarded(site, pattern, [&] { block(arguments...); });
}

}  // namespace zorvane
