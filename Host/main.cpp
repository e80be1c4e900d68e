// zrhost: embeds the analytics module like an application and plays a script.

#include <signal.h>

#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "Host/Interruption.h"
#include "Host/Options.h"
#include "Host/Player.h"
#include "Host/Runtime.h"
#include "Host/Script.h"

namespace {

using namespace zorvane::host;
using zorvane::UsageError;

int play(const Options& options) {
  const auto script = LineReader::open(options.script);
  if (!script) throw UsageError(script.error().message);
  // Never destroyed: the module's threads outlive this function.
  noteInterruption();
  static auto* const runtime = new Runtime(options);
  int status = kStatusPlayed;
  std::thread player([&] {
    LineReader reader(script.value(), interruptionDescriptor());
    status = playScript(*runtime, reader, options.quiet, options.strict);
    runtime->scheduler().stopMainLoop();
  });
  runtime->scheduler().runMainLoop();
  player.join();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // If the reader of the output is gone, write() fails instead of ending the process.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);  // the same for a file-size limit
  try {
    const Options options = parseOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (!options.information.empty()) {
      if (zorvane::print(options.information)) return kStatusPlayed;
      std::fputs("zrhost: cannot write to the standard output\n", stderr);
      return kStatusFailed;
    }
    return play(options);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "zrhost: %s\n", zorvane::inOneLine(error.what()).c_str());
    return kStatusWrongUsage;
  }
}
