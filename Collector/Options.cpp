#include "Collector/Options.h"

#include <charconv>

namespace zorvane::collector {

const char* const kUsage =
    "usage: zrcollector [--port N] [--db FILE] [--record FILE] [--quiet]\n"
    "                   [--fail-every N] [--drop-every N] [--delay-ms N]\n"
    "\n"
    "A collection service for one machine. It listens on the loopback address only; its first line on standard output\n"
    "is {\"listening\": \"http://127.0.0.1:PORT\"}. SIGINT and SIGTERM end it cleanly.\n"
    "\n"
    "  --port N         the port; 0 (default) takes a free one\n"
    "  --db FILE        the SQLite database; without it everything is kept in memory\n"
    "  --record FILE    appends one JSON line per request: method, path, headers, body, status (0: no answer was "
    "sent)\n"
    "  --quiet          nothing on standard error while running\n"
    "  --help           this text\n"
    "\n"
    "Faults on purpose, to see how a client takes them:\n"
    "  --fail-every N   every N-th POST is answered 503 and its content is not stored\n"
    "  --drop-every N   every N-th of the other POSTs is handled, and its connection cut in place of an answer\n"
    "  --delay-ms N     every POST is answered N milliseconds late\n";

namespace {

std::uint64_t parseNumber(const std::string& option, const std::string& text, std::uint64_t max) {
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || last != end || number > max) {
    throw UsageError(option + " takes a number from 0 to " + std::to_string(max) + ", not \"" + text + "\"");
  }
  return number;
}

}  // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (i + 1 == arguments.size()) throw UsageError(option + " needs a value");
      return arguments[++i];
    };
    const auto fileName = [&] {
      const std::string& name = value();
      if (name.empty()) throw UsageError(option + " needs a file name");
      return name;
    };
    if (option == "--port") {
      options.port = static_cast<int>(parseNumber(option, value(), 65535));
    } else if (option == "--db") {
      options.database = fileName();
    } else if (option == "--record") {
      options.record = fileName();
    } else if (option == "--fail-every") {
      options.failEvery = parseNumber(option, value(), 1'000'000'000);
    } else if (option == "--drop-every") {
      options.dropEvery = parseNumber(option, value(), 1'000'000'000);
    } else if (option == "--delay-ms") {
      options.delayMilliseconds = parseNumber(option, value(), 600'000);
    } else if (option == "--quiet") {
      options.quiet = true;
    } else if (option == "--help") {
      options.help = true;
    } else {
      throw UsageError("unknown argument \"" + option + "\"");
    }
  }
  return options;
}

}  // namespace zorvane::collector
