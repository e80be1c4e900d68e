// The host's configuration of the core: service address, application identifier, remote configuration, transport.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Export.h"
#include "ZorvaneCore/NetworkTransport.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

class ZREventJournal;

// What the host tells the core.
struct CoreSetup {
  // Base URL of the collection service; slashes at its end are dropped. Requests fail while it is empty.
  std::string endpoint;
  // Empty means none; then nothing is sent.
  std::string appId;
  // Keys and defaults: docs/formats.md. A missing key keeps its default.
  Dictionary remoteConfiguration;
  // Without one, every request fails.
  std::shared_ptr<NetworkTransport> transport;
  // Keeps events over a kill: makeEventJournal in ZRAnalytics/Journal/ZRJournal.h. Null: none. That of the first setup
  // holds.
  std::shared_ptr<ZREventJournal> journal;
  // Called before each request is sent and after each response, on any thread, with the service and the body's
  // "meta.bid" (absent if the body has none). Exceptions are dropped.
  std::function<void(std::int64_t service, const std::optional<std::string>& bid)> willSendRequest;
  std::function<void(std::int64_t service, const std::optional<std::string>& bid, bool success)> didReceiveResponse;
};

// Call once, before the module starts. Throws ValueError for an unknown key or a value of the wrong kind in the remote
// configuration; its message names the key, and nothing changes.
ZR_PUBLIC void configureCore(CoreSetup setup);

// These take effect at once; the module is not notified. Thread-safe. updateRemoteConfiguration throws as
// configureCore.
ZR_PUBLIC void updateRemoteConfiguration(const Dictionary& changes);
// The values in effect, by the keys of the remote configuration.
ZR_PUBLIC Dictionary effectiveConfiguration();
// Empty means none.
ZR_PUBLIC void setAppIdentifier(std::string appId);
// Kept over restarts.
ZR_PUBLIC void setSDKEnabled(bool enabled);

}  // namespace zorvane
