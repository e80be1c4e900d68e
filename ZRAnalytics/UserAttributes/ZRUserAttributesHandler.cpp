#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"

#include <utility>

#include "Platform/Files/FileSystem.h"
#include "Platform/Formats/PropertyList.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/DeviceAttribute/ZRDeviceAttributesHandler.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRAnalyticsUtils.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"
#include "ZRAnalytics/Utils/ZRDefaults.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreConstants.h"
#include "ZorvaneCore/ZRCoreUtils.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

constexpr char kFile[] = "ZRUserAttributesHandler";
constexpr ReportSite kForcedReset{kFile, "forceResetUserWithNewUserAttributeUniqueID"};
constexpr std::string_view kArchiveClasses[] = {ZRUserAttributeData::kClassName, ZRUserAttribute::kClassName};
constexpr std::size_t kMaximumLegacyFileSize = 16u << 20;

std::string trimmedText(const Value& value) {
  const std::string text = value.description();
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

void trackUserAttributeEvent(std::shared_ptr<const ZRProperties> properties) {
  ZREventsHandler::sharedInstance().trackEventWithProperties(kEventNameUserAttributeAction, std::move(properties));
}

Value storedUniqueID() {
  return ZRCoreUtils::getSDKUserDefault().objectForKey(kUserDefaultsKeyModifiedUserAttrUniqueID);
}

bool isRestricted(const std::string& uniqueID) {
  return ZRConfigDataManager::sharedInstance().isUniqueIDRestricted(uniqueID);
}

}  // namespace

ZRUserAttributesHandler& ZRUserAttributesHandler::sharedHandler() {
  static ZRUserAttributesHandler* const handler = new ZRUserAttributesHandler;
  return *handler;
}

ZRUserAttributesHandler::ZRUserAttributesHandler() {
  const auto root = readArchive(getFilePathForUserAttribute(), ZRUserAttributeData::kClassName, kArchiveClasses);
  userAttributeData_.set(root ? ZRUserAttributeData::initWithCoder(*root) : std::make_shared<ZRUserAttributeData>());
  migrateLegacyPlistValuesToNewFile();
  platform::hostServices().notificationCenter->addObserver(
      platform::kWillResignActiveNotification, [this](std::string_view name) { applicationInActive(name); });
}

std::shared_ptr<ZRUserAttributeData> ZRUserAttributesHandler::userAttributeData() const {
  return userAttributeData_.get();
}

bool ZRUserAttributesHandler::isAValidUserAttributeValueForKey(const Value& value, const Value& name) {
  bool valid = false;
  guarded({kFile, "isAValidUserAttributeValueForKey"}, "exception : %@", [&] {
    if (name.isNil()) {
      logLine("Key cannot be nil while setting user attribute");
    } else if (value.isNil()) {
      logLine("Value passed as nil while setting %@ user attribute", {name});
    } else if (value.isString() || value.isNumber()) {
      valid = true;
    } else {
      logLine("The attribue value should be either of string, number or bool");
    }
  });
  return valid;
}

bool ZRUserAttributesHandler::setUserAttributeValueWithNameCheckStorage(const Value& value, const Value& name,
                                                                        bool checkStorage) {
  bool tracked = false;
  guarded({kFile, "setUserAttributeValueWithNameCheckStorage"}, "exception : %@", [&] {
    const auto isAllowed = [&name] {
      return ZRCoreUtils::isSDKEnabled() && (ZRConfigDataManager::sharedInstance().isDataTrackingEnabled() ||
                                             name == Value(kUserAttributeNameGDPRPushOptOut));
    };
    if (!isAllowed()) return;
    if (!isAValidUserAttributeValueForKey(value, name)) return;
    if (checkStorage) {
      const auto data = userAttributeData();
      if (!data->saveAttributeWithValue(name.description(), value)) {
        logLine("User Attribute(%@) tracked with already existing value(%@)", {name, value});
        return;
      }
      if (ZRAnalyticsUtils::isOptedOut() && !isAllowed()) {
        // An opt-out came meanwhile. It may have emptied the cache before.
        if (userAttributeData() == data) forgetUser();
        return;
      }
      logLine("User Attribute(%@) updated to value(%@)", {name, value});
    }
    auto properties = std::make_shared<ZRProperties>();
    properties->addAttributeWithName(value, name);
    trackUserAttributeEvent(std::move(properties));
    tracked = true;
  });
  return tracked;
}

