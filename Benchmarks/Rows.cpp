// One measurement a process, because the module cannot start twice in one. scripts/bench runs them and makes the table.
// Each prints one JSON object of numbers.
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Counters.h"
#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "Sink.h"
#include "Transport/CurlTransport.h"
#include "Workload.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/ZRAnalytics.h"

namespace {

using namespace zorvane;
using namespace zorvane::bench;

const char* const kUsage =
    "usage: zr_rows MEASUREMENT FOLDER [NAME=VALUE ...]\n"
    "FOLDER is the application's container. Measurements, and the values they take:\n"
    "  track    events=10000 batch=30 threads=1 attributes=0 online=0 pause_us=0 journal_kb=0: the caller, and all it\n"
    "           causes; attributes=0 is the usual event of six, journal_kb=0 is without a journal\n"
    "  sqlite   events=2000: an insert in place of a call, kept over a kill as a journal keeps it\n"
    "  pace     events=2000 pause_us=1000: the loop of a paced run without the module\n"
    "  deliver  url= events=10000 batch=30: from the first call to the last response\n"
    "  start    ahead=0: to the return of the first call, so many seconds later than now\n"
    "  save     events=30 saves=20: saves in a container that may hold a backlog\n"
    "  refuse   a flush of the container's backlog to a port where nobody listens\n"
    "  backlog  batches=1000 events=30: makes a container with a backlog\n"
    "  sink     a service that counts; prints {\"port\": N}, and the counts when its input ends\n";

class Arguments {
 public:
  Arguments(int count, char** values) {
    for (int i = 0; i < count; ++i) {
      const std::string_view text = values[i];
      const std::size_t at = text.find('=');
      if (at == std::string_view::npos) usage();
      values_[std::string(text.substr(0, at))] = text.substr(at + 1);
    }
  }
  std::string text(const std::string& name) const { return values_.contains(name) ? values_.at(name) : ""; }
  int number(const std::string& name, int otherwise) const {
    return values_.contains(name) ? std::atoi(values_.at(name).c_str()) : otherwise;
  }

  [[noreturn]] static void usage() {
    std::fputs(kUsage, stderr);
    std::exit(2);
  }

 private:
  std::map<std::string, std::string> values_;
};

class ShiftedClock final : public platform::Clock {
 public:
  explicit ShiftedClock(double secondsAhead) : secondsAhead_(secondsAhead) {}
  platform::Date now() const override { return {machine_.now().secondsSince1970 + secondsAhead_}; }
  double monotonicSeconds() const override { return machine_.monotonicSeconds(); }

