// The action "print".

#include <dirent.h>

#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <set>
#include <string>

#include "Host/Actions.h"
#include "Host/BatchText.h"
#include "Platform/Files/DefaultsStore.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/EventManagement/ZREventsHandler.h"
#include "ZRAnalytics/SessionAndSource/ZRSessionManager.h"
#include "ZRAnalytics/UserAttributes/ZRUserAttributesHandler.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZRConfigDataManager.h"

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

Value currentBatch() {
  const auto events = ZREventsHandler::sharedInstance().viewsInfoArray();
  return events ? Value(*events) : Value(null);
}

// The name of the group whose file has that name: "%2f" is a slash.
std::string groupOfFileName(std::string_view fileName) {
  std::string group;
  for (std::size_t i = 0; i < fileName.size(); ++i) {
    std::uint8_t byte = 0;
    const char* const digits = fileName.data() + i + 1;
    if (fileName[i] == '%' && i + 2 < fileName.size() &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      group += static_cast<char>(byte);
      i += 2;
    } else {
      group += fileName[i];
    }
  }
  return group;
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
      names.insert(groupOfFileName(name));
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
    {"session", session},
    {"sources", sources},
    {"identifiers", identifiers},
    {"userAttributes", userAttributes},
    {"currentBatch", currentBatch},
    {"defaults", defaults},
    {"config", config},
};

void printBatches(Runtime& runtime, std::int64_t line) {
  std::size_t leftOut = 0;
  runtime.output().writePieces([&](const LineFile::Put& put) {
    put("{\"line\":" + std::to_string(line) + ",\"value\":");
    leftOut = writeBatches(batchFilePath(), put);
    put("}");
  });
  if (leftOut == 0) return;
  std::fprintf(stderr,
               "zrhost: line %" PRId64 ": values of the batch file too large or malformed, printed as null: %zu\n",
               line, leftOut);
}

}  // namespace

void playPrint(Runtime& runtime, const ScriptLine& line) {
  const std::string what = line.requiredText("what");
  if (what == "batches") {
    if (!line.async()) runtime.settle();
    printBatches(runtime, line.number());
    return;
  }
  for (const Printed& printed : kPrinted) {
    if (printed.what != what) continue;
    if (!line.async()) runtime.settle();
    runtime.output().write({{"line", line.number()}, {"value", printed.value()}});
    return;
  }
  throw NotAnAction("\"what\": there is no \"" + what + "\" to print");
}

}  // namespace zorvane::host