void ZRUserAttributesHandler::setUserAttributeTimestampForKey(double secondsSince1970, const Value& name) {
  guarded({kFile, "setUserAttributeTimestampForKey"}, "exception : %@", [&] {
    if (!ZRCoreUtils::isSDKEnabled()) return;
    auto properties = std::make_shared<ZRProperties>();
    properties->addDateEpochAttributeWithName(secondsSince1970, name);
    trackUserAttributeEvent(std::move(properties));
  });
}

void ZRUserAttributesHandler::setUserAttributeLocationLatitudeLongitudeForKey(double latitude, double longitude,
                                                                              const Value& name) {
  guarded({kFile, "setUserAttributeLocationLatitudeLongitudeForKey"}, "exception : %@", [&] {
    if (!ZRCoreUtils::isSDKEnabled()) return;
    auto properties = std::make_shared<ZRProperties>();
    properties->addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(latitude, longitude), name);
    trackUserAttributeEvent(std::move(properties));
  });
}

void ZRUserAttributesHandler::setUserAttributeUniqueID(const Value& value) {
  guarded({kFile, "setUserAttributeUniqueID"}, "exception : %@", [&] {
    if (!ZRCoreUtils::isSDKEnabled()) {
      logLine("setUserAttributeUniqueID: SDK is Disabled");
      return;
    }
    const std::string uniqueID = trimmedText(value);
    if (!isAValidUserAttributeValueForKey(uniqueID, USER_ATTRIBUTE_UNIQUE_ID)) return;
    if (isRestricted(uniqueID)) {
      logLine("%@ is a restricted value for User Attribute Unique ID, hence its not considered", {uniqueID});
      return;
    }
    setRequestedUniqueID(uniqueID);
    const Value old = userAttributeData()->getUserAttrUniqueID();
    if (!old.isNil() && old.description() != uniqueID) {
      logLine("Force Logout Initiated as USER_ATTRIBUTE_UNIQUE_ID was different");
      forceResetUserWithNewUserAttributeUniqueID(uniqueID);
      return;
    }
    if (setUserAttributeValueWithNameCheckStorage(uniqueID, USER_ATTRIBUTE_UNIQUE_ID, true)) {
      logLine("User Attribute Unique ID tracked with Value %@", {uniqueID});
    }
    keepStoredUniqueIDInStep();
  });
}

void ZRUserAttributesHandler::forceResetUserWithNewUserAttributeUniqueID(const std::string& uniqueID) {
  guarded(kForcedReset, "exception : %@", [&] {
    auto properties = ZRProperties::initWithAttributes({{"type", "forced"}});
    properties->setNonInteractive();
    setRequestedUniqueID(uniqueID);
    storeRequestedUniqueID();
    ZREventsHandler::sharedInstance().trackEventWithPropertiesWithCompletionBlock(
        kEventNameLogout, std::move(properties), [this, reset = std::make_shared<PendingReset>(pendingResets_)] {
          guarded(kForcedReset, "exception : %@", [&] { flushForcedReset(reset); });
        });
  });
}

void ZRUserAttributesHandler::flushForcedReset(const std::shared_ptr<PendingReset>& reset) {
  storeRequestedUniqueID();
  ZREventsHandler& events = ZREventsHandler::sharedInstance();
  events.saveCurrentBatch();
  events.flushEventsInBackgroundAndResetWithCompletionBlock(false, true, [this, reset](bool success, bool) {
    logLine(success ? "User Force logged out" : "User Force logged out : sync unsuccessful");
    reset->end();
    platform::hostServices().scheduler->globalQueue(platform::Priority::Default).async([this] {
      guarded(kForcedReset, "exception : %@", [this] { finishForcedReset(); });
    });
  });
}

