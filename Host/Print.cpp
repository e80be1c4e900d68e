// The action "print".

#include <dirent.h>

#include <set>
#include <string>

#include "Host/Actions.h"
#include "Platform/Files/DefaultsStore.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZRConfigDataManager.h"
#include "ZorvaneCore/ZRCoreUtils.h"

namespace zorvane::host {
namespace {

Value session() {
  const auto dictionary = ZRSessionManager::sharedSessionManager().getCurrentSessionInfoDict();
  return dictionary ? Value(*dictionary) : Value(null);
}

Value sources() {
  return ZRSessionManager::sharedSessionManager().getCurrentSessionSourceInfoArray();
}

Value identifiers() {
  const auto dictionary = ZRUserAttributesHandler::sharedHandler().getIdentifierDictionary();
  return dictionary ? Value(*dictionary) : Value(null);
}

Value userAttributes() {
  Array all;
  for (const ZRUserAttribute& attribute : ZRUserAttributesHandler::sharedHandler().getUserAttributesArray()) {
    const auto lastTracked = attribute.lastTracked();
    all.push_back(Dictionary{{"name", attribute.attributeName()},
                             {"value", attribute.attributeValue().isNil() ? Value(null) : attribute.attributeValue()},
                             {"lastTracked", lastTracked ? Value(*lastTracked) : Value(null)}});
  }
  return all;
}

// Read from the file, not from the module's memory.
Value batches() {
  ZRBatchFile file(platform::joinPath(ZRCoreUtils::getDocumentsDirectoryPath(), "ZorvaneBatchEvents.plist"));
  if (!file.exists()) return null;
  const auto stored = file.load();
  if (!stored) return null;
  Dictionary all;
  for (const ZRStoredBatch& batch : *stored) all.setObjectNilHandledForKey(batch.value(), batch.id());
  return all;
}

Value currentBatch() {
  const auto events = ZREventsHandler::sharedInstance().viewsInfoArray();
  return events ? Value(*events) : Value(null);
}

// The application groups that have a defaults file, and the configured one.
std::set<std::string> groupNames() {
  constexpr std::string_view kExtension = ".plist";
  std::set<std::string> names;
  const std::string directory = platform::joinPath(platform::hostServices().directories.defaults, "groups");
  if (DIR* const listing = ::opendir(directory.c_str())) {
    while (const dirent* entry = ::readdir(listing)) {
      std::string_view name = entry->d_name;
      if (name.starts_with('.') || !name.ends_with(kExtension)) continue;
      name.remove_suffix(kExtension.size());
      names.emplace(name);
    }
    ::closedir(listing);
  }
  if (const auto configured = ZRConfigDataManager::sharedInstance().getAppGroupID()) names.insert(*configured);
  return names;
}

Value defaults() {
  Dictionary groups;
  for (const std::string& name : groupNames()) {
    Dictionary content = platform::groupDefaults(name).dictionaryRepresentation();
    if (!content.empty()) groups.set(name, std::move(content));
  }
  return Dictionary{{"standard", platform::standardDefaults().dictionaryRepresentation()},
                    {"sdk", platform::sdkDefaults().dictionaryRepresentation()},
                    {"groups", std::move(groups)}};
}

Value config() {
  Dictionary effective = effectiveConfiguration();
  const auto locale = platform::hostServices().locale->localeIdentifier();
  effective.set("locale", locale ? Value(*locale) : Value(null));
  return effective;
}

struct Printed {
  std::string_view what;
  Value (*value)();
};

constexpr Printed kPrinted[] = {
    {"session", session},         {"sources", sources},
    {"identifiers", identifiers}, {"userAttributes", userAttributes},
    {"batches", batches},         {"currentBatch", currentBatch},
    {"defaults", defaults},       {"config", config},
};

}  // namespace

void playPrint(Runtime& runtime, const ScriptLine& line) {
  const std::string what = line.requiredText("what");
  for (const Printed& printed : kPrinted) {
    if (printed.what != what) continue;
    if (!line.async()) runtime.settle();
    runtime.output().write({{"line", line.number()}, {"value", printed.value()}});
    return;
  }
  throw NotAnAction("\"what\": there is no \"" + what + "\" to print");
}

}  // namespace zorvane::host
