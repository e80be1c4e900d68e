// usage: JournalVictim DATA URL NOTES ROUND SEED: eight threads track events with a journal, until one of them kills
// the process right after a call of its own. NOTES, 4096 bytes, then holds the session and what each thread's calls
// returned.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "Transport/CurlTransport.h"
#include "ZRAnalytics/All.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"

using namespace zorvane;

namespace {

constexpr unsigned kThreads = 8;

struct Notes {
  char session[64];
  std::atomic<std::uint64_t> returned[kThreads];
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  const std::string data = argv[1];
  const std::string round = argv[4];
  std::mt19937 chance(static_cast<unsigned>(std::atoi(argv[5])));
  const int file = ::open(argv[3], O_RDWR);
  void* const mapped = ::mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (mapped == MAP_FAILED) return 2;
  auto* const notes = static_cast<Notes*>(mapped);

  ZRStartOptions options;
  options.host.directories = {data + "/Documents", data + "/Library", data + "/Defaults"};
  options.core.endpoint = argv[2];
  options.core.appId = "DEMO";
  options.core.transport = std::make_shared<CurlTransport>();
  options.core.journal = makeEventJournal();
  // A launch after the second begins another session.
  options.core.remoteConfiguration = {{"event_batch_count", 10}, {"s_i_d", 1}};
  if (!startAnalytics(std::move(options))) return 1;
  auto& analytics = ZRAnalytics::sharedInstance();
  const auto session = ZRSessionManager::sharedSessionManager().getCurrentSessionInfoDict();
  std::snprintf(notes->session, sizeof notes->session, "%s", session->objectForKey("session_id").description().c_str());

  const auto killer = static_cast<unsigned>(chance() % kThreads);
  const std::uint64_t last = 1 + chance() % 40;
  const auto pause = static_cast<unsigned>(chance() % 3 == 0 ? 0 : chance() % 2000);  // microseconds
  std::vector<std::thread> threads;
  for (unsigned thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      // The others stop at a number, so that the rounds stay short.
      for (std::uint64_t number = 1; number <= 60; ++number) {
        const std::string name = round + "-" + std::to_string(thread) + "-" + std::to_string(number);
        analytics.trackEventWithProperties("Tracked", ZRProperties::initWithAttributes({{"n", name}}));
        notes->returned[thread].store(number);
        if (thread == killer && number == last) ::kill(::getpid(), SIGKILL);
        if (pause > 0) ::usleep(pause);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  return 1;
}
