// The command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zorvane::collector {

struct Options {
  int port = 0;          // 0: any free one
  std::string database;  // a file or a URL of PostgreSQL; empty: in memory
  std::string stream;    // addresses of NATS servers: publish there instead of storing; empty: store
  std::string from;      // such addresses: store what their stream holds, too; empty: no stream
  std::string record;    // a file; empty: none
  bool quiet = false;
  // Injected faults; 0: none.
  std::uint64_t failEvery = 0;
  std::uint64_t dropEvery = 0;
  std::uint64_t delayMilliseconds = 0;
  // The text of --help or --version: print it and exit. Empty: serve.
  std::string information;
};

// Takes the arguments without the program's name. Throws UsageError.
Options parseOptions(const std::vector<std::string>& arguments);

}  // namespace zorvane::collector
