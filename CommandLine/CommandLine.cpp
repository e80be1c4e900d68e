#include "CommandLine/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

namespace zorvane {
namespace {

constexpr std::size_t kOptionColumn = 20;

// "--name=" is an empty value. CLI11 would take the next argument as the value.
std::vector<std::string> withEmptyValuesApart(std::vector<std::string> arguments) {
  std::vector<std::string> apart;
  bool optionsEnded = false;
  for (std::string& argument : arguments) {
    optionsEnded = optionsEnded || argument == "--";
    const bool isEmptyValue = !optionsEnded && argument.starts_with("--") && argument.find('=') == argument.size() - 1;
    if (isEmptyValue) argument.pop_back();
    apart.push_back(std::move(argument));
    if (isEmptyValue) apart.emplace_back();
  }
  return apart;
}

}  // namespace

CommandLine::CommandLine(std::string program, std::string description, std::string footerText)
    : CLI::App(std::move(description), program) {
  option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::Throw);
  get_formatter()->column_width(kOptionColumn);
  set_help_flag("-h,--help", "this text");
  set_version_flag("--version", program + " " ZR_VERSION, "the version");
  footer(std::move(footerText));
}

std::string CommandLine::read(std::vector<std::string> arguments) {
  arguments = withEmptyValuesApart(std::move(arguments));
  std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
  try {
    parse(std::move(arguments));
    return "";
  } catch (const CLI::CallForHelp&) {
    return help();
  } catch (const CLI::CallForVersion& version) {
    return std::string(version.what()) + "\n";
  } catch (const CLI::RequiredError& error) {
    // A mistyped option is more likely the reason than a forgotten one.
    const std::vector<std::string> unknown = remaining();
    throw UsageError((unknown.empty() ? error.what() : CLI::ExtrasError(unknown).what()) +
                     std::string(" (see --help)"));
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + " (see --help)");
  }
}

std::string refuseEmpty(const std::string& value) {
  return value.empty() ? "must not be empty" : "";
}

std::function<std::string(const std::string&)> wholeNumberUpTo(std::uint64_t most) {
  return [most](const std::string& value) -> std::string {
    std::uint64_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [last, error] = std::from_chars(value.data(), end, number);
    if (error == std::errc() && last == end && number <= most) return "";
    return "must be a whole number from 0 to " + std::to_string(most) + ", not \"" + value + "\"";
  };
}

bool print(const std::string& text) {
  return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

std::string inOneLine(const std::string& text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string line;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      line += c;
    } else {
      line += {'\\', 'x', kDigits[byte / 16], kDigits[byte % 16]};
    }
  }
  return line;
}

}  // namespace zorvane
