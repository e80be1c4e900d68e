// The actions of a script.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "Host/Runtime.h"
#include "Host/Script.h"

namespace zorvane::host {

struct Action {
  std::string_view name;
  // The names of its fields, separated by spaces. Every action also has "do" and "async".
  std::string_view keys;
  // For --help: the fields with their values if the names do not say enough, and what happens.
  std::string_view fields;
  std::string_view effect;
  // The fields of an example, as JSON without the braces; empty if it has none.
  std::string_view example;
  // Does not wait for what its calls start. If the line's fields are wrong, throws NotAnAction before doing anything.
  void (*play)(Runtime& runtime, const ScriptLine& line);
};

// All actions, in the order of --help.
std::span<const Action> allActions();
// Throws NotAnAction for an unknown name.
const Action& actionNamed(std::string_view name);

// Its fields with their values, for --help; empty if it has none.
std::string helpOf(const Action& action);
// A line that a script could have.
std::string exampleOf(const Action& action);

// The actions of ActionsEvents.cpp, ActionsConditions.cpp, ActionsLinks.cpp, ActionsUser.cpp and Print.cpp.
void playTrack(Runtime& runtime, const ScriptLine& line);
void playOpenURL(Runtime& runtime, const ScriptLine& line);
void playSources(Runtime& runtime, const ScriptLine& line);
void playCondition(Runtime& runtime, const ScriptLine& line);
void playSwizzle(Runtime& runtime, const ScriptLine& line);
void playUnswizzle(Runtime& runtime, const ScriptLine& line);
void playAttribute(Runtime& runtime, const ScriptLine& line);
void playUniqueID(Runtime& runtime, const ScriptLine& line);
void playAlias(Runtime& runtime, const ScriptLine& line);
void playPushPreference(Runtime& runtime, const ScriptLine& line);
void playPushConsent(Runtime& runtime, const ScriptLine& line);
void playDeviceAttribute(Runtime& runtime, const ScriptLine& line);
void playDeviceModel(Runtime& runtime, const ScriptLine& line);
void playLocale(Runtime& runtime, const ScriptLine& line);
void playAdvertisingID(Runtime& runtime, const ScriptLine& line);
void playReset(Runtime& runtime, const ScriptLine& line);
void playOptOut(Runtime& runtime, const ScriptLine& line);
void playOptOutEvents(Runtime& runtime, const ScriptLine& line);
void playAppStatus(Runtime& runtime, const ScriptLine& line);
void playSDKVersion(Runtime& runtime, const ScriptLine& line);
void playPushToken(Runtime& runtime, const ScriptLine& line);
void playUpdateDevice(Runtime& runtime, const ScriptLine& line);
void playPrint(Runtime& runtime, const ScriptLine& line);

// Prints a completion line: the operation, the action's line number and the results.
void printCompletion(Runtime& runtime, std::string_view operation, std::int64_t line,
                     platform::Dictionary results = {});

// An event's properties, from the line's fields; null if the line has none of them.
std::shared_ptr<const ZRProperties> propertiesOf(const ScriptLine& line);

}  // namespace zorvane::host
