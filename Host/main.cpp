// zrhost: embeds the analytics module like an application and plays a script.

#include <signal.h>

#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "Host/Actions.h"
#include "Host/Options.h"
#include "Host/Player.h"
#include "Host/Runtime.h"
#include "Host/Script.h"

namespace {

using namespace zorvane::host;

void printHelp() {
  std::fputs(usageText().c_str(), stdout);
  std::puts(
      "\nActions, {\"do\": NAME, ...}, each also with \"async\": true to go on without waiting for what it starts:");
  for (const Action& action : allActions()) {
    if (!action.play) continue;
    std::string fields(action.fields);
    for (std::size_t end = 0; (end = fields.find('\n', end)) != std::string::npos; end += 25) {
      fields.replace(end, 1, "\n" + std::string(24, ' '));
    }
    const int width = fields.empty() ? 0 : 20;
    std::printf("  %-*.*s%s%s\n", width, static_cast<int>(action.name.size()), action.name.data(),
                fields.empty() ? "" : "  ", fields.c_str());
  }
}

int play(const Options& options) {
  const auto script = LineReader::open(options.script);
  if (!script) throw UsageError(script.error().message);
  // Never destroyed: the module's threads outlive this function.
  static auto* const runtime = new Runtime(options);
  int status = kStatusPlayed;
  std::thread player([&] {
    LineReader reader(script.value());
    status = playScript(*runtime, reader, options.quiet);
    runtime->scheduler().stopMainLoop();
  });
  runtime->scheduler().runMainLoop();
  player.join();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader of the output that goes away is an error of a write, not the end of the process.
  ::signal(SIGPIPE, SIG_IGN);
  try {
    const Options options = parseOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (options.help) {
      printHelp();
      return kStatusPlayed;
    }
    return play(options);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "zrhost: %s\n", error.what());
    return kStatusWrongUsage;
  }
}
