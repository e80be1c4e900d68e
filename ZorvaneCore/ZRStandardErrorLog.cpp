#include "ZorvaneCore/ZRStandardErrorLog.h"

#include <errno.h>
#include <unistd.h>

#include <string_view>

#include "Platform/Text/Hex.h"

namespace zorvane {
namespace {

void appendPrintable(std::string_view text, std::string& out) {
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if ((byte < 0x20 && character != '\n' && character != '\t') || byte == 0x7F) {
      out += "\\x";
      platform::appendHex(out, {&byte, 1}, platform::kUpperHexDigits);
    } else {
      out += character;
    }
  }
}

class StandardErrorLog final : public ZRLogSink {
 public:
  void logMessage(std::int64_t /*type*/, const std::string& message) override { write("ZRAnalytics: " + message); }

  void logError(const std::string& file, std::int64_t line, const std::string& operation, const std::string& message,
                const std::vector<std::string>& callStack) override {
    std::string text =
        "ZRAnalytics: error: " + message + " (" + operation + " in " + file + ":" + std::to_string(line) + ")";
    for (const std::string& frame : callStack) text += "\n\t" + frame;
    write(text);
  }

 private:
  static void write(std::string_view text) {
    std::string line;
    appendPrintable(text, line);
    line += '\n';
    std::string_view left = line;
    while (!left.empty()) {
      const ssize_t written = ::write(STDERR_FILENO, left.data(), left.size());
      if (written < 0 && errno != EINTR) return;
      if (written > 0) left.remove_prefix(static_cast<std::size_t>(written));
    }
  }
};

}  // namespace

std::shared_ptr<ZRLogSink> makeStandardErrorLog() {
  return std::make_shared<StandardErrorLog>();
}

}  // namespace zorvane
