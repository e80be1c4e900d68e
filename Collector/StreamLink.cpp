#include "Collector/StreamLink.h"

#include <array>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <thread>

#include "Collector/Stream.h"
#include "CommandLine/CommandLine.h"

namespace zorvane::collector {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr std::int64_t kConnectMilliseconds = 2000;
constexpr std::int64_t kReconnectMilliseconds = 500;
constexpr std::int64_t kPingMilliseconds = 5000;
constexpr std::int64_t kRequestMilliseconds = 2000;
constexpr int kReplicas = 3;
constexpr milliseconds kPause{50};
constexpr std::chrono::seconds kTryPause{1};

// Without the credentials that an address may have.
std::string serverOf(natsConnection* connection) {
  std::array<char, 1024> url{};
  if (natsConnection_GetConnectedUrl(connection, url.data(), url.size()) != NATS_OK) return "a server";
  const std::string text = url.data();
  const std::size_t at = text.rfind('@');
  return at == std::string::npos ? text : "nats://" + text.substr(at + 1);
}

// The library calls these on a thread of its own. The closure is null if nothing is to be said.
void sayConnected(natsConnection* connection, void* isLoud) {
  if (isLoud) std::fprintf(stderr, "zrcollector: connected to the stream at %s\n", serverOf(connection).c_str());
}
void sayDisconnected(natsConnection* connection, void* isLoud) {
  if (isLoud && !natsConnection_IsClosed(connection)) {
    std::fputs("zrcollector: lost the connection to the stream; connecting again\n", stderr);
  }
}

// "(conn.c:123): reason" without the place in the library.
std::string withoutPlace(const std::string& text) {
  const std::size_t end = text.find("): ");
  return text.starts_with('(') && end != std::string::npos ? text.substr(end + 3) : text;
}

void check(natsStatus status, const char* what) {
  if (status != NATS_OK) throw StreamError(std::string(what) + ": " + natsReason(status));
}

}  // namespace

std::string natsReason(natsStatus status) {
  natsStatus last = NATS_OK;
  const char* const detail = nats_GetLastError(&last);
  std::string text = natsStatus_GetText(status);
  if (last == status && detail && *detail) text += ": " + withoutPlace(detail);
  return inOneLine(text);
}

std::string StreamLink::failure() const {
  const char* text = nullptr;
  const natsStatus status = natsConnection_GetLastError(connection(), &text);
  const std::string reason = status == NATS_OK ? "" : std::string(": ") + natsStatus_GetText(status);
  return "not connected to the stream" + reason;
}

StreamLink::StreamLink(const std::string& servers, bool quiet) {
  natsOptions* made = nullptr;
  check(natsOptions_Create(&made), "cannot use NATS");
  const std::unique_ptr<natsOptions, Destroy<natsOptions_Destroy>> options(made);
  std::vector<std::string> addresses;
  std::istringstream parts(servers);
  for (std::string address; std::getline(parts, address, ',');) addresses.push_back(address);
  std::vector<const char*> texts;
  for (const std::string& address : addresses) texts.push_back(address.c_str());
  static bool isLoud = true;
  void* const closure = quiet ? nullptr : &isLoud;
  check(natsOptions_SetServers(made, texts.data(), static_cast<int>(texts.size())), "cannot read the stream's address");
  // Without this the library speaks plain text to a server that offers no TLS.
  if (servers.find("tls://") != std::string::npos) check(natsOptions_SetSecure(made, true), "cannot use TLS");
  natsOptions_SetName(made, "zrcollector");
  natsOptions_SetTimeout(made, kConnectMilliseconds);
  natsOptions_SetMaxReconnect(made, -1);
  natsOptions_SetReconnectWait(made, kReconnectMilliseconds);
  natsOptions_SetPingInterval(made, kPingMilliseconds);
  natsOptions_SetFailRequestsOnDisconnect(made, true);
  natsOptions_SetWriteDeadline(made, kConnectMilliseconds);
  natsOptions_SetRetryOnFailedConnect(made, true, sayConnected, closure);
  natsOptions_SetReconnectedCB(made, sayConnected, closure);
  natsOptions_SetDisconnectedCB(made, sayDisconnected, closure);

  natsConnection* connection = nullptr;
  const natsStatus status = natsConnection_Connect(&connection, made);
  if (status != NATS_NOT_YET_CONNECTED) check(status, "cannot connect to the stream");
  connection_.reset(connection);
  if (status == NATS_NOT_YET_CONNECTED && !quiet) {
    std::fprintf(stderr, "zrcollector: %s; trying on\n", failure().c_str());
  }
  jsCtx* context = nullptr;
  check(natsConnection_JetStream(&context, connection, nullptr), "cannot use JetStream");
  context_.reset(context);
}

StreamLink::StreamInfo StreamLink::findStream() {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kRequestMilliseconds;
  jsStreamInfo* found = nullptr;
  jsErrCode code{};
  const natsStatus status = js_GetStreamInfo(&found, context(), kStream, &options, &code);
  StreamInfo info(found);
  if (code == JSStreamNotFoundErr) {
    makeStream();
    return nullptr;
  }
  check(status, "the stream does not answer");
  if (info->Cluster && (!info->Cluster->Leader || !*info->Cluster->Leader)) {
    throw StreamError("the stream has no leader");
  }
  return info;
}

void StreamLink::needRoom() {
  const StreamInfo info = findStream();
  if (!info || info->Config->MaxBytes <= 0) return;
  const auto limit = static_cast<std::uint64_t>(info->Config->MaxBytes);
  if (info->State.Bytes <= limit - limit / 100) return;
  throw StreamError("the stream is full: " + std::to_string(info->State.Bytes) + " of " + std::to_string(limit) +
                    " bytes");
}

void StreamLink::makeStream() {
  const char* subjects[] = {kReportSubject, kDeviceSubject};
  jsStreamConfig config;
  jsStreamConfig_Init(&config);
  config.Name = kStream;
  config.Subjects = subjects;
  config.SubjectsLen = std::size(subjects);
  // A message is kept until it is stored. A full stream refuses new ones.
  config.Retention = js_WorkQueuePolicy;
  config.Discard = js_DiscardNew;
  config.MaxBytes = kStreamBytes;
  config.Storage = js_FileStorage;
  config.Duplicates = nanoseconds(kDuplicateWindow).count();
  config.Replicas = kReplicas;
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kRequestMilliseconds;
  jsErrCode code{};
  natsStatus status = js_AddStream(nullptr, context(), &config, &options, &code);
  if (code == JSStreamReplicasNotSupportedErr) {
    config.Replicas = 1;  // no cluster
    status = js_AddStream(nullptr, context(), &config, &options, &code);
  }
  // Another collector may have made it meanwhile.
  if (code != JSStreamNameExistErr) check(status, "cannot make the stream");
}

std::shared_ptr<StreamLink> StreamLinks::connected(std::chrono::steady_clock::time_point until) {
  while (true) {
    std::shared_ptr<StreamLink> link = open();
    if (link->isConnected()) return link;
    if (stopping_ || std::chrono::steady_clock::now() >= until) throw StreamError(link->failure());
    std::this_thread::sleep_for(kPause);
  }
}

std::shared_ptr<StreamLink> StreamLinks::open() {
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (link_->isClosed() && now >= nextTry_) {
    nextTry_ = now + kTryPause;
    link_ = std::make_shared<StreamLink>(servers_, quiet_);
  }
  return link_;
}

}  // namespace zorvane::collector
