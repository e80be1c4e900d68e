#include "Host/Player.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <exception>

#include "Host/Actions.h"
#include "Host/Interruption.h"
#include "Host/Progress.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"

namespace zorvane::host {
namespace {

void playLine(Runtime& runtime, const ScriptLine& line, bool quiet) {
  const Action& action = actionNamed(line.action());
  line.expectOnly(action.keys);
  action.play(runtime, line);
  if (!line.async()) runtime.settle();
  if (!quiet) runtime.output().write({{"done", line.number()}, {"do", line.action()}});
}

void reportRequests(const CountingTransport::Counts& counts) {
  if (counts.failed == 0) return;
  std::fprintf(stderr, "zrhost: %" PRIu64 " of %" PRIu64 " requests were not accepted; the last: %s\n", counts.failed,
               counts.answered, counts.lastFailure.c_str());
}

std::size_t unsavedEvents(Runtime& runtime) {
  // Not asked before there is an event: asking creates the module.
  if (runtime.trace().eventsRecorded() == 0) return 0;
  return ZREventsHandler::sharedInstance().viewsInfoArray().value_or(Array()).size();
}

// What was neither saved nor sent; empty: nothing.
std::string leftAtTheEnd(Runtime& runtime) {
  const auto saved = runtime.savedBatches();
  const std::size_t unsaved = unsavedEvents(runtime);
  std::string left;
  if (!saved) left = "a batch file that cannot be read";
  if (saved.value_or(0) > 0) left = "batches in the file: " + std::to_string(*saved);
  if (unsaved > 0) left += (left.empty() ? "" : ", ") + ("events not saved: " + std::to_string(unsaved));
  return left;
}

// On a terminal, what was sent and what is left; elsewhere what is left, if anything went wrong.
void reportRun(Runtime& runtime, bool wentWrong) {
  const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
  if (!isTerminal && !wentWrong) return;
  const std::string left = leftAtTheEnd(runtime);
  if (!isTerminal) {
    if (!left.empty()) std::fprintf(stderr, "zrhost: left: %s\n", left.c_str());
    return;
  }
  const CountingTransport::Counts counts = runtime.transport().counts();
  std::fprintf(stderr,
               "zrhost: events recorded: %" PRIu64 "; requests sent: %" PRIu64 ", accepted: %" PRIu64 "; left: %s\n",
               runtime.trace().eventsRecorded(), counts.started, counts.answered - counts.failed,
               left.empty() ? "nothing" : left.c_str());
}

}  // namespace

int playScript(Runtime& runtime, LineReader& script, bool quiet, bool strict) {
  Progress progress(quiet);
  int status = kStatusPlayed;
  std::string refusal;
  std::int64_t number = 0;
  try {
    while (!runtime.output().failed() && !isInterrupted()) {
      ++number;
      auto text = script.next();
      if (!text) {
        --number;
        break;
      }
      if (number == 1) text = withoutByteOrderMark(*text);
      if (!ScriptLine::isSkipped(*text)) playLine(runtime, ScriptLine(number, *text), quiet);
      if (progress.isDue()) {
        progress.show(number, runtime.trace().eventsRecorded(), runtime.transport().counts().started);
      }
    }
  } catch (const NotAnAction& reason) {
    status = kStatusNotAnAction;
    refusal = reason.what();
  } catch (const std::exception& error) {
    status = kStatusFailed;
    refusal = std::string("an exception left the module: ") + error.what();
  }
  runtime.settle();
  progress.finish();
  if (status != kStatusPlayed)
    std::fprintf(stderr, "zrhost: line %" PRId64 ": %s\n", number, inOneLine(refusal).c_str());
  const auto failWhere = [&status](bool failed, const char* what) {
    if (!failed) return;
    std::fprintf(stderr, "zrhost: cannot write %s\n", what);
    if (status == kStatusPlayed) status = kStatusFailed;
  };
  failWhere(runtime.output().failed(), "to the standard output");
  failWhere(runtime.trace().failed(), "the trace");
  reportRequests(runtime.transport().counts());
  const bool interrupted = isInterrupted();
  if (interrupted) std::fprintf(stderr, "zrhost: ended by Ctrl-C after line %" PRId64 "\n", number);
  if (strict && status == kStatusPlayed) {
    const std::size_t unsent = runtime.refusedUnsentBatches();
    if (unsent > 0) {
      std::fprintf(stderr, "zrhost: batches that were not accepted and are still unsent: %zu\n", unsent);
      status = kStatusUnsent;
    }
  }
  reportRun(runtime, status != kStatusPlayed || interrupted || runtime.anythingFailed());
  return status;
}

}  // namespace zorvane::host
