#include "Collector/Server.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <algorithm>
#include <cstdio>

namespace zorvane::collector {

namespace {

// Bodies up to this size are neither counted nor handled one at a time.
constexpr std::size_t kSmallBody = 64u << 10;
// After larger ones freed memory goes back to the system.
constexpr std::size_t kTrimmedBody = 1u << 20;
constexpr const char* kRetryAfterSeconds = "5";

// httplib adds these to the received headers.
bool isAddedHeader(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

// Escaped, so that a client cannot send control characters to the terminal.
std::string forTerminal(const std::string& text) {
  return json(text).dump(-1, ' ', true, json::error_handler_t::replace);
}

// As received, a JSON object.
std::string headersOf(const httplib::Request& request) {
  json headers = json::object();
  for (const auto& [name, value] : request.headers) {
    if (isAddedHeader(name)) continue;
    // HTTP joins the values of a repeated header with a comma.
    headers[name] = headers.contains(name) ? headers[name].get<std::string>() + ", " + value : value;
  }
  return jsonText(headers);
}

void setJSON(httplib::Response& response, const json& body) {
  response.set_content(jsonText(body) + "\n", "application/json");
}

// DNS-rebinding guard: accept only localhost or an IP literal as Host.
bool isOwnHost(std::string_view host) {
  if (host.starts_with('[')) return true;
  host = host.substr(0, host.find(':'));
  return host == "localhost" || host.find_first_not_of("0123456789.") == std::string_view::npos;
}

// Why a request of another site's page is refused; empty: it is not.
std::string foreignPageProblem(const httplib::Request& request) {
  const std::string host = request.get_header_value("Host");
  if (!isOwnHost(host)) return "the host is neither \"localhost\" nor an address";
  if (request.method == "POST" && request.has_header("Origin") &&
      request.get_header_value("Origin") != "http://" + host) {
    return "a page of another origin sends nothing here";
  }
  return "";
}

// With an application's identifier.
bool isService(const std::string& path) {
  constexpr std::string_view kReport = "/v1/report/", kDevice = "/v1/device/";
  return (path.starts_with(kReport) || path.starts_with(kDevice)) && path.size() > kReport.size();
}

// For a method that the path does not take.
void refuseMethod(const httplib::Request& request, httplib::Response& response) {
  Listener::currentExchange().error = request.method + " is not allowed for " + request.path;
  response.status = 405;
  response.set_header("Allow", isService(request.path) ? "POST" : "GET, HEAD");
}

// Whether each % has its two hexadecimal digits.
bool isPercentEncoded(const std::string& target) {
  for (std::size_t at = 0; (at = target.find('%', at)) != std::string::npos; ++at) {
    if (target.find_first_not_of("0123456789abcdefABCDEF", at + 1) < at + 3 || at + 2 >= target.size()) return false;
  }
  return true;
}

// Of a response for which no reason was given.
std::string reasonFor(int status, const std::string& path) {
  switch (status) {
    case 400:
      return "not an HTTP request that can be read";
    case 404:
      return "no such path: " + path;
    case 414:
      return "the address is too long";
    default:
      return "HTTP status " + std::to_string(status);
  }
}

// For responses sent before the request was read to its end: the connection cannot be reused.
void closeAfterResponse() {
  Listener::currentExchange().connection.closeAfterResponse();
}

// glibc keeps what a thread has freed for that thread. With many threads this adds up to gigabytes.
void trimMemory() {
#if defined(__GLIBC__)
  ::malloc_trim(0);
#endif
}

void giveBackBody(Exchange& exchange) {
  std::string().swap(exchange.body);
  exchange.share.giveBack();
}

bool isEvery(std::uint64_t n, std::atomic<std::uint64_t>& count) {
  return (++count % n) == 0;
}

}  // namespace

Server::Server(const Options& options, const ConnectionLimits& limits)
    : options_(options),
      budget_(limits.bodyBytes, limits.bodyPatience),
      listener_(limits, budget_, live_),
      port_(listener_.bindLoopback(options.port)) {
  if (options.stream.empty()) {
    store_ = std::make_unique<Store>(options.database);
    reader_ = std::make_unique<Reader>(store_->reader());
    inspector_ = std::make_unique<Inspector>(*reader_, live_);
  } else {
    publisher_ = makePublisher(options.stream, options.quiet);
  }
  if (!options.record.empty()) recorder_ = std::make_unique<Recorder>(options.record);
  setRoutes();
  if (!options.from.empty()) consumer_ = startConsumer(options.from, options.quiet, *store_, metrics_, live_);
}

Server::~Server() {
  stop();
}

void Server::start() {
  thread_ = std::thread([this] { listener_.listen_after_bind(); });
  while (!listener_.is_running()) std::this_thread::yield();
}

void Server::stop() {
  {
    const std::lock_guard lock(stopMutex_);
    stopping_ = true;
  }
  stopped_.notify_all();
  budget_.close();
  if (publisher_) publisher_->stop();
  consumer_.reset();
  if (!thread_.joinable()) return;
  listener_.stop();
  listener_.releaseConnections();
  live_.stop();
  thread_.join();
}

void Server::setRoutes() {
  listener_.set_payload_max_length(kMaxBodyBytes);
  listener_.set_default_headers(
      {{"X-Content-Type-Options", "nosniff"}, {"Content-Security-Policy", kContentSecurityPolicy}});
  listener_.set_pre_routing_handler([](const httplib::Request& request, httplib::Response& response) {
    if (std::string refusal = foreignPageProblem(request); !refusal.empty()) {
      Listener::currentExchange().error = std::move(refusal);
      Listener::currentExchange().outcome = Outcome::ForeignPage;
      response.status = 403;
      closeAfterResponse();
      return httplib::Server::HandlerResponse::Handled;
    }
    const bool isGet = request.method == "GET" || request.method == "HEAD";
    if (isGet && request.path.starts_with("/api/") && !isPercentEncoded(request.target)) {
      Listener::currentExchange().error = "the address has a % that two hexadecimal digits do not follow";
      response.status = 400;
      return httplib::Server::HandlerResponse::Handled;
    }
    if (request.method == "POST" || (isGet && !isService(request.path))) {
      return httplib::Server::HandlerResponse::Unhandled;
    }
    refuseMethod(request, response);
    if (!isGet) closeAfterResponse();
    return httplib::Server::HandlerResponse::Handled;
  });
  for (const auto& [pattern, service] :
       {std::pair("/v1/report/([^]+)", Service::Report), std::pair("/v1/device/([^]+)", Service::Device)}) {
    listener_.Post(pattern, [this, service = service](const httplib::Request& request, httplib::Response& response,
                                                      const httplib::ContentReader& reader) {
      takePost(service, request.matches[1], request, response, reader);
    });
  }
  listener_.Post("[^]*", [this](const httplib::Request& request, httplib::Response& response,
                                const httplib::ContentReader&) { refusePath(request, response); });
  setOperationRoutes();
  if (inspector_) {
    inspector_->setRoutes(listener_);
  } else {
    listener_.Get("[^]*", [](const httplib::Request&, httplib::Response& response) {
      Listener::currentExchange().error = "with --stream nothing is kept here; ask a collector that runs with --from";
      response.status = 404;
    });
  }
  listener_.set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr thrown) {
    response.status = 500;
    Listener::currentExchange().outcome = Outcome::Failed;
    try {
      std::rethrow_exception(thrown);
    } catch (const std::exception& error) {
      Listener::currentExchange().error = error.what();
    } catch (...) {
      Listener::currentExchange().error = "internal error";
    }
  });
  listener_.set_error_handler([](const httplib::Request& request, httplib::Response& response) {
    if (!response.body.empty()) return;
    const std::string& error = Listener::currentExchange().error;
    setJSON(response, {{"error", error.empty() ? reasonFor(response.status, request.path) : error}});
  });
  listener_.set_post_routing_handler(
      [this](const httplib::Request& request, httplib::Response& response) { finish(request, response); });
}

