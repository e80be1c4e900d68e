// The programs' command lines, over CLI11: --help, -h and --version work alike everywhere.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zorvane {

// What is wrong with how a program was called, in one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class CommandLine : public CLI::App {
 public:
  // The footer ends the text of --help: an example, and anything else to know. --version prints the project's version.
  CommandLine(std::string program, std::string description, std::string footer);

  // Takes the arguments without the program's name and sets the variables that the options are bound to. Returns the
  // text of --help or --version: print it and exit; empty: run. Throws UsageError, also for a repeated option.
  std::string read(std::vector<std::string> arguments);
};

// Writes the text to standard output at once. False if that failed.
bool print(const std::string& text);

// The text in one line: control characters become "\x1B" and the like, so that no input can steer the terminal.
std::string inOneLine(const std::string& text);

// For CLI::Option::check: refuses the empty text.
std::string refuseEmpty(const std::string& value);

// For CLI::Option::check: refuses what is no whole number from 0 to the most.
std::function<std::string(const std::string&)> wholeNumberUpTo(std::uint64_t most);

}  // namespace zorvane
