// Posts batches to a collector from many connections and prints what it took, one JSON object.
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Collector/Checks.h"
#include "CommandLine/CommandLine.h"

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

struct Options {
  std::string url;
  int connections = 16;
  int seconds = 5;
  int events = 30;
};

struct Result {
  std::vector<double> milliseconds;  // of accepted requests
  std::size_t bytes = 0;             // of their bodies
  std::size_t refused = 0;           // and failed
};

// A report of events with six attributes, as the module sends it.
json reportOf(int events, int device) {
  json list = json::array();
  for (int i = 0; i < events; ++i) {
    const int random = (device * 7919 + i * 104729) % 99991;
    const std::string milliseconds = std::to_string(100 + random % 900);
    list.push_back({{"EVENT_ACTION", "Product Viewed"},
                    {"EVENT_G_TIME", "2026-11-21T10:00:00." + milliseconds + "Z"},
                    {"EVENT_L_TIME", "2026-11-21T10:00:00." + milliseconds + "+0000"},
                    {"EVENT_ATTRS",
                     {{"sku", "A-" + std::to_string(random)},
                      {"category", random % 3 == 0 ? "shoes" : "hats"},
                      {"colour", "#" + std::to_string(random * 31 % 1000000)},
                      {"position", i},
                      {"price", random / 100.0},
                      {"in stock", random % 2 == 0}}}});
  }
  return {
      {"viewsCount", events},
      {"viewsInfo", std::move(list)},
      {"query_params", {{"unique_id", "load-" + std::to_string(device)}, {"os", "LOAD"}}},
      {"meta",
       {{"request_time", "2026-11-21T10:00:05.000Z"},
        {"session", {{"session_id", "session-" + std::to_string(device)}, {"start_time", "2026-11-21T10:00:00.000Z"}}},
        {"source", json::array()}}}};
}

Result post(const Options& options, int connection, Clock::time_point end) {
  Result result;
  httplib::Client client(options.url);
  client.set_keep_alive(true);
  client.set_tcp_nodelay(true);
  json body = reportOf(options.events, connection);
  const std::string run = std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
  for (int number = 0; Clock::now() < end; ++number) {
    body["meta"]["bid"] = run + "-" + std::to_string(connection) + "-" + std::to_string(number);
    const std::string text = body.dump();
    const httplib::Headers headers = {
        {zorvane::collector::kSignatureHeader, zorvane::collector::signatureOf(body).value()}};
    const auto start = Clock::now();
    const httplib::Result response = client.Post("/v1/report/LOAD", headers, text, "application/json");
    if (response && response->status == 200) {
      result.milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
      result.bytes += text.size();
    } else {
      ++result.refused;
    }
  }
  return result;
}

double percentile(std::vector<double>& values, double part) {
  if (values.empty()) return 0;
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    zorvane::CommandLine line("zr_load", "Posts batches of events to a collector for some seconds.", "");
    line.add_option("url", options.url, "the collector's address")->required();
    line.add_option("--connections", options.connections, "each sends one request after the other");
    line.add_option("--seconds", options.seconds, "how long");
    line.add_option("--events", options.events, "of a batch");
    const std::string information = line.read({argv + 1, argv + argc});
    if (!information.empty()) {
      std::fputs(information.c_str(), stdout);
      return 0;
    }
  } catch (const zorvane::UsageError& error) {
    std::fprintf(stderr, "zr_load: %s\n", error.what());
    return 2;
  }
  const auto start = Clock::now();
  std::vector<Result> results(static_cast<std::size_t>(options.connections));
  std::vector<std::thread> threads;
  for (int i = 0; i < options.connections; ++i) {
    threads.emplace_back([&, i] {
      results[static_cast<std::size_t>(i)] = post(options, i, start + std::chrono::seconds(options.seconds));
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  Result all;
  for (const Result& result : results) {
    all.milliseconds.insert(all.milliseconds.end(), result.milliseconds.begin(), result.milliseconds.end());
    all.bytes += result.bytes;
    all.refused += result.refused;
  }
  const double requests = static_cast<double>(all.milliseconds.size());
  const json line = {{"requests", all.milliseconds.size()},
                     {"requests_a_second", requests / seconds},
                     {"events_a_second", requests * options.events / seconds},
                     {"bytes_a_batch", requests > 0 ? static_cast<double>(all.bytes) / requests : 0},
                     {"median_ms", percentile(all.milliseconds, 0.5)},
                     {"p99_ms", percentile(all.milliseconds, 0.99)},
                     {"refused", all.refused}};
  std::puts(line.dump().c_str());
  return 0;
}
