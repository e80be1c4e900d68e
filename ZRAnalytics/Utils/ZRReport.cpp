#include "ZRAnalytics/Utils/ZRReport.h"

#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "Platform/Values/FormatText.h"
#include "ZorvaneCore/ZRLogger.h"

#if __has_include(<execinfo.h>)
#include <execinfo.h>
#endif

namespace zorvane {
namespace {

std::vector<std::string> callStackSymbols() {
  std::vector<std::string> symbols;
#if __has_include(<execinfo.h>)
  void* frames[64];
  const int count = backtrace(frames, 64);
  if (char** const names = backtrace_symbols(frames, count)) {
    symbols.assign(names, names + count);
    std::free(names);
  }
#endif
  return symbols;
}

std::string currentExceptionText() {
  try {
    throw;
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace

void logLine(const char* pattern, std::initializer_list<platform::FormatArgument> arguments) {
  ZRLogger& logger = ZRLogger::sharedInstance();
  if (logger.hasSink()) logger.logWithTypeAndFormatArgs(1, Array{platform::formatText(pattern, arguments)});
}

void reportCurrentException(const ReportSite& site, const char* pattern) noexcept {
  try {
    ZRLogger& logger = ZRLogger::sharedInstance();
    if (!logger.hasSink()) return;
    const Array arguments{site.file, site.line, site.operation,
                          platform::formatText(pattern, {currentExceptionText()})};
    logger.logErrorWithFormatArgsAndStackTrace(arguments, callStackSymbols());
  } catch (...) {  // no memory for the report: drop it
  }
}

bool runGuarded(const ReportSite& site, const char* pattern, void (*run)(const void* work), const void* work) noexcept {
  try {
    run(work);
    return true;
  } catch (...) {
    reportCurrentException(site, pattern);
    return false;
  }
}

}  // namespace zorvane
