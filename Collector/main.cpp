#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "Collector/Options.h"
#include "Collector/Server.h"
#include "CommandLine/CommandLine.h"

using namespace zorvane::collector;

namespace {

constexpr const char* kCannotPrint = "zrcollector: cannot write to the standard output\n";

}  // namespace

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
// httplib is not instrumented, so ThreadSanitizer does not see how it guards its static variables.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libcpp-httplib.so\n";
}
#endif
#endif

int main(int argc, char** argv) {
  Options options;
  try {
    options = parseOptions(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const zorvane::UsageError& error) {
    std::fprintf(stderr, "zrcollector: %s\n", zorvane::inOneLine(error.what()).c_str());
    return 2;
  }
  if (!options.information.empty()) {
    if (zorvane::print(options.information)) return 0;
    std::fputs(kCannotPrint, stderr);
    return 1;
  }
  // A write beyond a file-size limit fails instead of ending the process.
  std::signal(SIGXFSZ, SIG_IGN);
  // Blocked before other threads start, so that only sigwait() below receives them.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  try {
    Server server(options);
    server.start();
    if (!zorvane::print("{\"listening\": \"http://127.0.0.1:" + std::to_string(server.port()) + "\"}\n")) {
      std::fputs(kCannotPrint, stderr);
      return 1;
    }
    int signal = 0;
    sigwait(&signals, &signal);
    server.stop();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zrcollector: %s\n", error.what());
    return 1;
  }
}
