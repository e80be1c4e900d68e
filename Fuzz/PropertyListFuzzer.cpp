#include "Check.h"
#include "Platform/Formats/JSON.h"
#include "Platform/Formats/PropertyList.h"

using namespace zorvane;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const auto parsed = platform::parsePropertyList(fuzz::textOf(data, size));
  if (!parsed) return 0;
  // The first write replaces what a property list cannot hold (null). After that nothing may change.
  const auto written = platform::parsePropertyList(platform::binaryPropertyList(parsed.value()));
  fuzz::check(static_cast<bool>(written), "a written file can be read");
  const auto again = platform::parsePropertyList(platform::binaryPropertyList(written.value()));
  fuzz::check(static_cast<bool>(again), "a file written again can be read");
  fuzz::check(fuzz::same(written.value(), again.value()), "a file read back gives the same value");
  fuzz::check(static_cast<bool>(platform::parseJSON(platform::jsonText(parsed.value()))),
              "the value can be written as JSON");
  return 0;
}
