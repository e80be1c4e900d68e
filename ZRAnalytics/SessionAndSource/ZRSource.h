// Where a visit to the application came from: a deep link, a push notification, another module.
#pragma once

#include <memory>
#include <string_view>

#include "Platform/Formats/KeyedArchive.h"
#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// Built once and not changed afterwards. Values are taken as they are found, usually text; absent fields are nil.
//
// Input keys: "utm_source", "utm_campaign", "utm_medium", "utm_term", "utm_content", each with the plain word
// ("source", "campaign", ...) as fallback, and "utm_id" alone for the campaign identifier.
class ZRSource {
 public:
  static constexpr std::string_view kClassName = "ZRSource";

  // From the query of a URL text. The whole text is kept as sourceURL, also when it does not parse.
  static std::shared_ptr<ZRSource> initSourceWithURL(const Value& url);
  // From a push payload's top level; nil is an empty source.
  static std::shared_ptr<ZRSource> initSourceWithPushPayload(const Value& payload);
  // The same for the platform's own campaigns: what gives no valid source is read from "app_extra.screenData".
  static std::shared_ptr<ZRSource> initZrvSourceWithPushPayload(const Value& payload);
  static std::shared_ptr<ZRSource> initSourceWithSourceInfoDict(const Value& info);
  // Archive keys are those of the wire form.
  static std::shared_ptr<ZRSource> initWithCoder(const platform::ArchivedObject& coder);
  std::shared_ptr<platform::ArchivedObject> encodeWithCoder() const;

  // Sets the six named fields, to nil where a key is missing. No dictionary: nothing changes.
  void setSourceParamsFromInfoDict(const Value& info);
  static Value getSourceNameFromDict(const Dictionary& info);
  static Value getCampaignIDFromDict(const Dictionary& info);
  static Value getCampaignNameFromDict(const Dictionary& info);
  static Value getMediumFromDict(const Dictionary& info);
  static Value getTermFromDict(const Dictionary& info);
  static Value getContentFromDict(const Dictionary& info);
  // The pairs whose keys the remote configuration names; nil when there is none.
  static Value getExtraDictFromInfoDict(const Value& info);

  // One of the named fields is there and not empty, or there are extras.
  bool isValidSource() const;
  // All but the URL are equal.
  bool isEqual(const ZRSource* other) const;
  // The wire form: "source", "medium", "campaign_name", "campaign_id", "term", "source_url", "content", "extras", each
  // where present.
  Dictionary getSourceInfoDict() const;

  const Value& sourceName() const { return sourceName_; }
  const Value& campaignID() const { return campaignID_; }
  const Value& campaignName() const { return campaignName_; }
  const Value& medium() const { return medium_; }
  const Value& term() const { return term_; }
  const Value& content() const { return content_; }
  const Value& sourceURL() const { return sourceURL_; }
  const Value& extras() const { return extras_; }

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
