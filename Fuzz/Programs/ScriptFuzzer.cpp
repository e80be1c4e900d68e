// zrhost's script: its lines, and every reading of every field of a line.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Check.h"
#include "Host/Actions.h"
#include "Host/Options.h"
#include "Host/Script.h"
#include "Platform/Formats/JSON.h"

using namespace zorvane;
using host::ScriptLine;

namespace {

// A script that is read from memory.
int descriptorOf(std::string_view content) {
  static const int memory = memfd_create("script", MFD_CLOEXEC);
  fuzz::check(memory >= 0 && ftruncate(memory, 0) == 0, "there is memory for the script");
  fuzz::check(pwrite(memory, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()),
              "which holds it");
  lseek(memory, 0, SEEK_SET);
  return fcntl(memory, F_DUPFD_CLOEXEC, 3);
}

// Whether the reading gives something; what it must not do is to fail in any other way.
template <typename Reading>
bool gives(Reading reading) {
  try {
    reading();
    return true;
  } catch (const host::NotAnAction& reason) {
    fuzz::check(reason.what()[0] != '\0', "a refusal has its reason");
    return false;
  }
}

void checkField(const ScriptLine& line, const std::string& field, const platform::Value& value) {
  fuzz::check(line.has(field) && line.value(field) == value, "a field can be had");
  fuzz::check(gives([&] { (void)line.requiredFlag(field); }) == (value.asBool() != nullptr), "a flag is a boolean");
  fuzz::check(gives([&] { (void)line.requiredText(field); }) == value.isString(), "text is text");
  fuzz::check(gives([&] { (void)line.requiredInteger(field); }) == (value.asInteger() != nullptr), "2.0 is no integer");
  fuzz::check(gives([&] { (void)line.requiredNumber(field); }) == host::isPlainNumber(value), "true is no number");
  fuzz::check(gives([&] { (void)line.array(field); }) == value.isArray(), "an array is an array");
  fuzz::check(gives([&] { (void)line.object(field); }) == value.isDictionary(), "an object is an object");
  gives([&] { (void)ScriptLine::locationOf(value, field); });
  if (value.isString()) (void)host::parseTime(*value.asString());
}

void checkLine(std::int64_t number, std::string_view text) {
  if (ScriptLine::isSkipped(text)) return;
  const auto parsed = platform::parseJSON(text);
  gives([&] {
    const ScriptLine line(number, text);
    fuzz::check(parsed && parsed.value().isDictionary(), "an action is an object");
    fuzz::check(line.number() == number, "of its line");
    for (const auto& [field, value] : *parsed.value().asDictionary()) checkField(line, field, value);
    fuzz::check(host::actionNamed(line.action()).name == line.action(), "an action is found by its name");
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view content = fuzz::textOf(data, size);
  host::LineReader reader(descriptorOf(content));
  std::string read;
  std::int64_t number = 0;
  while (const auto line = reader.next()) {
    fuzz::check(line->find('\n') == std::string_view::npos, "a line is one line");
    read.append(*line) += '\n';
    checkLine(++number, *line);
  }
  if (!content.empty() && content.back() != '\n') read.pop_back();
  fuzz::check(read == content, "the lines are the script");
  return 0;
}
