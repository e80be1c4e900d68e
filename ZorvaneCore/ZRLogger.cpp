#include "ZorvaneCore/ZRLogger.h"

#include <utility>

namespace zorvane {
namespace {

std::string textAt(const Array& arguments, std::size_t index) {
  return index < arguments.size() ? arguments[index].description() : std::string();
}

}  // namespace

ZRLogger& ZRLogger::sharedInstance() {
  static ZRLogger* const logger = new ZRLogger;
  return *logger;
}

void ZRLogger::setSink(std::shared_ptr<ZRLogSink> sink) {
  sink_.set(std::move(sink));
}

bool ZRLogger::hasSink() const {
  return sink_.get() != nullptr;
}

void ZRLogger::logWithTypeAndFormatArgs(std::int64_t type, const Array& formatArgs) {
  const auto target = sink_.get();
  if (!target) return;
  try {
    target->logMessage(type, textAt(formatArgs, 0));
  } catch (...) {  // the line is lost
  }
}

void ZRLogger::logErrorWithFormatArgsAndStackTrace(const Array& formatArgs, const std::vector<std::string>& callStack) {
  const auto target = sink_.get();
  if (!target) return;
  try {
    const std::int64_t line = formatArgs.size() > 1 ? formatArgs[1].integerValue() : 0;
    target->logError(textAt(formatArgs, 0), line, textAt(formatArgs, 2), textAt(formatArgs, 3), callStack);
  } catch (...) {  // the line is lost
  }
}

}  // namespace zorvane
