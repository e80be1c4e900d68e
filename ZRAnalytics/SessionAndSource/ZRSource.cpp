#include "ZRAnalytics/SessionAndSource/ZRSource.h"

#include <algorithm>

#include "Platform/Text/URLComponents.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Utils/ZRPlainValue.h"
#include "ZRAnalytics/Utils/ZRReport.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRDictionaryUtils.h"

namespace zorvane {
namespace {

// An empty text under the preferred key wins over the fallback.
Value preferred(const Dictionary& info, std::string_view key, std::string_view fallback) {
  Value value = validObjectForKey(info, key);
  return value.isNil() ? validObjectForKey(info, fallback) : value;
}

constexpr char kFile[] = "ZRSource";

bool hasLength(const Value& value) {
  if (value.isNil()) return false;
  return !value.isString() || !value.asString()->empty();
}

}  // namespace

const ZRSource::Field ZRSource::kFields[8] = {
    {kAnalyticsSourceName, &ZRSource::sourceName_},   {kAnalyticsSourceURL, &ZRSource::sourceURL_},
    {kAnalyticsSourceCampID, &ZRSource::campaignID_}, {kAnalyticsSourceCampName, &ZRSource::campaignName_},
    {kAnalyticsSourceContent, &ZRSource::content_},   {kAnalyticsSourceMediumName, &ZRSource::medium_},
    {kAnalyticsSourceTermName, &ZRSource::term_},     {kAnalyticsSourceExtra, &ZRSource::extras_},
};

Value ZRSource::getSourceNameFromDict(const Dictionary& info) {
  return preferred(info, kAnalyticsUTM_Source, kAnalyticsGeneric_Source);
}
Value ZRSource::getCampaignIDFromDict(const Dictionary& info) {
  return validObjectForKey(info, kAnalyticsUTM_CampaignID);
}
Value ZRSource::getCampaignNameFromDict(const Dictionary& info) {
  return preferred(info, kAnalyticsUTM_CampaignName, kAnalyticsGeneric_CampaignName);
}
Value ZRSource::getMediumFromDict(const Dictionary& info) {
  return preferred(info, kAnalyticsUTM_Medium, kAnalyticsGeneric_Medium);
}
Value ZRSource::getTermFromDict(const Dictionary& info) {
  return preferred(info, kAnalyticsUTM_Term, kAnalyticsGeneric_Term);
}
Value ZRSource::getContentFromDict(const Dictionary& info) {
  return preferred(info, kAnalyticsUTM_Content, kAnalyticsGeneric_Content);
}

Value ZRSource::getExtraDictFromInfoDict(const Value& info) {
  const Dictionary* dictionary = info.asDictionary();
  if (!dictionary) return {};
  const Array whitelist = ZRConfigDataManager::sharedInstance().getSourceExtraKeys();
  if (whitelist.empty()) return {};
  Dictionary extras;
  for (const auto& [key, value] : *dictionary) {
    if (std::find(whitelist.begin(), whitelist.end(), Value(key)) != whitelist.end()) extras.set(key, value);
  }
  return extras.empty() ? Value() : Value(std::move(extras));
}

void ZRSource::setSourceParamsFromInfoDict(const Value& info) {
  const Dictionary* dictionary = info.asDictionary();
  if (!dictionary) return;
  sourceName_ = getSourceNameFromDict(*dictionary);
  campaignID_ = getCampaignIDFromDict(*dictionary);
  campaignName_ = getCampaignNameFromDict(*dictionary);
  medium_ = getMediumFromDict(*dictionary);
  term_ = getTermFromDict(*dictionary);
  content_ = getContentFromDict(*dictionary);
}

void ZRSource::setFromInfoDict(const Value& info) {
  setSourceParamsFromInfoDict(info);
  extras_ = getExtraDictFromInfoDict(info);
}

std::shared_ptr<ZRSource> ZRSource::initSourceWithSourceInfoDict(const Value& info) {
  auto source = std::make_shared<ZRSource>();
  source->setFromInfoDict(info);
  return source;
}

std::shared_ptr<ZRSource> ZRSource::initSourceWithPushPayload(const Value& payload) {
  return initSourceWithSourceInfoDict(payload);
}

std::shared_ptr<ZRSource> ZRSource::initZrvSourceWithPushPayload(const Value& payload) {
  auto source = initSourceWithSourceInfoDict(payload);
  const Dictionary* dictionary = payload.asDictionary();
  if (dictionary && !source->isValidSource()) {
    source->setFromInfoDict(validObjectForKeyPath(*dictionary, "app_extra.screenData"));
  }
  return source;
}

std::shared_ptr<ZRSource> ZRSource::initSourceWithURL(const Value& url) {
  auto source = std::make_shared<ZRSource>();
  std::string text;
  if (url.isNil() || !guarded({kFile, "initSourceWithURL"}, "exception is %@", [&] { text = url.description(); })) {
    return source;
  }
  const auto items = platform::queryItemsOfURL(text);
  if (!items.empty()) {
    // Only the last item of a name counts. If that has no value, the name is left out.
    Dictionary lastItems;
    for (const auto& item : items) lastItems.set(item.name, item.value ? Value(*item.value) : Value(null));
    Dictionary parameters;
    for (const auto& [name, value] : lastItems) {
      if (!value.isNull()) parameters.set(name, value);
    }
    source->setFromInfoDict(parameters);
  }
  source->sourceURL_ = text;
  return source;
}

std::shared_ptr<ZRSource> ZRSource::initWithCoder(const platform::ArchivedObject& coder) {
  auto source = std::make_shared<ZRSource>();
  for (const Field& field : kFields) source.get()->*field.value = coder.decodeObject(field.key);
  return source;
}

std::shared_ptr<platform::ArchivedObject> ZRSource::encodeWithCoder() const {
  auto coder = std::make_shared<platform::ArchivedObject>(std::string(kClassName));
  for (const Field& field : kFields) {
    coder->encodeObject(field.key, withoutObjects(this->*field.value, {kFile, "encodeWithCoder"}));
  }
  return coder;
}

bool ZRSource::isValidSource() const {
  return hasLength(sourceName_) || hasLength(medium_) || hasLength(term_) || hasLength(campaignID_) ||
         hasLength(campaignName_) || hasLength(content_) || !extras_.isNil();
}

bool ZRSource::isEqual(const ZRSource* other) const {
  if (!other) return false;
  bool isEqual = false;
  guarded({kFile, "isEqual"}, "exception is %@", [&] {
    isEqual = std::all_of(std::begin(kFields), std::end(kFields), [&](const Field& field) {
      return field.key == kAnalyticsSourceURL || this->*field.value == other->*field.value;
    });
  });
  return isEqual;
}

Dictionary ZRSource::getSourceInfoDict() const {
  Dictionary info;
  for (const Field& field : kFields) info.setObjectNilHandledForKey(this->*field.value, field.key);
  return info;
}

}  // namespace zorvane
