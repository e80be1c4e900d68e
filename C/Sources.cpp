#include <utility>

#include "C/Handles.h"
#include "C/Module.h"

namespace zorvane::c {
namespace {

zr_source* newSource(std::shared_ptr<const ZRSource> source) {
  return new zr_source{std::move(source)};
}

}  // namespace
}  // namespace zorvane::c

using namespace zorvane;
using namespace zorvane::c;

zr_status zr_process_url(const char* url, size_t length) {
  return callModule(
      [&](const ModuleCall& module) { module->processURL(URL{std::string(textOf(url, length, "url"))}); });
}

zr_source* zr_source_from_url(const char* url, size_t length) {
  return guardedPointer(
      [&] { return newSource(ZRSource::initSourceWithURL(URL{std::string(textOf(url, length, "url"))})); });
}

zr_source* zr_source_from_push(const zr_value* payload) {
  return guardedPointer(
      [&] { return newSource(ZRSource::initSourceWithPushPayload(mapArgument(payload, "payload"))); });
}

zr_source* zr_source_from_service_push(const zr_value* payload) {
  return guardedPointer(
      [&] { return newSource(ZRSource::initZrvSourceWithPushPayload(mapArgument(payload, "payload"))); });
}

zr_source* zr_source_from_map(const zr_value* map) {
  return guardedPointer([&] { return newSource(ZRSource::initSourceWithSourceInfoDict(mapArgument(map, "map"))); });
}

int zr_source_is_valid(const zr_source* source) {
  return source && source->source->isValidSource() ? 1 : 0;
}

void zr_source_free(zr_source* source) {
  delete source;
}

zr_status zr_update_sources(const zr_source* const* sources, size_t count) {
  return callModule([&](const ModuleCall& module) {
    if (count > 0) requireArgument(sources, "sources");
    ZRSourceArray array;
    for (std::size_t i = 0; i < count; ++i) {
      requireArgument(sources[i], "a source");
      array.push_back(sources[i]->source);
    }
    module->updateSourcesForCurrentSession(std::move(array));
  });
}