void ZRUserAttributesHandler::finishForcedReset() {
  platform::hostServices().notificationCenter->post(kNotificationNameInitNewUser);
  // Not the ID of this reset: another one may be wanted by now, or none.
  if (!setRequestedUniqueIDAgain()) logLine("User Attribute Unique ID wasn't tracked as value was invalid");
  removeStoredUniqueIDUnlessResetPending();
}

bool ZRUserAttributesHandler::setRequestedUniqueIDAgain() {
  const auto uniqueID = requestedUniqueID();
  if (!uniqueID || !setUserAttributeValueWithNameCheckStorage(*uniqueID, USER_ATTRIBUTE_UNIQUE_ID, true)) return false;
  logLine("User Attribute Unique ID tracked with Value %@", {*uniqueID});
  return true;
}

void ZRUserAttributesHandler::applyStoredUniqueID() {
  const Value stored = storedUniqueID();
  if (stored.isNil()) return;
  // Reads a file when it is made: not on the way of every start.
  ZRUserAttributesHandler& handler = sharedHandler();
  if (handler.isResetPending()) return;
  const auto wanted = handler.requestedUniqueID();
  handler.setUserAttributeUniqueID(wanted ? Value(*wanted) : stored);
  handler.removeStoredUniqueIDUnlessResetPending();
}

std::shared_ptr<ZRUserAttributesHandler::PendingReset> ZRUserAttributesHandler::beginReset() {
  forgetRequestedUniqueID();
  return std::make_shared<PendingReset>(pendingResets_);
}

void ZRUserAttributesHandler::endReset(PendingReset& reset) {
  reset.end();
  guarded({kFile, "endReset"}, "exception : %@", [this] {
    (void)setRequestedUniqueIDAgain();
    removeStoredUniqueIDUnlessResetPending();
  });
}

bool ZRUserAttributesHandler::isResetPending() const {
  return pendingResets_ != 0 || ZREventsHandler::sharedInstance().isResetPending();
}

std::optional<std::string> ZRUserAttributesHandler::requestedUniqueID() const {
  return requestedUniqueID_.get();
}

void ZRUserAttributesHandler::setRequestedUniqueID(std::optional<std::string> uniqueID) {
  requestedUniqueID_.set(std::move(uniqueID));
}

void ZRUserAttributesHandler::forgetRequestedUniqueID() {
  const ZRTurn::Scope turn(storedIDTurn_);
  setRequestedUniqueID(std::nullopt);
  if (!storedUniqueID().isNil()) removeFromDefaults(kUserDefaultsKeyModifiedUserAttrUniqueID);
}

void ZRUserAttributesHandler::storeRequestedUniqueID() {
  const ZRTurn::Scope turn(storedIDTurn_);
  if (const auto uniqueID = requestedUniqueID()) keepInDefaults(*uniqueID, kUserDefaultsKeyModifiedUserAttrUniqueID);
}

void ZRUserAttributesHandler::keepStoredUniqueIDInStep() {
  const ZRTurn::Scope turn(storedIDTurn_);
  const Value stored = storedUniqueID();
  // A pending reset will clear the cache and then set the wanted ID.
  if (stored.isNil() ? isResetPending() : stored != Value(requestedUniqueID().value_or(""))) storeRequestedUniqueID();
}

void ZRUserAttributesHandler::removeStoredUniqueIDUnlessResetPending() {
  const Value written = storedUniqueID();
  if (written.isNil() || !ZRCoreUtils::isSDKEnabled() || !ZRConfigDataManager::sharedInstance().isDataTrackingEnabled())
    return;  // The ID is not in effect.
  const std::string uniqueID = trimmedText(written);
  // Its logout event was refused, say by the blacklist.
  if (userAttributeData()->getUserAttrUniqueID().description() != uniqueID && !isRestricted(uniqueID)) return;
  // Write the cache first: a kill after the removal must not lose the ID.
  if (isResetPending() || !writeCache()) return;
  const ZRTurn::Scope turn(storedIDTurn_);
  // Another login may have come meanwhile.
  if (isResetPending() || storedUniqueID() != written) return;
  // If a power loss undoes this, the ID is set again.
  isRemovalEventual_ = true;
  removeFromDefaults(kUserDefaultsKeyModifiedUserAttrUniqueID, platform::Durability::Eventual);
}

