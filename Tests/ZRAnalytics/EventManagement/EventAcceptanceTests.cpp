#include <stdexcept>

#include "ZRAnalytics/EventManagement/EventPipelineTest.h"
#include "ZRAnalytics/Utils/ZRGeoLocation.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZorvaneCore/ZRDateUtils.h"

namespace zorvane::testing {
namespace {

using EventAcceptanceTest = EventPipelineTest;

TEST_F(EventAcceptanceTest, RecordHasOnlyTheSectionsOfItsEvent) {
  startWithSession();
  const Dictionary bare{{"EVENT_ACTION", "E"},
                        {"EVENT_G_TIME", "2026-11-21T10:00:00.000Z"},
                        {"EVENT_L_TIME", ZRDateUtils::getLocalTime()}};
  const auto with = [&](const Dictionary& more) {
    Dictionary record = bare;
    for (const auto& [key, value] : more) record.set(key, value);
    return record;
  };
  EXPECT_EQ(events().getEventDictForEventAndProperties("E", nullptr), bare);

  ZRProperties properties;
  EXPECT_EQ(events().getEventDictForEventAndProperties("E", &properties), bare);

  const auto place = ZRGeoLocation::initWithLatitudeAndLongitude(48.5, -16.25);
  properties.addLocationAttributeWithName(place, "place");
  const Value places = Array{Dictionary{{"place", "48.500000,-16.250000"}}};
  EXPECT_EQ(events().getEventDictForEventAndProperties("E", &properties),
            with({{"EVENT_ATTRS_CUST", Dictionary{{"location", places}}}}));

  properties.addDateEpochAttributeWithName(1.5, "at");
  properties.addAttributeWithName(3, "count");
  properties.setNonInteractive();
  const Dictionary record = events().getEventDictForEventAndProperties("E", &properties);
  const Value times = Array{Dictionary{{"at", 1500.0}}};
  EXPECT_EQ(record, with({{"EVENT_ATTRS", Dictionary{{"count", 3}}},
                          {"EVENT_ATTRS_CUST", Dictionary{{"timestamp", times}, {"location", places}}},
                          {"N_I_E", 1}}));
  EXPECT_NE(record.objectForKey("N_I_E").asInteger(), nullptr) << "a number, not a boolean";
}

TEST_F(EventAcceptanceTest, NobodyChangesTheAttributesOfARecordedEvent) {
  startWithSession();
  const auto kept = ZRProperties::initWithAttributes({{"count", 1}});
  events().trackEventWithProperties("E", kept);
  events().trackEventWithProperties("E", ZRProperties::initWithAttributes({{"count", 1}}));
  settle();
  kept->addAttributeWithName(2, "count");
  const auto attributes = [] {
    std::vector<Value> found;
    const Array records = events().viewsInfoArray().value();
    for (const Value& record : records) found.push_back(record.asDictionary()->objectForKey("EVENT_ATTRS"));
    return found;
  };
  for (Value& copy : attributes()) copy.mutableDictionary().set("count", 3);
  EXPECT_EQ(attributes(), std::vector<Value>(2, Dictionary{{"count", 1}}));
}

TEST_F(EventAcceptanceTest, EventsOfOneThreadAreRecordedInOrderBeforeTheirCompletions) {
  startWithSession();
  std::vector<std::size_t> recorded;
  for (const char* name : {"first", "second", "third"}) {
    events().trackEventWithPropertiesWithCompletionBlock(
        name, nullptr, [&] { recorded.push_back(events().viewsInfoArray()->size()); });
  }
  EXPECT_FALSE(events().viewsInfoArray());
  settle();
  EXPECT_EQ(currentNames(), (Names{"first", "second", "third"}));
  EXPECT_EQ(recorded, (std::vector<std::size_t>{1, 2, 3}));
}

TEST_F(EventAcceptanceTest, NameThatIsNotTextIsDroppedWithoutCompletion) {
  startWithSession();
  const Array names{5, 1.5, true, null, Value(), Array{"E"}, Dictionary{{"E", 1}}};
  bool called = false;
  for (const Value& name : names) {
    events().trackEventWithPropertiesWithCompletionBlock(name, nullptr, [&] { called = true; });
  }
  settle();
  EXPECT_FALSE(called);
  EXPECT_FALSE(events().viewsInfoArray());
  EXPECT_EQ(log_->count("While tracking events, the name of the event has to be a NSString type"), names.size());
}

TEST_F(EventAcceptanceTest, OptOutLeavesWhitelistedEventsUnlessBlacklisted) {
  startWithSession(
      {{"whitelisted_events", Array{"remote", "both"}}, {"blacklisted_events", Array{"both", "UPDATE", "bad"}}});
  EXPECT_TRUE(events().shouldEventBeTrackedWithName("any"));
  EXPECT_FALSE(events().shouldEventBeTrackedWithName("bad"));
  EXPECT_TRUE(log_->has("Blacklisted Event: bad"));

  ZRConfigDataManager::sharedInstance().setDataTrackingOptedOut(true);
  events().updateSDKWhiteListedEvents({});
  events().updateSDKWhiteListedEvents({"own", 5, "own"});
  track({"any", "remote", "own", "both", "UPDATE", "EVENT_ACTION_IOS_SESSION_START", "EVENT_ACTION_IOS_SESSION_END",
         "ZRV_APP_EXIT", "ZRV_LOGOUT", "INSTALL", "REINSTALL", "EVENT_ACTION_USER_ATTRIBUTE",
         "EVENT_ACTION_DEVICE_ATTRIBUTE", "install"});
  EXPECT_EQ(currentNames(),
            (Names{"remote", "own", "EVENT_ACTION_IOS_SESSION_START", "EVENT_ACTION_IOS_SESSION_END", "ZRV_APP_EXIT",
                   "ZRV_LOGOUT", "INSTALL", "REINSTALL", "EVENT_ACTION_USER_ATTRIBUTE"}));
  for (const char* name : {"any", "install", "EVENT_ACTION_DEVICE_ATTRIBUTE"}) {
    EXPECT_EQ(log_->count(std::string(name) + " not tracked as Data Tracking is opted out"), 1u) << name;
  }
  EXPECT_TRUE(log_->has("Blacklisted Event: both"));
  EXPECT_TRUE(log_->has("Blacklisted Event: UPDATE"));
}

TEST_F(EventAcceptanceTest, DisabledSDKCompletesImmediatelyAndRecordsNothing) {
  startWithSession();
  setSDKEnabled(false);
  int called = 0;
  events().trackEventWithPropertiesWithCompletionBlock("E", nullptr, [&] { ++called; });
  EXPECT_EQ(called, 1);
  settle();
  EXPECT_EQ(called, 1);
  EXPECT_FALSE(events().viewsInfoArray());
  EXPECT_TRUE(log_->messages().empty());
}

TEST_F(EventAcceptanceTest, FullBatchIsSentAndSavedEventsAreNotCounted) {
  startWithSession({{"event_batch_count", 5}});
  events().eventsBatchCountTreshold();
  updateRemoteConfiguration({{"event_batch_count", 1}});  // takes effect at the next launch
  save({"a", "b", "c", "d"});
  track({"e", "f", "g", "h"});
  EXPECT_TRUE(service_->requests().empty());
  track({"i"});
  EXPECT_EQ(sentNames(), (Batches{{"a", "b", "c", "d"}, {"e", "f", "g", "h", "i"}}));
  EXPECT_FALSE(events().viewsInfoArray());
}

TEST_F(EventAcceptanceTest, ThresholdIsThirtyWhenTheConfigurationSaysZero) {
  startWithSession({{"event_batch_count", 0}});
  track(Names(29, "E"));
  EXPECT_TRUE(service_->requests().empty());
  track({"E"});
  ASSERT_EQ(service_->requests().size(), 1u);
  EXPECT_EQ(reportedEvents().size(), 30u);
}

TEST_F(EventAcceptanceTest, NegativeThresholdNeverFlushes) {
  startWithSession({{"event_batch_count", -1}});
  track(Names(100, "E"));
  EXPECT_TRUE(service_->requests().empty());
  EXPECT_EQ(currentNames().size(), 100u);
}

TEST_F(EventAcceptanceTest, InstantFlushEventSendsTheCurrentBatch) {
  startWithSession({{"instant_flush_events", Array{"pay"}}});
  track({"look", "pay", "after"});
  EXPECT_EQ(sentNames(), (Batches{{"look", "pay"}}));
  EXPECT_EQ(currentNames(), (Names{"after"}));
}

// Records each call, then runs the work.
struct Trigger final : ZREventTriggerDelegate {
  std::function<void(const Value&, Dictionary&)> work;
  std::vector<Dictionary> seen;
  void eventTrackedWithNameAndEventAttr(const Value& name, Dictionary& record) override {
    seen.push_back(record);
    if (work) work(name, record);
  }
};

TEST_F(EventAcceptanceTest, TriggersShareOneCopyAndCannotChangeTheRecord) {
  startWithSession();
  const auto inapp = std::make_shared<Trigger>();
  const auto messaging = std::make_shared<Trigger>();
  bool storedBefore = true;
  inapp->work = [&](const Value& name, Dictionary& record) {
    storedBefore = events().viewsInfoArray().has_value();
    EXPECT_EQ(name, Value("E"));
    record.set("mark", 1);
    throw std::runtime_error("trigger");
  };
  ZRAnalytics::sharedInstance().setInappTriggerDelegate(inapp);
  ZRAnalytics::sharedInstance().setMessagingTriggerDelegate(messaging);
  track({"E"});
  ASSERT_EQ(messaging->seen.size(), 1u);
  EXPECT_EQ(messaging->seen[0].objectForKey("mark"), Value(1)) << "the first delegate's change, though it threw";
  EXPECT_FALSE(inapp->seen[0].contains("mark"));
  EXPECT_FALSE(storedBefore);
  ASSERT_EQ(currentNames(), (Names{"E"}));
  EXPECT_EQ(*events().viewsInfoArray()->front().asDictionary(), inapp->seen[0]);
  EXPECT_EQ(log_->errors().size(), 1u);
}

TEST_F(EventAcceptanceTest, DestroyedOrRemovedTriggerIsNotCalled) {
  startWithSession();
  ZRAnalytics& facade = ZRAnalytics::sharedInstance();
  const auto inapp = std::make_shared<Trigger>();
  auto messaging = std::make_shared<Trigger>();
  inapp->work = [&](const Value&, Dictionary&) { facade.setMessagingTriggerDelegate({}); };
  facade.setInappTriggerDelegate(inapp);
  facade.setMessagingTriggerDelegate(messaging);
  track({"E"});
  EXPECT_EQ(inapp->seen.size(), 1u);
  EXPECT_TRUE(messaging->seen.empty()) << "taken away by the first";

  facade.setMessagingTriggerDelegate(messaging);
  const std::weak_ptr<Trigger> held = messaging;
  messaging.reset();
  EXPECT_TRUE(held.expired()) << "the facade must not keep a delegate alive";
  EXPECT_EQ(facade.messagingTriggerDelegate(), nullptr);
  track({"E"});
  EXPECT_EQ(currentNames(), (Names{"E", "E"}));
}

TEST_F(EventAcceptanceTest, EventOfANewSessionIsRecordedAfterTheOldSessionIsSent) {
  startWithSession();
  ZRSessionManager& sessions = ZRSessionManager::sharedSessionManager();
  sessions.updateSourcesForCurrentSession(ZRSourceArray{ZRSource::initSourceWithURL("a:?source=s")});
  const Value oldSession = sessions.getCurrentSessionInfoDict()->objectForKey("session_id");
  // Before the first event creates the facade, whose sync at this notification would send the event.
  center_->post(platform::kDidEnterBackgroundNotification);
  track({"old"});
  clock_->advance(1801);
  auto silent = std::make_shared<ZRProperties>();
  silent->setNonInteractive();
  events().trackEventWithProperties("silent", silent);
  events().trackEvent("opener");
  settle();
  ASSERT_EQ(sentNames(), (Batches{{"old"}}));
  const Dictionary meta = *service_->requests()[0].body.asDictionary()->objectForKey("meta").asDictionary();
  EXPECT_EQ(meta.objectForKey("session").asDictionary()->objectForKey("session_id"), oldSession);
  EXPECT_EQ(meta.objectForKey("source"), (Array{Dictionary{{"source", "s"}, {"source_url", "a:?source=s"}}}));
  EXPECT_EQ(currentNames(), (Names{"silent", "opener"}));
  EXPECT_NE(sessions.getCurrentSessionInfoDict()->objectForKey("session_id"), oldSession);
}

}  // namespace
}  // namespace zorvane::testing
