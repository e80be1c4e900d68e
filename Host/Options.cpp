#include "Host/Options.h"

#include <algorithm>
#include <utility>

#include "Host/Actions.h"
#include "Platform/Time/DateFormat.h"
#include "ZorvaneCore/ZRCoreConstants.h"

namespace zorvane::host {
namespace {

constexpr std::size_t kActionFieldColumn = 24;

// Removes slashes at the end. Returns what is wrong with the address; empty: nothing.
std::string checkEndpoint(std::string& url) {
  std::string base = url;
  while (base.ends_with('/')) base.pop_back();
  std::string lower = base.substr(0, 8);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  const std::size_t scheme = lower.starts_with("http://") ? 7 : lower.starts_with("https://") ? 8 : 0;
  if (scheme == 0 || base.size() <= scheme || base[scheme] == '/' ||
      base.find_first_of(" \t\r\n?#") != std::string::npos) {
    return "must be a base address such as http://127.0.0.1:8080, not \"" + url + "\"";
  }
  url = std::move(base);
  return "";
}

std::string checkTime(const std::string& text) {
  return parseTime(text) ? "" : "must be a time such as 2026-11-21T10:00:00.000Z, not \"" + text + "\"";
}

std::string helpFooter() {
  std::string text =
      "Actions, {\"do\": NAME, ...}, each also with \"async\": true to go on without waiting for what it starts:\n";
  for (const Action& action : allActions()) {
    std::string fields = helpOf(action);
    for (std::size_t end = 0; (end = fields.find('\n', end)) != std::string::npos; end += kActionFieldColumn) {
      fields.replace(end, 1, "\n" + std::string(kActionFieldColumn, ' '));
    }
    std::string line = "  " + std::string(action.name);
    if (!fields.empty()) line.resize(kActionFieldColumn, ' ');
    text += line + fields + "\n";
  }
  return text +
         "\n"
         "--help ACTION describes one, with an example. Ctrl-C ends the script as its end does, a second one the "
         "process.\n"
         "\n"
         "Exit status: 0 the script was played, 1 it could not be played to its end, 2 wrong usage, 3 a line is not "
         "an\n"
         "action, 4 with --strict: a batch was refused or could not be sent.\n"
         "\n"
         "Example, with a zrcollector that listens on port 8080:\n"
         "  printf '%s\\n' '{\"do\": \"launch\"}' '{\"do\": \"track\", \"event\": \"Hello\"}' '{\"do\": \"flush\"}' |\n"
         "    zrhost --data ./app --endpoint http://127.0.0.1:8080";
}

// The action named after --help; none if the arguments do not ask for one. Throws UsageError for an unknown name.
std::optional<std::string> helpAsked(const std::vector<std::string>& arguments) {
  for (std::size_t i = 0; i < arguments.size() && arguments[i] != "--"; ++i) {
    std::string name;
    if (arguments[i].starts_with("--help=")) {
      name = arguments[i].substr(7);
    } else if ((arguments[i] == "--help" || arguments[i] == "-h") && i + 1 < arguments.size()) {
      name = arguments[i + 1];
    }
    if (name.empty() || name.starts_with('-')) continue;
    try {
      const Action& action = actionNamed(name);
      const std::string fields = helpOf(action);
      return "{\"do\": \"" + name + (fields.empty() ? "\"}" : "\", ...}") + ": " + std::string(action.effect) + "\n" +
             (fields.empty() ? "" : "Fields: " + fields + "\n") + "Example: " + exampleOf(action) + "\n";
    } catch (const NotAnAction& unknown) {
      throw UsageError("--help: " + std::string(unknown.what()) + " (see --help)");
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<platform::Date> parseTime(const std::string& text) {
  const auto date = platform::dateOfText(text, kZRDateFormatISO8601MilliSec, 0);
  return date ? date : platform::dateOfText(text, kZRDateFormatISO8601, 0);
}

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  if (auto help = helpAsked(arguments)) {
    options.information = *std::move(help);
    return options;
  }
  std::string clock;
  CommandLine line("zrhost",
                   "Embeds the analytics module like an application and plays a script of what the application's user\n"
                   "and its operating system do. Requests are real.",
                   helpFooter());
  line.add_option("--data", options.data,
                  "the application's container, made when absent; a second run over it is the next launch (required)")
      ->required()
      ->option_text("DIR")
      ->check(refuseEmpty);
  line.add_option("--endpoint", options.endpoint, "base address of the collection service (required)")
      ->required()
      ->option_text("URL")
      ->transform(CLI::Validator(checkEndpoint, "", ""));
  line.add_option("--app-id", options.appId, "application identifier (default: DEMO; \"\" means none)")
      ->type_name("ID");
  line.add_option("--config", options.config, "remote configuration, a JSON object")
      ->type_name("FILE")
      ->check(refuseEmpty);
  line.add_option("--trace", options.trace, "what happens in the module goes there, one JSON object a line")
      ->type_name("FILE")
      ->check(refuseEmpty);
  line.add_option("--clock", clock, "the clocks stand at this ISO 8601 time and move only by \"wait\" and \"clock\"")
      ->type_name("TIME")
      ->check(checkTime);
  line.add_flag("--journal", options.journal, "an event that was tracked outlives a kill: a file of 1 MiB keeps it")
      ->disable_flag_override();
  line.add_flag("--strict", options.strict,
                "exit status 4 if a batch is unsent at the end because the service refused or did not get it")
      ->disable_flag_override();
  line.add_flag("--quiet", options.quiet, "no \"done\" lines")->disable_flag_override();
  line.add_option("SCRIPT", options.script, "a file of JSON lines, one action each; \"-\" or none: standard input")
      ->option_text(" ")
      ->check(refuseEmpty);
  options.information = line.read(arguments);
  if (!clock.empty()) options.clock = parseTime(clock);
  return options;
}

}  // namespace zorvane::host