void ZRUserAttributesHandler::updateUserAttributeUniqueID(const Value& value) {
  guarded({kFile, "updateUserAttributeUniqueID"}, "exception : %@", [&] {
    // Validity is checked before trimming here, but after trimming in setUserAttributeUniqueID.
    if (!isAValidUserAttributeValueForKey(value, USER_ATTRIBUTE_UNIQUE_ID)) {
      logLine("USER_ATTRIBUTE_UNIQUE_ID coudn't be updated as Value is invalid");
      return;
    }
    const std::string uniqueID = trimmedText(value);
    if (isRestricted(uniqueID)) {
      logLine("%@ is a restricted value for User Attribute Unique ID, hence it couldn't be updated", {uniqueID});
      return;
    }
    const auto data = userAttributeData();
    // "(null)" if no ID is cached.
    const std::string oldText = data->getUserAttrUniqueID().description();
    logLine("Set Alias called for Unique ID with existing value(%@) and new value(%@)", {oldText, uniqueID});
    const bool saved = data->saveAttributeWithValue(std::string(USER_ATTRIBUTE_UNIQUE_ID), uniqueID);
    setRequestedUniqueID(uniqueID);
    if (saved) persistUserAttributesData();
    keepStoredUniqueIDInStep();
    if (oldText == uniqueID) {
      logLine("Set Alias is called with existing value(%@) of USER_ATTRIBUTE_UNIQUE_ID", {oldText});
      if (saved) setUserAttributeValueWithNameCheckStorage(uniqueID, USER_ATTRIBUTE_UNIQUE_ID, false);
    } else if (saved) {
      trackUserAttributeEvent(ZRProperties::initWithAttributes(
          {{USER_ATTRIBUTE_UNIQUE_ID, uniqueID}, {kUserAttributeNameModifiedFrom, oldText}}));
    }
  });
}

void ZRUserAttributesHandler::trackLocale() {
  guarded({kFile, "trackLocale"}, "exception while tracking Locale %@", [this] {
    const platform::LocaleService& locale = *platform::hostServices().locale;
    const auto country = locale.countryCode();
    const auto language = locale.languageCode();
    const auto identifier = locale.localeIdentifier();
    const std::pair<std::string_view, Value> attributes[] = {
        {kLocaleAttrNameCountry, valueOf(country)},
        {kLocaleAttrNameCountryDisplay, country ? valueOf(locale.displayNameForCountryCode(*country)) : Value()},
        {kLocaleAttrNameLanguage, valueOf(language)},
        {kLocaleAttrNameLaguageDisplay, language ? valueOf(locale.displayNameForLanguageCode(*language)) : Value()},
        {kLocaleAttrNameDisplay, identifier ? valueOf(locale.displayNameForIdentifier(*identifier)) : Value()},
        {kLocaleAttrNameIdentifier, valueOf(identifier)},
    };
    for (const auto& [name, value] : attributes) {
      if (setUserAttributeValueWithNameCheckStorage(value, name, true)) {
        ZRDeviceAttributesHandler::sharedInstance().setDeviceAttributeForKey(value, name);
      }
    }
  });
}

std::optional<Dictionary> ZRUserAttributesHandler::getIdentifierDictionary() {
  std::optional<Dictionary> identifiers;
  guarded({kFile, "getIdentifierDictionary"}, "Exception : %@",
          [&] { identifiers = userAttributeData()->getIdentifierDict(); });
  return identifiers;
}

std::vector<ZRUserAttribute> ZRUserAttributesHandler::getUserAttributesArray() const {
  return userAttributeData()->userAttributesArray();
}

void ZRUserAttributesHandler::clearUserAttributesData() {
  guarded({kFile, "clearUserAttributesData"}, "Exception : %@", [this] {
    userAttributeData_.set(std::make_shared<ZRUserAttributeData>());
    (void)writeCache();
  });
}