// What a load balancer and Prometheus ask.
void Server::setOperationRoutes() {
  listener_.offer("/healthz", [](const httplib::Request&, httplib::Response& response) {
    setJSON(response, {{"healthy", true}});
  });
  listener_.offer("/readyz", [this](const httplib::Request&, httplib::Response& response) {
    try {
      publisher_ ? publisher_->checkReady() : store_->checkWritable();
      setJSON(response, {{"ready", true}});
    } catch (const DatabaseError& error) {
      Listener::currentExchange().error = std::string("cannot write the database: ") + error.what();
      response.status = 503;
    } catch (const StreamError& error) {
      Listener::currentExchange().error = error.what();
      response.status = 503;
    }
  });
  listener_.offer("/metrics", [this](const httplib::Request&, httplib::Response& response) {
    response.set_content(metrics_.text(!options_.from.empty()), kMetricsType);
  });
}

// 200 if the body was read whole, else the status of the response.
int Server::readBody(const httplib::Request& request, const httplib::ContentReader& reader) {
  Exchange& exchange = Listener::currentExchange();
  if (request.is_multipart_form_data()) {
    exchange.connection.closeAfterResponse();
    exchange.error = "not JSON: the body is a form";
    exchange.outcome = Outcome::NotJSON;
    return 400;
  }
  std::size_t size = 0;
  bool fits = true;
  const bool whole = reader([&](const char* data, std::size_t count) {
    size += count;
    if (fits && size > kSmallBody && size <= kMaxBodyBytes) {
      const auto start = std::chrono::steady_clock::now();
      fits = exchange.share.take(count);
      exchange.connection.doNotCountSince(start);
      if (!fits) giveBackBody(exchange);
    }
    if (fits && size <= kMaxBodyBytes) exchange.body.append(data, count);
    // Many clients read the response only after sending everything, so read on, up to a limit.
    return size <= 4 * kMaxBodyBytes;
  });
  if (whole && fits && size <= kMaxBodyBytes) return 200;
  exchange.connection.closeAfterResponse();
  const bool declared = request.has_header("Content-Length") &&
                        std::strtoull(request.get_header_value("Content-Length").c_str(), nullptr, 10) > kMaxBodyBytes;
  if (size > kMaxBodyBytes || declared || exchange.connection.exceeded()) {
    giveBackBody(exchange);
    exchange.error = "the body is larger than " + std::to_string(kMaxBodyBytes) + " bytes";
    exchange.outcome = Outcome::TooLarge;
    return 413;
  }
  if (!fits) {
    exchange.error = "too many large bodies at once";
    exchange.outcome = Outcome::Busy;
    return 503;
  }
  exchange.error = "the body did not arrive whole";
  if (const std::string encoding = request.get_header_value("Content-Encoding"); !encoding.empty()) {
    exchange.error += ", or cannot be decoded (Content-Encoding: " + encoding + ")";
  }
  exchange.outcome = Outcome::IncompleteBody;
  return 400;
}

