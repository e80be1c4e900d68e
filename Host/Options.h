// The command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CommandLine/CommandLine.h"
#include "Platform/Values/Value.h"

namespace zorvane::host {

struct Options {
  std::string data;
  // Without a slash at its end.
  std::string endpoint;
  // Empty: none.
  std::string appId = "DEMO";
  // Files; empty: none.
  std::string config;
  std::string trace;
  // The time of clocks that only the script moves; absent: real time.
  std::optional<platform::Date> clock;
  // A file; "-" is the standard input.
  std::string script = "-";
  bool journal = false;
  bool quiet = false;
  bool strict = false;
  // The text of --help or --version: print it and exit. Empty: play.
  std::string information;
};

// Takes the arguments without the program's name. Throws UsageError.
Options parseOptions(const std::vector<std::string>& arguments);

// An ISO 8601 time in UTC, with or without milliseconds ("2026-11-21T10:00:00.000Z"); empty for any other text.
std::optional<platform::Date> parseTime(const std::string& text);

}  // namespace zorvane::host
