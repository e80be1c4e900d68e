// How a host sets the core up: service address, application identifier, remote configuration, transport.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ZorvaneCore/NetworkTransport.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

struct CoreSetup {
  // Base address of the collection service, without a slash at its end; requests fail while it is empty.
  std::string endpoint;
  // Empty means none: nothing is sent.
  std::string appId;
  // Keys and defaults: docs/formats.md. A key left out keeps its default.
  Dictionary remoteConfiguration;
  std::shared_ptr<NetworkTransport> transport;
  // Told of each request before it leaves and of each answer, with the service and the body's "meta.bid" (absent when
  // the body has none); any thread.
  std::function<void(std::int64_t service, const std::optional<std::string>& bid)> willSendRequest;
  std::function<void(std::int64_t service, const std::optional<std::string>& bid, bool success)> didReceiveResponse;
};

// Once, before the module is started. A value of the wrong kind in the remote configuration throws ValueError that
// names its key, and nothing changes.
void configureCore(CoreSetup setup);

// These take effect at once; the module is not told. Thread-safe.
void updateRemoteConfiguration(const Dictionary& changes);
// The effective answers, by the keys of the remote configuration.
Dictionary effectiveConfiguration();
void setAppIdentifier(std::string appId);
// Kept over restarts.
void setSDKEnabled(bool enabled);

}  // namespace zorvane