// The status after the checks. Fills in the row's signature and bid.
int Server::judge(RequestRow& row, const httplib::Request& request, json& body) {
  Exchange& exchange = Listener::currentExchange();
  try {
    body = parseBody(exchange.body);
    exchange.bodyIsJSON = true;
    row.bid = textAt(body, {"meta", "bid"});
    checkShape(row.service, body);
  } catch (const BadRequest& refusal) {
    exchange.error = refusal.what();
    exchange.outcome = exchange.bodyIsJSON ? Outcome::WrongShape : Outcome::NotJSON;
    return 400;
  }
  std::optional<std::string> sent;
  if (request.has_header(kSignatureHeader)) sent = request.get_header_value(kSignatureHeader);
  row.signature = checkSignature(body, sent);
  if (row.signature == Signature::Missing) {
    exchange.error = std::string(kSignatureHeader) + " is missing";
    exchange.outcome = Outcome::SignatureMissing;
    row.expected = signatureOf(body);
    return 401;
  }
  if (row.signature == Signature::Wrong) {
    exchange.error = std::string(kSignatureHeader) + " is not the signature of the body";
    exchange.outcome = Outcome::SignatureWrong;
    row.expected = signatureOf(body);
    return 401;
  }
  return 200;
}

void Server::takePost(Service service, const std::string& appID, const httplib::Request& request,
                      httplib::Response& response, const httplib::ContentReader& reader) {
  Exchange& exchange = Listener::currentExchange();
  RequestRow row;
  row.service = service;
  row.appID = appID;
  row.status = readBody(request, reader);
  row.bytes = exchange.body.size();
  const bool fail = options_.failEvery != 0 && isEvery(options_.failEvery, posts_);
  const bool drop = !fail && options_.dropEvery != 0 && isEvery(options_.dropEvery, otherPosts_);

  if (row.status == 503) response.set_header("Retry-After", kRetryAfterSeconds);
  if (row.status == 200 && fail) {
    exchange.error = "failed on purpose";
    exchange.outcome = Outcome::Injected;
    row.status = 503;
    row.injected = "failed";
  }
  bool accepted = false;
  if (exchange.body.size() <= kSmallBody) {
    accepted = judgeAndStore(row, request, response, drop);
  } else {
    const std::lock_guard lock(largeBody_);
    accepted = judgeAndStore(row, request, response, drop);
    if (exchange.body.size() > kTrimmedBody) trimMemory();
  }
  // Without the lock: others need not wait for the stream.
  if (accepted && publisher_) publish(row, response);
  delay();
}

