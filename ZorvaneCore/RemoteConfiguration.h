// The stand-in's remote configuration, and the choices that it keeps over restarts.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch/LockedValue.h"
#include "Platform/Dispatch/Mutex.h"
#include "Platform/Files/DefaultsStore.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZRCoreTypes.h"
#include "ZorvaneCore/ZorvaneCore.h"

namespace zorvane {

struct RemoteConfiguration {
  bool account_active = true;
  bool sdk_enabled = true;
  std::int64_t event_batch_count = 0;
  bool periodic_flush_enabled = true;
  std::int64_t periodic_flush_duration = 60;
  std::int64_t minimum_periodic_flush_duration = 5;
  bool data_tracking_enabled = true;
  bool idfv_tracking_enabled = true;
  bool idfa_tracking_enabled = true;
  bool push_enabled = true;
  bool in_app_enabled = true;
  std::vector<std::string> blacklisted_events;
  std::vector<std::string> whitelisted_events;
  std::vector<std::string> instant_flush_events;
  std::vector<std::string> source_extra_keys;
  std::int64_t s_i_d = 0;
  std::int64_t user_attribute_caching_duration = 43200;
  std::vector<std::string> restricted_unique_ids;
  std::string app_group_id;
  bool app_delegate_proxy_enabled = true;
  std::string app_version = "1.0";
  std::string sdk_version = "1.0.0";
  std::string idfv;
  std::optional<std::string> idfa;
  std::int64_t idfa_authorization = 3;
  std::string device_model;
  std::string device_name;
  std::string os_version;
  bool device_id_in_secure_store = false;
  std::optional<std::string> locale;
  enum class UniqueID { Generated, Fixed, None } unique_id_kind = UniqueID::Generated;
  std::string unique_id;
  std::optional<Dictionary> query_params = Dictionary();

  // Sets the given keys. An unknown key or a value of the wrong kind throws ValueError, whose message names the key.
  void apply(const Dictionary& changes);
  Dictionary toDictionary() const;
};

// The state behind the stand-in's classes. Thread-safe.
class CoreState {
 public:
  static CoreState& shared();

  void configure(CoreSetup setup);
  void applyConfiguration(const Dictionary& changes);
  std::shared_ptr<const RemoteConfiguration> configuration() const;
  std::shared_ptr<const CoreSetup> setup() const;
  std::string appId() const;
  void setAppId(std::string appId);

  // The two gates. Lock-free, because every call of the host reads them.
  bool isAccountActive() const { return accountActive_.load(std::memory_order_acquire); }
  bool isSDKEnabled() const { return sdkEnabled_.load(std::memory_order_acquire); }
  // Null: none. Lock-free as well.
  ZREventJournal* journal() const { return journal_.load(std::memory_order_acquire); }

  // The choices kept over restarts, in "core.plist" in the library directory. One that cannot be written is written
  // again with the next synchronize of the SDK defaults and each time the application leaves the foreground.
  bool choice(std::string_view key);
  // False while the file cannot be read: then each choice seems not to be made. Tries to read it, and refreshes the
  // gates once it is read.
  bool areChoicesRead();
  void setChoice(std::string_view key, Value value, platform::Durability durability = platform::Durability::Lasting);
  ZRSDKConfiguration sdkConfiguration();
  void setSdkConfiguration(const ZRSDKConfiguration& configuration);

 private:
  CoreState();
  void refreshGates();

  std::atomic<std::uint64_t> lastRefresh_{0};
  platform::Mutex gatesMutex_;
  std::uint64_t appliedRefresh_ ZR_GUARDED_BY(gatesMutex_) = 0;
  mutable platform::Mutex mutex_;
  std::shared_ptr<const RemoteConfiguration> configuration_ ZR_GUARDED_BY(mutex_);
  platform::LockedValue<std::shared_ptr<const CoreSetup>> setup_;
  platform::LockedValue<std::string> appId_;
  platform::DefaultsStore choices_;
  std::atomic<bool> wereChoicesRead_{false};
  std::atomic<bool> accountActive_{true};
  std::atomic<bool> sdkEnabled_{true};
  std::shared_ptr<ZREventJournal> ownedJournal_;
  std::atomic<ZREventJournal*> journal_{nullptr};
};

// Keys of the choices.
inline constexpr std::string_view kChoiceDataTrackingOptedOut = "data_tracking_opted_out";
inline constexpr std::string_view kChoiceSDKDisabled = "sdk_disabled";
inline constexpr std::string_view kChoiceInstallRegistered = "install_registered";
inline constexpr std::string_view kChoiceIDFVOptedOut = "idfv_tracking_opted_out";
inline constexpr std::string_view kChoiceIDFAOptedOut = "idfa_tracking_opted_out";
inline constexpr std::string_view kChoicePeriodicFlushDisabled = "periodic_flush_disabled";
inline constexpr std::string_view kChoicePeriodicFlushDuration = "periodic_flush_duration";

}  // namespace zorvane
