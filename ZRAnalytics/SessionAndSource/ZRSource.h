// The traffic source of a session: a deep link, a push notification or another module.
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "Platform/Export.h"
#include "Platform/Formats/KeyedArchive.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Not thread-safe: set its fields before you hand it over, and do not change it afterwards. Values are taken as found.
//
// Input keys: "utm_source", "utm_campaign", "utm_medium", "utm_term", "utm_content", each with the name without "utm_"
// as fallback; for the campaign identifier "utm_id" without a fallback.
class ZR_PUBLIC ZRSource {
 public:
  // In archives.
  static constexpr std::string_view kClassName = "ZRSource";

  // From the query of a URL. sourceURL is the whole text, even if it does not parse. Nil gives an empty source, and so
  // does an object without a text.
  static std::shared_ptr<ZRSource> initSourceWithURL(const Value& url);
  // From a push payload's top level. Nil gives an empty source.
  static std::shared_ptr<ZRSource> initSourceWithPushPayload(const Value& payload);
  // The same for the service's own campaigns: if the top level gives no valid source, "app_extra.screenData" is read.
  static std::shared_ptr<ZRSource> initZrvSourceWithPushPayload(const Value& payload);
  // From a dictionary of the input keys.
  static std::shared_ptr<ZRSource> initSourceWithSourceInfoDict(const Value& info);
  // The archive keys are those of getSourceInfoDict.
  static std::shared_ptr<ZRSource> initWithCoder(const platform::ArchivedObject& coder);
  // Host objects are encoded as their plain values; one that throws is reported and becomes "".
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  // Sets the six named fields, to nil if a key is missing. If info is no dictionary, nothing changes.
  void setSourceParamsFromInfoDict(const Value& info);
  // The value under the first of the input keys; nil if both are missing.
  static Value getSourceNameFromDict(const Dictionary& info);
  static Value getCampaignIDFromDict(const Dictionary& info);
  static Value getCampaignNameFromDict(const Dictionary& info);
  static Value getMediumFromDict(const Dictionary& info);
  static Value getTermFromDict(const Dictionary& info);
  static Value getContentFromDict(const Dictionary& info);
  // The pairs whose keys the remote configuration lists; nil if there are none.
  static Value getExtraDictFromInfoDict(const Value& info);

  // Whether a named field is present and not empty, or there are extras.
  bool isValidSource() const;
  // Whether all fields but the URL are equal. False for null and after an error.
  bool isEqual(const ZRSource* other) const;
  // The wire form: "source", "medium", "campaign_name", "campaign_id", "term", "source_url", "content", "extras", each
  // if present.
  Dictionary getSourceInfoDict() const;

  // Nil if absent. The extras are a dictionary, the others usually text.
  const Value& sourceName() const { return sourceName_; }
  void setSourceName(Value value) { sourceName_ = std::move(value); }
  const Value& campaignID() const { return campaignID_; }
  void setCampaignID(Value value) { campaignID_ = std::move(value); }
  const Value& campaignName() const { return campaignName_; }
  void setCampaignName(Value value) { campaignName_ = std::move(value); }
  const Value& medium() const { return medium_; }
  void setMedium(Value value) { medium_ = std::move(value); }
  const Value& term() const { return term_; }
  void setTerm(Value value) { term_ = std::move(value); }
  const Value& content() const { return content_; }
  void setContent(Value value) { content_ = std::move(value); }
  const Value& sourceURL() const { return sourceURL_; }
  void setSourceURL(Value value) { sourceURL_ = std::move(value); }
  const Value& extras() const { return extras_; }
  void setExtras(Value value) { extras_ = std::move(value); }

 private:
  struct Field {
    std::string_view key;
    Value ZRSource::*value;
  };
  static const Field kFields[8];

  void setFromInfoDict(const Value& info);

  Value sourceName_;
  Value campaignID_;
  Value campaignName_;
  Value medium_;
  Value term_;
  Value content_;
  Value sourceURL_;
  Value extras_;
};

}  // namespace zorvane
