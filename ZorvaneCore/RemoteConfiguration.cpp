#include "ZorvaneCore/RemoteConfiguration.h"

#include <span>
#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/HostServices.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRLogger.h"

namespace zorvane {
namespace {

template <typename T>
struct Key {
  std::string_view name;
  T RemoteConfiguration::*field;
};

constexpr Key<bool> kBooleans[] = {
    {"account_active", &RemoteConfiguration::account_active},
    {"sdk_enabled", &RemoteConfiguration::sdk_enabled},
    {"periodic_flush_enabled", &RemoteConfiguration::periodic_flush_enabled},
    {"data_tracking_enabled", &RemoteConfiguration::data_tracking_enabled},
    {"idfv_tracking_enabled", &RemoteConfiguration::idfv_tracking_enabled},
    {"idfa_tracking_enabled", &RemoteConfiguration::idfa_tracking_enabled},
    {"push_enabled", &RemoteConfiguration::push_enabled},
    {"in_app_enabled", &RemoteConfiguration::in_app_enabled},
    {"app_delegate_proxy_enabled", &RemoteConfiguration::app_delegate_proxy_enabled},
    {"device_id_in_secure_store", &RemoteConfiguration::device_id_in_secure_store},
};
constexpr Key<std::int64_t> kIntegers[] = {
    {"event_batch_count", &RemoteConfiguration::event_batch_count},
    {"periodic_flush_duration", &RemoteConfiguration::periodic_flush_duration},
    {"minimum_periodic_flush_duration", &RemoteConfiguration::minimum_periodic_flush_duration},
    {"s_i_d", &RemoteConfiguration::s_i_d},
    {"user_attribute_caching_duration", &RemoteConfiguration::user_attribute_caching_duration},
    {"idfa_authorization", &RemoteConfiguration::idfa_authorization},
};
constexpr Key<std::string> kTexts[] = {
    {"app_group_id", &RemoteConfiguration::app_group_id}, {"app_version", &RemoteConfiguration::app_version},
    {"sdk_version", &RemoteConfiguration::sdk_version},   {"idfv", &RemoteConfiguration::idfv},
    {"device_model", &RemoteConfiguration::device_model}, {"device_name", &RemoteConfiguration::device_name},
    {"os_version", &RemoteConfiguration::os_version},
};
constexpr Key<std::optional<std::string>> kOptionalTexts[] = {
    {"idfa", &RemoteConfiguration::idfa},
    {"locale", &RemoteConfiguration::locale},
};
constexpr Key<std::vector<std::string>> kLists[] = {
    {"blacklisted_events", &RemoteConfiguration::blacklisted_events},
    {"whitelisted_events", &RemoteConfiguration::whitelisted_events},
    {"instant_flush_events", &RemoteConfiguration::instant_flush_events},
    {"source_extra_keys", &RemoteConfiguration::source_extra_keys},
    {"restricted_unique_ids", &RemoteConfiguration::restricted_unique_ids},
};

[[noreturn]] void throwWrongKind(std::string_view key, std::string_view wanted) {
  throw ValueError("configuration: \"" + std::string(key) + "\" must be " + std::string(wanted));
}

template <typename T>
const Key<T>* findKey(std::span<const Key<T>> table, std::string_view name) {
  for (const auto& key : table) {
    if (key.name == name) return &key;
  }
  return nullptr;
}

std::string_view textOf(std::string_view key, const Value& value) {
  if (!value.isString()) throwWrongKind(key, "text");
  return *value.asString();
}

std::vector<std::string> listOf(std::string_view key, const Value& value) {
  if (!value.isArray()) throwWrongKind(key, "an array of texts");
  std::vector<std::string> list;
  for (const Value& element : *value.asArray()) list.emplace_back(textOf(key, element));
  return list;
}

Array arrayOf(const std::vector<std::string>& list) {
  return Array(list.begin(), list.end());
}

}  // namespace

void RemoteConfiguration::apply(const Dictionary& changes) {
  for (const auto& [key, value] : changes) {
    if (const auto* boolean = findKey<bool>(kBooleans, key)) {
      if (!value.asBool()) throwWrongKind(key, "true or false");
      this->*boolean->field = *value.asBool();
    } else if (const auto* integer = findKey<std::int64_t>(kIntegers, key)) {
      if (!value.asInteger()) throwWrongKind(key, "an integer");
      this->*integer->field = *value.asInteger();
    } else if (const auto* text = findKey<std::string>(kTexts, key)) {
      this->*text->field = textOf(key, value);
    } else if (const auto* optional = findKey<std::optional<std::string>>(kOptionalTexts, key)) {
      this->*optional->field = value.isNull() ? std::nullopt : std::optional(textOf(key, value));
    } else if (const auto* list = findKey<std::vector<std::string>>(kLists, key)) {
      this->*list->field = listOf(key, value);
    } else if (key == "unique_id") {
      unique_id_kind = value.isNull() ? UniqueID::None : UniqueID::Fixed;
      unique_id = value.isNull() ? std::string() : std::string(textOf(key, value));
    } else if (key == "query_params") {
      if (!value.isNull() && !value.isDictionary()) throwWrongKind(key, "an object or null");
      query_params = value.isNull() ? std::nullopt : std::optional(*value.asDictionary());
    } else {
      throw ValueError("configuration: unknown key \"" + std::string(key) + "\"");
    }
  }
}

Dictionary RemoteConfiguration::toDictionary() const {
  const auto orNull = [](const std::optional<std::string>& text) { return text ? Value(*text) : Value(null); };
  Dictionary dictionary;
  for (const auto& key : kBooleans) dictionary.set(key.name, this->*key.field);
  for (const auto& key : kIntegers) dictionary.set(key.name, this->*key.field);
  for (const auto& key : kTexts) dictionary.set(key.name, this->*key.field);
  for (const auto& key : kOptionalTexts) dictionary.set(key.name, orNull(this->*key.field));
  for (const auto& key : kLists) dictionary.set(key.name, arrayOf(this->*key.field));
  if (unique_id_kind != UniqueID::Generated) {
    dictionary.set("unique_id", unique_id_kind == UniqueID::Fixed ? Value(unique_id) : Value(null));
  }
  dictionary.set("query_params", query_params ? Value(*query_params) : Value(null));
  return dictionary;
}

CoreState& CoreState::shared() {
  static CoreState* const state = new CoreState;
  return *state;
}

CoreState::CoreState()
    : configuration_(std::make_shared<RemoteConfiguration>()),
      setup_(std::make_shared<CoreSetup>()),
      choices_("core", platform::joinPath(platform::hostServices().directories.library, "core.plist")) {}

void CoreState::configure(CoreSetup setup) {
  auto configuration = std::make_shared<RemoteConfiguration>();
  configuration->apply(setup.remoteConfiguration);
  while (setup.endpoint.ends_with('/')) setup.endpoint.pop_back();
  if (!ownedJournal_) {
    ownedJournal_ = setup.journal;
    journal_ = ownedJournal_.get();
  }
  {
    std::shared_ptr<const RemoteConfiguration> old;  // destroyed after the lock is released
    platform::MutexLock lock(mutex_);
    old = std::exchange(configuration_, std::move(configuration));
  }
  appId_.set(setup.appId);
  setup_.set(std::make_shared<CoreSetup>(std::move(setup)));
  // A choice that could not be written, for example on a full disk, is written again until it stands.
  platform::sdkDefaults().synchronizeWith(choices_);
  for (const std::string_view left :
       {platform::kWillResignActiveNotification, platform::kDidEnterBackgroundNotification,
        platform::kWillTerminateNotification}) {
    platform::hostServices().notificationCenter->addObserver(
        left, [this](std::string_view) { (void)choices_.writeChanges(); });
  }
  refreshGates();
}

void CoreState::applyConfiguration(const Dictionary& changes) {
  {
    std::shared_ptr<const RemoteConfiguration> old;  // destroyed after the lock is released
    platform::MutexLock lock(mutex_);
    auto configuration = std::make_shared<RemoteConfiguration>(*configuration_);
    configuration->apply(changes);
    old = std::exchange(configuration_, std::move(configuration));
  }
  refreshGates();
}

void CoreState::refreshGates() {
  // If two refreshes overlap, the one with the higher number has seen both changes and wins.
  const std::uint64_t refresh = ++lastRefresh_;
  const auto current = configuration();
  const bool disabled = choice(kChoiceSDKDisabled);  // may log, so no lock is held
  platform::MutexLock lock(gatesMutex_);
  if (refresh < appliedRefresh_) return;
  appliedRefresh_ = refresh;
  accountActive_.store(current->account_active, std::memory_order_release);
  sdkEnabled_.store(current->sdk_enabled && !disabled, std::memory_order_release);
}

std::shared_ptr<const RemoteConfiguration> CoreState::configuration() const {
  platform::MutexLock lock(mutex_);
  return configuration_;
}

std::shared_ptr<const CoreSetup> CoreState::setup() const {
  return setup_.get();
}

std::string CoreState::appId() const {
  return appId_.get();
}

void CoreState::setAppId(std::string appId) {
  appId_.set(std::move(appId));
}

bool CoreState::choice(std::string_view key) {
  return choices_.boolForKey(key);
}

bool CoreState::areChoicesRead() {
  if (!choices_.isRead()) return false;
  if (!wereChoicesRead_.exchange(true)) refreshGates();
  return true;
}

void CoreState::setChoice(std::string_view key, Value value, platform::Durability durability) {
  choices_.setObjectForKey(std::move(value), key, durability);
  // If the write fails, the choice holds in this process and is written again later, see configure().
  (void)choices_.writeChanges();
  refreshGates();
}

ZRSDKConfiguration CoreState::sdkConfiguration() {
  ZRSDKConfiguration configuration;
  configuration.optOutIDFVTracking_.value = choice(kChoiceIDFVOptedOut);
  configuration.optOutIDFATracking_.value = choice(kChoiceIDFAOptedOut);
  configuration.analyticsDisablePeriodicFlush_.value = choice(kChoicePeriodicFlushDisabled);
  const Value duration = choices_.objectForKey(kChoicePeriodicFlushDuration);
  if (duration.asInteger()) configuration.analyticsPeriodicFlushDuration_.value = *duration.asInteger();
  return configuration;
}

void CoreState::setSdkConfiguration(const ZRSDKConfiguration& configuration) {
  using platform::Durability;
  const auto keep = [this](const auto& chosen, std::string_view key, Durability durability) {
    if (chosen.changed) choices_.setObjectForKey(chosen.value, key, durability);
  };
  // A power loss may undo a choice about the flush timer, but none about an identifier.
  keep(configuration.optOutIDFVTracking_, kChoiceIDFVOptedOut, Durability::Lasting);
  keep(configuration.optOutIDFATracking_, kChoiceIDFAOptedOut, Durability::Lasting);
  keep(configuration.analyticsDisablePeriodicFlush_, kChoicePeriodicFlushDisabled, Durability::Eventual);
  const auto& duration = configuration.analyticsPeriodicFlushDuration_;
  if (duration.changed) {
    choices_.setObjectForKey(*duration.value, kChoicePeriodicFlushDuration, Durability::Eventual);
  }
  // If the write fails, the choice holds in this process and is written again later, see configure().
  (void)choices_.writeChanges();
}

void configureCore(CoreSetup setup) {
  platform::setDefaultsProblemHook([](const std::string& problem) {
    ZRLogger::sharedInstance().logWithTypeAndFormatArgs(1, {"Defaults : " + problem});
  });
  CoreState::shared().configure(std::move(setup));
}
void updateRemoteConfiguration(const Dictionary& changes) {
  CoreState::shared().applyConfiguration(changes);
}
Dictionary effectiveConfiguration() {
  const ZRConfigDataManager& manager = ZRConfigDataManager::sharedInstance();
  Dictionary effective = CoreState::shared().configuration()->toDictionary();
  effective.set("sdk_enabled", CoreState::shared().isSDKEnabled());
  effective.set("data_tracking_enabled", manager.isDataTrackingEnabled());
  effective.set("idfv_tracking_enabled", manager.isIDFVTrackingEnabled());
  effective.set("idfa_tracking_enabled", manager.isIDFATrackingEnabled());
  effective.set("periodic_flush_enabled", manager.isPeriodicFlushEnabled());
  effective.set("periodic_flush_duration", manager.getPeriodicFlushDuration());
  return effective;
}
void setAppIdentifier(std::string appId) {
  CoreState::shared().setAppId(std::move(appId));
}
void setSDKEnabled(bool enabled) {
  CoreState::shared().setChoice(kChoiceSDKDisabled, !enabled);
}

}  // namespace zorvane
