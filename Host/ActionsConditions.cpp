// The action that asks whether a condition holds for an event.

#include "Host/Actions.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"

namespace zorvane::host {

void playCondition(Runtime& runtime, const ScriptLine& line) {
  const Dictionary* dictionary = line.object("condition");
  if (!dictionary) throw NotAnAction("\"condition\" is missing");
  const auto properties = propertiesOf(line);
  const auto condition = ZREventCondition::initWithDictionary(*dictionary);
  const Value event = line.value("event");
  // The record as trigger delegates receive it; empty for an event without a name.
  Dictionary record;
  if (!event.isNil()) {
    record = ZREventsHandler::sharedInstance().getEventDictForEventAndProperties(event, properties.get());
  }
  const bool holds = condition->checkIfAttributeConditionSatisfiedForEventAndAttributes(event, record);
  runtime.output().write({{"line", line.number()}, {"value", holds}});
}

}  // namespace zorvane::host