 private:
  const platform::SystemClock machine_;
  const double secondsAhead_;
};

void print(std::initializer_list<std::pair<const char*, double>> numbers) {
  const char* separator = "{";
  for (const auto& [name, number] : numbers) {
    std::printf("%s\"%s\": %.9g", separator, name, number);
    separator = ", ";
  }
  std::puts("}");
  std::fflush(stdout);
}

void waitUntilIdle() {
  platform::hostServices().scheduler->waitUntilIdle();
}

void trackOne(int number) {
  ZRAnalytics::sharedInstance().trackEventWithProperties("Product viewed", sixAttributes(number));
}

void track(const std::string& folder, const Arguments& arguments) {
  const int events = arguments.number("events", 10000);
  const int threads = arguments.number("threads", 1);
  const int attributes = arguments.number("attributes", 0);
  const std::chrono::microseconds pause(arguments.number("pause_us", 0));
  startModule({.folder = folder,
               .transport = makeTransport(arguments.number("online", 0) != 0),
               .batchSize = arguments.number("batch", 30),
               .journalBytes = static_cast<std::size_t>(arguments.number("journal_kb", 0)) << 10});
  trackOne(0);
  waitUntilIdle();

  std::vector<std::vector<double>> microseconds(static_cast<std::size_t>(threads));
  for (auto& each : microseconds) each.assign(static_cast<std::size_t>(events / threads), 0);
  const std::size_t memory = residentBytes();
  const std::uint64_t written = bytesWritten();
  const std::int64_t syncsBefore = syncs();
  const double processor = processorSeconds();
  const double start = secondsNow();
  const auto call = [&](std::vector<double>& samples) {
    ZRAnalytics& analytics = ZRAnalytics::sharedInstance();
    int number = 0;
    for (double& sample : samples) {
      if (pause.count() != 0) std::this_thread::sleep_for(pause);
      ++number;
      const double before = secondsNow();
      analytics.trackEventWithProperties("Product viewed",
                                         attributes == 0 ? sixAttributes(number) : manyAttributes(number, attributes));
      sample = (secondsNow() - before) * 1e6;
    }
  };
  {
    std::vector<std::jthread> callers;
    for (int i = 1; i < threads; ++i) callers.emplace_back(call, std::ref(microseconds[static_cast<std::size_t>(i)]));
    call(microseconds[0]);
  }
  waitUntilIdle();
  ZREventsHandler::sharedInstance().saveCurrentBatch();
  const double seconds = secondsNow() - start;
  waitUntilIdle();

  const double tracked = events / threads * threads;
  const double used = processorSeconds() - processor;
  const auto writtenSince = static_cast<double>(bytesWritten() - written);
  const auto grown = static_cast<double>(residentBytes()) - static_cast<double>(memory);
  for (std::size_t i = 1; i < microseconds.size(); ++i) {
    microseconds[0].insert(microseconds[0].end(), microseconds[i].begin(), microseconds[i].end());
  }
  print({{"p50_us", percentile(microseconds[0], 0.5)},
         {"p99_us", percentile(microseconds[0], 0.99)},
         {"processor_us", used * 1e6 / tracked},
         {"events_per_s", tracked / seconds},
         {"written", writtenSince / tracked},
         {"syncs", static_cast<double>(syncs() - syncsBefore) / tracked},
         {"memory_kb", grown / 1024}});
}

void sqlite(const std::string& folder, const Arguments& arguments) {
  std::filesystem::create_directories(folder);
  sqlite3* database = nullptr;
  sqlite3_stmt* insert = nullptr;
  const bool isOpen =
      sqlite3_open((folder + "/events.db").c_str(), &database) == SQLITE_OK &&
      sqlite3_exec(database, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE TABLE events(name, json)",
                   nullptr, nullptr, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(database, "INSERT INTO events VALUES('Product viewed', ?)", -1, &insert, nullptr) == SQLITE_OK;
  if (!isOpen) std::exit(1);
  std::vector<double> microseconds(static_cast<std::size_t>(arguments.number("events", 2000)), 0);
  int number = 0;
  for (double& sample : microseconds) {
    const double before = secondsNow();
    const std::string json = platform::jsonText(sixAttributes(++number)->getAttributesDict());
    sqlite3_bind_text(insert, 1, json.data(), static_cast<int>(json.size()), SQLITE_STATIC);
    if (sqlite3_step(insert) != SQLITE_DONE || sqlite3_reset(insert) != SQLITE_OK) std::exit(1);
    sample = (secondsNow() - before) * 1e6;
  }
  print({{"p50_us", percentile(microseconds, 0.5)}, {"p99_us", percentile(microseconds, 0.99)}});
}

// What the loop of a paced run costs by itself.
void pace(const Arguments& arguments) {
  const int events = arguments.number("events", 2000);
  const std::chrono::microseconds pause(arguments.number("pause_us", 1000));
  const double processor = processorSeconds();
  for (int i = 0; i < events; ++i) std::this_thread::sleep_for(pause);
  print({{"processor_us", (processorSeconds() - processor) * 1e6 / events}});
}

void deliver(const std::string& folder, const Arguments& arguments) {
  const int events = arguments.number("events", 10000);
  const auto transport = std::make_shared<CurlTransport>();
  startModule({.folder = folder,
               .endpoint = arguments.text("url"),
               .transport = transport,
               .batchSize = arguments.number("batch", 30)});
  waitUntilIdle();
  ZREventsHandler& handler = ZREventsHandler::sharedInstance();
  const auto settle = [&] {
    do {
      waitUntilIdle();
      transport->waitUntilIdle();
      waitUntilIdle();
    } while (transport->outstanding() != 0);
  };
  const double processor = processorSeconds();
  const double start = secondsNow();
  for (int i = 0; i < events; ++i) trackOne(i);
  waitUntilIdle();
  // A flush that meets a running sync leaves the rest to the next one.
  do {
    handler.flushWithCompletionBlock(nullptr);
    settle();
  } while (std::filesystem::exists(batchFilePath(folder)));
  print({{"seconds", secondsNow() - start}, {"processor_us", (processorSeconds() - processor) * 1e6 / events}});
}

void save(const std::string& folder, const Arguments& arguments) {
  const int saves = arguments.number("saves", 20);
  startModule({.folder = folder, .transport = makeTransport(false), .batchSize = 1'000'000});
  waitUntilIdle();
  double first = 0;
  double module = 0;
  double machine = 0;
  double machineFirst = 0;
  std::vector<double> milliseconds;
  for (int i = 0; i <= saves; ++i) {
    for (int event = arguments.number("events", 30); event > 0; --event) trackOne(event);
    waitUntilIdle();
    const double start = secondsNow();
    ZREventsHandler::sharedInstance().saveCurrentBatch();
    const double seconds = secondsNow() - start;
    const double limit = secondsToWriteSyncRename(folder, std::filesystem::file_size(batchFilePath(folder)));
    if (i == 0) {
      first = seconds;
      machineFirst = limit;
      continue;
    }
    module += seconds;
    machine += limit;
    milliseconds.push_back(seconds * 1e3);
  }
  print({{"first_ms", first * 1e3},
         {"first_limit_ms", machineFirst * 1e3},
         {"ms", percentile(milliseconds, 0.5)},
         {"times_limit", module / machine},
         {"file_kb", static_cast<double>(std::filesystem::file_size(batchFilePath(folder))) / 1024}});
}

void refuse(const std::string& folder) {
  const Sink nobody(/*isListening=*/false);
  const auto transport = std::make_shared<CurlTransport>();
  startModule({.folder = folder,
               .endpoint = "http://127.0.0.1:" + std::to_string(nobody.port()),
               .transport = transport,
               .batchSize = 30});
  const auto settle = [&] {
    waitUntilIdle();
    transport->waitUntilIdle();
    waitUntilIdle();
  };
  settle();  // what the start sends has been refused, too
  const double processor = processorSeconds();
  const double start = secondsNow();
  ZREventsHandler::sharedInstance().flushWithCompletionBlock(nullptr);
  settle();
  print({{"processor_ms", (processorSeconds() - processor) * 1e3}, {"ms", (secondsNow() - start) * 1e3}});
}

void start(const std::string& folder, const Arguments& arguments, double begin) {
  startModule({.folder = folder,
               .transport = makeTransport(true),
               .clock = std::make_shared<ShiftedClock>(arguments.number("ahead", 0))});
  trackOne(0);
  const double first = secondsNow() - begin;
  // As an application that is put away: what the next launch finds is on the disk.
  waitUntilIdle();
  platform::NotificationCenter& notifications = *platform::hostServices().notificationCenter;
  notifications.post(platform::kWillResignActiveNotification);
  notifications.post(platform::kDidEnterBackgroundNotification);
  waitUntilIdle();
  print({{"ms", first * 1e3}});
}

void sink() {
  Sink service;
  print({{"port", service.port()}});
  service.run(STDIN_FILENO);
  print({{"bytes", static_cast<double>(service.bytes())},
         {"events", static_cast<double>(service.events())},
         {"batches", static_cast<double>(service.batches())},
         {"repeated", static_cast<double>(service.repeatedBatches())}});
}

}  // namespace

int main(int argc, char** argv) {
  const double begin = secondsNow();
  const std::string_view what = argc > 1 ? argv[1] : "";
  if (what == "sink") {
    sink();
    return 0;
  }
  if (argc < 3) Arguments::usage();
  const std::string folder = std::filesystem::absolute(argv[2]);
  const Arguments arguments(argc - 3, argv + 3);
  if (what == "track") {
    track(folder, arguments);
  } else if (what == "sqlite") {
    sqlite(folder, arguments);
  } else if (what == "pace") {
    pace(arguments);
  } else if (what == "deliver") {
    deliver(folder, arguments);
  } else if (what == "start") {
    start(folder, arguments, begin);
  } else if (what == "save") {
    save(folder, arguments);
  } else if (what == "refuse") {
    refuse(folder);
  } else if (what == "backlog") {
    startModule({.folder = folder, .transport = makeTransport(false)});
    waitUntilIdle();
    writeBacklog(folder, arguments.number("batches", 1000), arguments.number("events", 30));
  } else {
    Arguments::usage();
  }
  return 0;
}
