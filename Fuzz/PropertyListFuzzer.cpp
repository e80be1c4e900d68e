#include "Check.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"

using namespace zorvane;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const auto parsed = platform::parsePropertyList(fuzz::textOf(data, size));
  if (!parsed) return 0;
  // The first writing replaces what has no form (null); from then on nothing may change.
  const auto written = platform::parsePropertyList(platform::binaryPropertyList(parsed.value()));
  fuzz::check(static_cast<bool>(written), "what is written can be read");
  const auto again = platform::parsePropertyList(platform::binaryPropertyList(written.value()));
  fuzz::check(static_cast<bool>(again), "what is written again can be read");
  fuzz::check(fuzz::same(written.value(), again.value()), "what is read back is the same");
  fuzz::check(static_cast<bool>(platform::parseJSON(platform::jsonText(parsed.value()))), "it can be written as JSON");
  return 0;
}
