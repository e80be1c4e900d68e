#include "Collector/Inspector.h"

#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Collector/Contents.h"
#include "Collector/PageFiles.h"

namespace zorvane::collector {

namespace {

using std::chrono::hours;

constexpr std::chrono::seconds kRecent{1};
constexpr std::size_t kRecentTexts = 8;
constexpr std::size_t kRecentBytes = 1u << 20;  // of each

struct Span {
  hours length;
  int characters;  // of a time
};
const std::map<std::string, Span> kSpans = {
    {"minute", {hours(1), 16}}, {"hour", {hours(48), 13}}, {"day", {hours(24 * 60), 10}}};

void answer(httplib::Response& response, const std::string& json) {
  response.set_content(json + "\n", "application/json");
}

struct NotFound : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Answers with what the work returns, or 400 or 404 if it throws BadRequest or NotFound.
template <typename Work>
httplib::Server::Handler handler(Work work) {
  return [work](const httplib::Request& request, httplib::Response& response) {
    try {
      answer(response, work(request));
    } catch (const BadRequest& refusal) {
      Listener::currentExchange().error = refusal.what();
      response.status = 400;
    } catch (const NotFound& error) {
      Listener::currentExchange().error = error.what();
      response.status = 404;
    }
  };
}

void expectOnly(const httplib::Request& request, std::string_view parameter = "") {
  for (const auto& [name, value] : request.params) {
    if (name != parameter) throw BadRequest("unknown parameter " + name);
  }
}

std::int64_t idOf(const httplib::Request& request) {
  expectOnly(request);
  return parseNumber("the id", request.matches[1]);
}

std::string need(std::optional<std::string> found) {
  if (!found) throw NotFound("there is none with this id");
  return *std::move(found);
}

std::string arrivals(Reader& reader, const httplib::Request& request) {
  expectOnly(request, "by");
  const std::string by = request.has_param("by") ? request.get_param_value("by") : "minute";
  const auto span = kSpans.find(by);
  if (span == kSpans.end() || request.get_param_value_count("by") > 1)
    throw BadRequest("by must be one of minute, hour, day");
  const auto now = std::chrono::system_clock::now();
  const std::string from = timeText(now - span->second.length).substr(0, 16);
  return "{\"now\": \"" + timeText(now) + "\", \"from\": \"" + from +
         "\", \"arrivals\": " + reader.arrivals(from, span->second.characters) + "}";
}

}  // namespace

std::string Inspector::recent(const std::string& target, const std::function<std::string()>& make) {
  const std::uint64_t stored = live_.stored();
  const auto now = std::chrono::steady_clock::now();
  {
    const std::lock_guard lock(mutex_);
    std::erase_if(recent_, [&](const Recent& each) { return each.stored != stored || now - each.made > kRecent; });
    for (const Recent& each : recent_) {
      if (each.target == target) return each.text;
    }
  }
  std::string text = make();
  if (text.size() > kRecentBytes) return text;
  const std::lock_guard lock(mutex_);
  recent_.push_back({target, text, stored, now});
  if (recent_.size() > kRecentTexts) recent_.pop_front();
  return text;
}

void Inspector::setRoutes(Listener& listener) {
  for (const PageFile& file : pageFiles()) {
    listener.offer(std::string(file.path), [&file](const httplib::Request&, httplib::Response& response) {
      response.set_header("Cache-Control", "no-cache");
      response.set_content(file.content.data(), file.content.size(), std::string(file.type).c_str());
    });
  }
  for (const View& view : allViews()) {
    listener.offer(std::string("/api/") + view.name, handler([this, &view](const httplib::Request& request) {
                     const Query query = parseQuery(request.params, filtersOf(view), view.statuses);
                     return recent(request.target, [&] { return reader_.list(view, query); });
                   }));
  }
  listener.offer("/api/summary", handler([this](const httplib::Request& request) {
                   expectOnly(request);
                   return reader_.summary().dump();
                 }));
  listener.offer("/api/names", handler([this](const httplib::Request& request) {
                   expectOnly(request);
                   return reader_.names();
                 }));
  listener.offer("/api/arrivals",
                 handler([this](const httplib::Request& request) { return arrivals(reader_, request); }));
  listener.offer("/api/events/(\\d+)",
                 handler([this](const httplib::Request& request) { return need(reader_.event(idOf(request))); }));
  listener.offer("/api/requests/(\\d+)",
                 handler([this](const httplib::Request& request) { return need(reader_.request(idOf(request))); }));
  listener.offer("/api/live", [](const httplib::Request& request, httplib::Response& response) {
    if (request.method == "HEAD") {
      response.set_header("Content-Type", "text/event-stream");
      return;
    }
    Exchange& exchange = Listener::currentExchange();
    const std::string head =
        "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-store\r\n"
        "X-Content-Type-Options: nosniff\r\nConnection: close\r\n\r\n";
    exchange.isLive = exchange.connection.write(head.data(), head.size()) == static_cast<ssize_t>(head.size());
    exchange.connection.drop();
  });
}

}  // namespace zorvane::collector
