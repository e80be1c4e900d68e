#include <utility>

#include "C/Handles.h"
#include "C/Module.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZorvaneCore/CoreSetup.h"

namespace zorvane::c {
namespace {

Value valueOfAttribute(const zr_attribute& attribute) {
  switch (attribute.kind) {
    case ZR_KIND_NULL:
      return platform::null;
    case ZR_KIND_BOOL:
      return attribute.integer != 0;
    case ZR_KIND_INTEGER:
      return attribute.integer;
    case ZR_KIND_DOUBLE:
      return attribute.number;
    case ZR_KIND_STRING:
      return textOf(attribute.text, attribute.text_length, "text");
    case ZR_KIND_BYTES:
      return dataOf(attribute.text, attribute.text_length);
    case ZR_KIND_DATE:
      return Date{attribute.number};
    case ZR_KIND_URL:
      return URL{std::string(textOf(attribute.text, attribute.text_length, "text"))};
    case ZR_KIND_LIST:
    case ZR_KIND_MAP:
      require(zr_value_kind(attribute.value) == attribute.kind, "the value is of another kind than the attribute");
      return *valueOf(attribute.value);
    case ZR_KIND_LOCATION:
      return ZRGeoLocation::initWithLatitudeAndLongitude(attribute.number, attribute.longitude);
    case ZR_KIND_JSON:
      return valueOfJSON(attribute.text, attribute.text_length);
    default:
      fail(ZR_ERROR_ARGUMENT, "the attribute's kind is unknown");
  }
}

std::shared_ptr<const ZRProperties> propertiesOf(const zr_attribute* attributes, std::size_t count,
                                                 std::size_t attributeSize) {
  if (count == 0) return nullptr;
  requireArgument(attributes, "attributes");
  require(attributeSize >= sizeof(zr_attribute), "attribute_size is too small");
  Dictionary plain;
  plain.reserve(count);
  const char* at = reinterpret_cast<const char*>(attributes);
  for (std::size_t i = 0; i < count; ++i, at += attributeSize) {
    const auto& attribute = *reinterpret_cast<const zr_attribute*>(at);
    const std::string_view name = textOf(attribute.name, attribute.name_length, "name");
    require(!name.empty(), "the name is empty");
    plain.set(name, valueOfAttribute(attribute));
  }
  return ZRProperties::initWithAttributes(std::move(plain));
}

class Trigger final : public ZREventTriggerDelegate {
 public:
  Trigger(zr_trigger trigger, HostDataPointer data) : trigger_(trigger), data_(std::move(data)) {}

  void eventTrackedWithNameAndEventAttr(const Value& eventName, Dictionary& eventAttr) override {
    const platform::Text* const name = eventName.asString();
    const HostCall call(data_);
    if (!name || !call) return;
    Value record(std::move(eventAttr));
    trigger_(call.data(), name->c_str(), name->size(), handleOf(&record));
    eventAttr = std::move(record.mutableDictionary());
  }

 private:
  const zr_trigger trigger_;
  const HostDataPointer data_;
};

// The module holds its delegates weakly. Never destroyed.
struct Triggers {
  platform::Mutex mutex;
  std::shared_ptr<Trigger> slots[2] ZR_GUARDED_BY(mutex);
};
Triggers& triggers() {
  static Triggers& instance = *new Triggers;
  return instance;
}

}  // namespace
}  // namespace zorvane::c

using namespace zorvane;
using namespace zorvane::c;

zr_status zr_track(const char* name, size_t name_length, const zr_properties* properties) {
  return callModule([&](const ModuleCall& module) {
    module->trackEventWithProperties(textOf(name, name_length, "name"), sharedProperties(properties));
  });
}

zr_status zr_track_attributes(const char* name, size_t name_length, const zr_attribute* attributes, size_t count,
                              size_t attribute_size) {
  return callModule([&](const ModuleCall& module) {
    const std::string_view text = textOf(name, name_length, "name");
    module->trackEventWithProperties(text, propertiesOf(attributes, count, attribute_size));
  });
}

zr_status zr_track_json(const char* name, size_t name_length, const char* json, size_t length) {
  return callModule([&](const ModuleCall& module) {
    const std::string_view text = textOf(name, name_length, "name");
    module->trackEventWithProperties(text, ZRProperties::initWithAttributes(withNames(dictionaryOfJSON(json, length))));
  });
}

zr_status zr_track_builder(const char* name, size_t name_length, const zr_builder* builder) {
  return callModule([&](const ModuleCall& module) {
    module->trackEventBuilderPayload(textOf(name, name_length, "name"), builder ? builder->builder : nullptr);
  });
}

zr_status zr_flush(zr_completion completion, void* data, zr_release release) {
  return guarded([&] {
    const HostDataPointer hostData = HostData::make(data, release);
    ModuleCall()->flushWithCompletionBlock(completionOf(completion, hostData));
  });
}

zr_status zr_disable_periodic_flush(void) {
  return callModule([](const ModuleCall& module) { module->disablePeriodicFlush(); });
}

zr_status zr_set_flush_interval(int64_t seconds) {
  return callModule([&](const ModuleCall& module) { module->setFlushInterval(seconds); });
}

zr_condition* zr_condition_from_json(const char* json, size_t length) {
  return guardedPointer(
      [&] { return new zr_condition{ZREventCondition::initWithDictionary(dictionaryOfJSON(json, length))}; });
}

void zr_condition_free(zr_condition* condition) {
  delete condition;
}

zr_status zr_condition_check(const zr_condition* condition, const char* name, size_t name_length,
                             const zr_value* record, int* satisfied) {
  return guarded([&] {
    requireArgument(condition, "condition");
    requireArgument(satisfied, "satisfied");
    const Dictionary& attributes = mapArgument(record, "record");
    const Value event = textOf(name, name_length, "name");
    requireModule();
    const ZREventCondition& asked = *condition->condition;
    *satisfied = asked.checkIfAttributeConditionSatisfiedForEventAndAttributes(event, attributes) ? 1 : 0;
  });
}

zr_value* zr_event_record(const char* name, size_t name_length, const zr_properties* properties) {
  return guardedPointer([&] {
    const Value event = textOf(name, name_length, "name");
    requireModule();
    const ZRProperties* const attributes = properties ? properties->properties.get() : nullptr;
    return handleOf(new Value(ZREventsHandler::sharedInstance().getEventDictForEventAndProperties(event, attributes)));
  });
}

zr_status zr_set_trigger(zr_trigger_slot slot, zr_trigger trigger, void* data, zr_release release) {
  return guarded([&] {
    HostDataPointer hostData = HostData::make(data, release);
    require(slot == ZR_TRIGGER_IN_APP || slot == ZR_TRIGGER_MESSAGING, "the slot is unknown");
    const ModuleCall module;
    // The earlier delegate is destroyed after the lock is released: that releases the host's data.
    std::shared_ptr<Trigger> delegate = trigger ? std::make_shared<Trigger>(trigger, std::move(hostData)) : nullptr;
    platform::MutexLock lock(triggers().mutex);
    if (slot == ZR_TRIGGER_IN_APP) {
      module->setInappTriggerDelegate(delegate);
    } else {
      module->setMessagingTriggerDelegate(delegate);
    }
    triggers().slots[slot].swap(delegate);
  });
}
