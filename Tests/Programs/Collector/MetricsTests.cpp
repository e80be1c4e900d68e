#include "Collector/Metrics.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <utility>

#include "Collector/Server.h"

namespace zorvane::collector {
namespace {

// Sample to value. Every sample must follow the HELP and TYPE of its family.
std::map<std::string, std::string> samplesOf(const std::string& text) {
  std::map<std::string, std::string> samples;
  std::istringstream lines(text);
  std::string family;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("# HELP ")) {
      family = line.substr(7, line.find(' ', 7) - 7);
      std::getline(lines, line);
      EXPECT_TRUE(line.starts_with("# TYPE " + family + " ")) << line;
    } else {
      EXPECT_TRUE(line.starts_with(family)) << line;
      EXPECT_TRUE(samples.emplace(line.substr(0, line.rfind(' ')), line.substr(line.rfind(' ') + 1)).second) << line;
    }
  }
  return samples;
}

TEST(Metrics, EachPostIsCountedOnceByWhatBecameOfIt) {
  Options options;
  options.quiet = true;
  Server server(options);
  server.start();
  httplib::Client client("127.0.0.1", server.port());
  const json body = {{"viewsCount", 0},
                     {"meta", {{"bid", "1"}, {"request_time", "now"}}},
                     {"query_params", {{"unique_id", "device"}}}};
  const httplib::Headers isSigned = {{kSignatureHeader, *signatureOf(body)}};
  const struct {
    std::string path, body;
    httplib::Headers headers;
    int status;
    std::string labels;
  } cases[] = {
      {"/v1/report/A", body.dump(), isSigned, 200, R"(result="accepted",reason="")"},
      {"/v1/report/A", body.dump(), isSigned, 200, R"(result="duplicate",reason="")"},
      {"/v1/report/A", body.dump(), {}, 401, R"(result="refused",reason="signature_missing")"},
      {"/v1/report/A", body.dump(), {{kSignatureHeader, "A"}}, 401, R"(result="refused",reason="signature_wrong")"},
      {"/v1/device/A", body.dump(), isSigned, 400, R"(result="refused",reason="wrong_shape")"},
      {"/v1/report/A", "{", {}, 400, R"(result="refused",reason="not_json")"},
      {"/v1/report/A", std::string(kMaxBodyBytes + 1, ' '), {}, 413, R"(result="refused",reason="too_large")"},
      {"/v1/report/A", "{}", {{"Content-Encoding", "gzip"}}, 400, R"(result="refused",reason="incomplete_body")"},
      {"/metrics", "", {}, 405, R"(result="refused",reason="unknown_path")"},
      {"/v1/report/A", "", {{"Origin", "null"}}, 403, R"(result="refused",reason="foreign_page")"},
  };
  std::map<std::string, std::string> expected = samplesOf(Metrics().text());
  for (const auto& each : cases) {
    const auto response = client.Post(each.path, each.headers, each.body, "application/json");
    ASSERT_TRUE(response) << each.labels;
    EXPECT_EQ(response->status, each.status) << each.labels;
    EXPECT_EQ(std::exchange(expected["zrcollector_requests_total{" + each.labels + "}"], "1"), "0") << each.labels;
    for (const auto& [sample, value] : samplesOf(client.Get("/metrics")->body)) {
      if (sample.starts_with("zrcollector_requests")) {
        EXPECT_EQ(value, expected[sample]) << each.labels << sample;
      }
    }
  }
  EXPECT_EQ(samplesOf(client.Get("/metrics")->body)["zrcollector_store_duration_seconds_count"], "2");
}

TEST(Metrics, AStoreTimeCountsInEachBucketThatHoldsIt) {
  Metrics metrics;
  for (const int milliseconds : {5, 6, 2000, 7000}) metrics.addStoreTime(std::chrono::milliseconds(milliseconds));
  auto samples = samplesOf(metrics.text());
  const std::string name = "zrcollector_store_duration_seconds";
  for (const auto& [bound, count] :
       {std::pair("0.0025", "0"), {"0.005", "1"}, {"0.01", "2"}, {"5", "3"}, {"+Inf", "4"}})
    EXPECT_EQ(samples[name + "_bucket{le=\"" + bound + "\"}"], count) << bound;
  EXPECT_EQ(samples[name + "_sum"], "9.011000000");
  EXPECT_EQ(samples[name + "_count"], "4");
}

TEST(Health, TheServerIsReadyWhileTheDatabaseCanBeWritten) {
  char directory[] = "/tmp/zrcollector-XXXXXX";
  ASSERT_NE(::mkdtemp(directory), nullptr);
  Options options;
  options.quiet = true;
  options.database = directory + std::string("/collected.db");
  {
    Server server(options);
    server.start();
    httplib::Client client("127.0.0.1", server.port());
    const auto get = [&](const char* path) { return client.Get(path)->body; };
    EXPECT_EQ(get("/readyz"), "{\"ready\":true}\n");
    EXPECT_EQ(client.Head("/readyz")->status, 200);

    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
    const auto refused = client.Get("/readyz");
    EXPECT_EQ(refused->status, 503);
    EXPECT_EQ(refused->body, "{\"error\":\"cannot write the database: disk I/O error\"}\n");
    EXPECT_EQ(client.Post("/v1/report/A", "{\"viewsCount\": 0}", "application/json")->status, 500);
    EXPECT_EQ(get("/healthz"), "{\"healthy\":true}\n");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);

    EXPECT_EQ(get("/readyz"), "{\"ready\":true}\n");
    EXPECT_EQ(samplesOf(get("/metrics"))[R"(zrcollector_requests_total{result="failed",reason=""})"], "1");
    for (const char* path : {"/healthz", "/readyz", "/metrics"}) {
      EXPECT_EQ(client.Put(path)->get_header_value("Allow"), "GET, HEAD") << path;
      EXPECT_EQ(client.Post(path)->get_header_value("Allow"), "GET, HEAD") << path;
    }
    EXPECT_EQ(client.Get("/metrics")->get_header_value("Content-Type"), kMetricsType);
  }
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace zorvane::collector
