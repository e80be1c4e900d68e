#include "Check.h"
#include "Platform/Formats/JSON.h"

using namespace zorvane;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const auto parsed = platform::parseJSON(fuzz::textOf(data, size));
  if (!parsed) return 0;
  const std::string text = platform::jsonText(parsed.value());
  const auto again = platform::parseJSON(text);
  fuzz::check(static_cast<bool>(again), "written JSON can be read");
  fuzz::check(again.value() == parsed.value(), "JSON read back gives an equal value");
  fuzz::check(platform::jsonText(again.value()) == text, "a value read back is written the same");
  return 0;
}
