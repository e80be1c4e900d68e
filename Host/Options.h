// The command line.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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
  // Where the clocks stand; absent: real time.
  std::optional<platform::Date> clock;
  // A file; "-" is the standard input.
  std::string script = "-";
  bool quiet = false;
  bool help = false;
};

// What is wrong with how the program was called, in one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes the arguments without the program's name. Throws UsageError.
Options parseOptions(const std::vector<std::string>& arguments);

// An ISO 8601 time in UTC, with or without milliseconds ("2026-11-21T10:00:00.000Z"); empty for any other text.
std::optional<platform::Date> parseTime(const std::string& text);

// The options, for --help.
std::string usageText();

}  // namespace zorvane::host