void ZRUserAttributesHandler::forgetUser() {
  guarded({kFile, "forgetUser"}, "Exception : %@", [this] {
    forgetRequestedUniqueID();
    if (!isRemovalEventual_.exchange(false)) return;
    platform::DefaultsStore& defaults = ZRCoreUtils::getSDKUserDefault();
    defaults.makeLasting();
    (void)defaults.writeChanges();
  });
  clearUserAttributesData();
}

void ZRUserAttributesHandler::clearUserDefaultsOnLogout() {
  guarded({kFile, "clearUserDefaultsOnLogout"}, "Exception : %@", [] {
    platform::DefaultsStore& defaults = ZRCoreUtils::getSDKUserDefault();
    for (const std::string_view key :
         {kUserDefaultsKeySDKUniqueId, kUserDefaultsKeyHasDeviceAddFailed, kUserDefaultsKeyIDFA}) {
      defaults.removeObjectForKey(key);
    }
    (void)defaults.synchronize();
  });
}

void ZRUserAttributesHandler::persistUserAttributesData() {
  logLine("User Attributes Data persisted");
  (void)writeCache();
}

bool ZRUserAttributesHandler::writeCache() {
  return archive_.write(getFilePathForUserAttribute(), platform::Durability::Lasting,
                        [this] { return userAttributeData()->encodeWithCoder(); });
}

std::string ZRUserAttributesHandler::getFilePathForUserAttribute() const {
  return archivePath("ZRUserAttributes");
}

std::string ZRUserAttributesHandler::userAttributePlistFilePath() const {
  return platform::joinPath(ZRCoreUtils::getDocumentsDirectoryPath(), "ZorvaneUserAttributes.plist");
}

bool ZRUserAttributesHandler::checkIfUserAttributePlistExists() const {
  return platform::fileExists(userAttributePlistFilePath());
}

Value ZRUserAttributesHandler::contentOfUserAttributePlist() const {
  Value content;
  guarded({kFile, "contentOfUserAttributePlist"}, "Exception : %@", [&] {
    const auto bytes = platform::readFile(userAttributePlistFilePath(), kMaximumLegacyFileSize);
    if (!bytes) return;
    auto parsed = platform::parsePropertyList(bytes.value());
    if (parsed && parsed.value().isDictionary()) content = std::move(parsed).value();
  });
  return content;
}

Value ZRUserAttributesHandler::getZrvUserUniqueIDFromPlist() const {
  const Value content = contentOfUserAttributePlist();
  return content.isNil() ? Value() : validObjectForKey(*content.asDictionary(), USER_ATTRIBUTE_UNIQUE_ID);
}

Value ZRUserAttributesHandler::getSegAnonymousIDFromPlist() const {
  const Value content = contentOfUserAttributePlist();
  return content.isNil() ? Value() : validObjectForKey(*content.asDictionary(), USER_ATTRIBUTE_SEGMENT_ID);
}

void ZRUserAttributesHandler::userAttributeRemovePlistFile() {
  if (checkIfUserAttributePlistExists() && !platform::removeFile(userAttributePlistFilePath())) {
    logLine("error while removing User Attribute plist file");
  }
}

void ZRUserAttributesHandler::migrateLegacyPlistValuesToNewFile() {
  guarded({kFile, "migrateLegacyPlistValuesToNewFile"}, "Exception : %@", [this] {
    if (!checkIfUserAttributePlistExists()) return;
    const std::pair<std::string_view, Value> identifiers[] = {
        {USER_ATTRIBUTE_UNIQUE_ID, getZrvUserUniqueIDFromPlist()},
        {USER_ATTRIBUTE_SEGMENT_ID, getSegAnonymousIDFromPlist()},
    };
    for (const auto& [name, value] : identifiers) {
      if (!value.isNil()) userAttributeData()->saveAttributeWithValue(std::string(name), value);
    }
    logLine("User Attributes Data persisted");
    if (writeCache()) userAttributeRemovePlistFile();
  });
}

void ZRUserAttributesHandler::applicationInActive(std::string_view /*notification*/) {
  guarded({kFile, "applicationInActive"}, "exception in UIApplicationWillResignActiveNotification is %@",
          [this] { persistUserAttributesData(); });
}

}  // namespace zorvane