void Server::refusePath(const httplib::Request& request, httplib::Response& response) {
  Exchange& exchange = Listener::currentExchange();
  if (listener_.isOffered(request.path)) {
    refuseMethod(request, response);
  } else {
    exchange.error = "no such path for POST: " + request.path;
    response.status = 404;
  }
  exchange.outcome = Outcome::UnknownPath;
  exchange.connection.closeAfterResponse();
  RequestRow row;
  row.service = Service::Unknown;
  row.status = response.status;
  row.error = exchange.error;
  row.headers = headersOf(request);
  addRefused(row, nullptr);
}

// Whether it was accepted. With a stream it is neither stored nor published yet.
bool Server::judgeAndStore(RequestRow& row, const httplib::Request& request, httplib::Response& response, bool drop) {
  Exchange& exchange = Listener::currentExchange();
  json body;
  if (row.status == 200) {
    row.status = judge(row, request, body);
  } else if (row.injected) {
    try {
      body = parseBody(exchange.body);
      exchange.bodyIsJSON = true;
      row.bid = textAt(body, {"meta", "bid"});
    } catch (const BadRequest&) {
      // It fails in any case.
    }
  }
  row.error = exchange.error;
  row.headers = headersOf(request);
  response.status = row.status;
  const bool accepted = row.status == 200;
  if (drop) {
    row.status = 0;
    row.injected = "dropped";
    metrics_.countDropped();
    exchange.connection.drop();
  }
  if (!accepted) {
    row.body = beginningOf(exchange.body);
    addRefused(row, body);
  } else if (store_) {
    const auto start = std::chrono::steady_clock::now();
    countAccepted(store_->addAccepted(row, body), start, response);
    live_.announce();
  }
  return accepted;
}

void Server::publish(const RequestRow& row, httplib::Response& response) {
  const auto start = std::chrono::steady_clock::now();
  Exchange& exchange = Listener::currentExchange();
  try {
    countAccepted(publisher_->publish(row, exchange.body), start, response);
  } catch (const StreamError& error) {
    exchange.error = error.what();
    exchange.outcome = error.isTooLarge() ? Outcome::TooLarge : Outcome::NotAcknowledged;
    response.status = error.isTooLarge() ? 413 : 503;
    if (response.status == 503) response.set_header("Retry-After", kRetryAfterSeconds);
  }
}

// A stream takes accepted requests only.
void Server::addRefused(const RequestRow& row, const json& body) {
  if (!store_) return;
  store_->addRefused(row, body);
  live_.announce();
}

void Server::countAccepted(bool isNew, std::chrono::steady_clock::time_point start, httplib::Response& response) {
  metrics_.addStoreTime(std::chrono::steady_clock::now() - start);
  Listener::currentExchange().outcome = isNew ? Outcome::Accepted : Outcome::Duplicate;
  setJSON(response, {{"stored", isNew}});
}

void Server::delay() {
  if (options_.delayMilliseconds == 0) return;
  std::unique_lock lock(stopMutex_);
  stopped_.wait_for(lock, std::chrono::milliseconds(options_.delayMilliseconds), [this] { return stopping_; });
}

// Runs before every response is sent.
void Server::finish(const httplib::Request& request, httplib::Response& response) {
  Exchange& exchange = Listener::currentExchange();
  if (!exchange.connection.canGoOn()) response.set_header("Connection", "close");
  const int status = exchange.connection.dropped() && !exchange.isLive ? 0 : response.status;
  if (request.method == "POST") metrics_.count(exchange.outcome);
  if (!options_.quiet && request.method == "POST") {
    std::fprintf(stderr, "%s %s %d%s%s\n", request.method.c_str(), forTerminal(request.target).c_str(), status,
                 exchange.error.empty() ? "" : ": ", exchange.error.empty() ? "" : forTerminal(exchange.error).c_str());
  }
  if (!recorder_) return;
  try {
    recorder_->write({request.method, request.target, headersOf(request), std::move(exchange.body)},
                     exchange.bodyIsJSON, status);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zrcollector: %s\n", error.what());
  }
}

}  // namespace zorvane::collector
