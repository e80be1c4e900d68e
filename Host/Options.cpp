#include "Host/Options.h"

#include <algorithm>
#include <string_view>

#include "Platform/Time/DateFormat.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane::host {
namespace {

std::string checkedEndpoint(std::string url) {
  const std::string given = url;
  while (url.ends_with('/')) url.pop_back();
  std::string lower = url.substr(0, 8);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  const std::size_t scheme = lower.starts_with("http://") ? 7 : lower.starts_with("https://") ? 8 : 0;
  if (scheme == 0 || url.size() <= scheme || url[scheme] == '/' ||
      url.find_first_of(" \t\r\n?#") != std::string::npos) {
    throw UsageError("--endpoint must be a base address such as http://127.0.0.1:8080, not \"" + given + "\"");
  }
  return url;
}

platform::Date checkedTime(const std::string& text) {
  const auto date = parseTime(text);
  if (!date) throw UsageError("--clock must be a time such as 2026-11-21T10:00:00.000Z, not \"" + text + "\"");
  return *date;
}

std::string notEmpty(const std::string& option, std::string value) {
  if (value.empty()) throw UsageError(option + " must not be empty");
  return value;
}

}  // namespace

std::optional<platform::Date> parseTime(const std::string& text) {
  const auto date = platform::dateOfText(text, kZRDateFormatISO8601MilliSec, 0);
  return date ? date : platform::dateOfText(text, kZRDateFormatISO8601, 0);
}

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  bool scriptGiven = false;
  bool optionsEnded = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (optionsEnded || argument == "-" || !argument.starts_with('-')) {
      if (scriptGiven) throw UsageError("one script is played at a time: \"" + argument + "\" is one too many");
      options.script = notEmpty("SCRIPT", argument);
      scriptGiven = true;
      continue;
    }
    const std::size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    const bool valueAttached = equals != std::string::npos;
    if (argument == "--") {
      optionsEnded = true;
    } else if (argument == "--quiet") {
      options.quiet = true;
    } else if (argument == "--help" || argument == "-h") {
      options.help = true;
      return options;
    } else if (name == "--data" || name == "--endpoint" || name == "--app-id" || name == "--config" ||
               name == "--trace" || name == "--clock") {
      if (!valueAttached && i + 1 == arguments.size()) throw UsageError(name + " needs a value");
      const std::string value = valueAttached ? argument.substr(equals + 1) : arguments[++i];
      if (name == "--data") options.data = notEmpty(name, value);
      if (name == "--endpoint") options.endpoint = checkedEndpoint(value);
      if (name == "--app-id") options.appId = value;
      if (name == "--config") options.config = notEmpty(name, value);
      if (name == "--trace") options.trace = notEmpty(name, value);
      if (name == "--clock") options.clock = checkedTime(value);
    } else {
      throw UsageError("unknown option \"" + argument + "\" (see --help)");
    }
  }
  if (options.data.empty()) throw UsageError("--data is missing (see --help)");
  if (options.endpoint.empty()) throw UsageError("--endpoint is missing (see --help)");
  return options;
}

std::string usageText() {
  return "usage: zrhost --data DIR --endpoint URL [--app-id ID] [--config FILE] [--trace FILE] [--clock TIME] "
         "[--quiet]\n"
         "              [SCRIPT]\n"
         "Embeds the analytics module like an application and plays a script of what the application's user and its\n"
         "operating system do. Requests are real.\n"
         "\n"
         "  --data DIR      the application's container, made when absent; a second run over it is the next launch\n"
         "  --endpoint URL  base address of the collection service\n"
         "  --app-id ID     application identifier (default: DEMO; \"\" means none)\n"
         "  --config FILE   remote configuration, a JSON object\n"
         "  --trace FILE    what happens in the module goes there, one JSON object a line\n"
         "  --clock TIME    the clocks stand at this ISO 8601 time and move only by \"wait\" and \"clock\"\n"
         "  --quiet         no \"done\" lines\n"
         "  SCRIPT          a file of JSON lines, one action each; \"-\" or none: standard input\n"
         "\n"
         "Exit status: 0 the script was played, 1 it could not be played to its end, 2 wrong usage, 3 a line is not an "
         "action.\n";
}

}  // namespace zorvane::host
