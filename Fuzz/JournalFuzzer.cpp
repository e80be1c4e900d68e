// The journal of events: an input is 32 bytes of its header (salt, cleared, armed, stored), then its records.
#include <algorithm>
#include <cstring>

#include "Check.h"
#include "Module.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Files/SystemCalls.h"
#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/Journal/ZREventJournal.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZRAnalytics/Journal/ZRJournalFormat.h"
#include "ZRAnalytics/Utils/ZRArchiving.h"

using namespace zorvane;
using namespace zorvane::journal;

namespace {

void startModule() {
  static platform::SystemCalls calls = platform::kRealSystemCalls;
  calls.fsync = [](int) { return 0; };
  platform::setSystemCalls(&calls);
  fuzz::startModule();
}

// A journal's file of the input. Most records get their right checksum, which nobody could find by chance.
std::string fileOf(std::string_view input) {
  Header header{kMagic, 0, 0, 0, 0, 0};
  std::string file(kHeaderBytes, '\0');
  const std::string_view fields = input.substr(0, 32);
  input.remove_prefix(fields.size());
  file += input;
  file.resize((file.size() / 4096 + 2) * 4096);
  header.bytes = file.size();
  std::memcpy(file.data(), &header, sizeof header);
  std::memcpy(file.data() + 8, fields.data(), std::min<std::size_t>(fields.size(), 8));
  if (fields.size() == 32) std::memcpy(file.data() + 24, fields.data() + 8, 24);
  std::uint64_t salt = 0;
  std::memcpy(&salt, file.data() + 8, sizeof salt);
  for (std::size_t at = kHeaderBytes; at + sizeof(Record) <= file.size(); at += kUnit) {
    Record record;
    std::memcpy(&record, file.data() + at, sizeof record);
    if (record.bytes > file.size() - at - sizeof record || record.checksum % 8 == 7) continue;
    if (record.state != kCalled && record.state != kRecorded) continue;
    record.checksum = checksumOf(salt, record, std::string_view(file).substr(at + sizeof record, record.bytes));
    if (record.recordedSum % 8 != 7) record.recordedSum = recordedSumOf(salt, record);
    if (record.storeSum % 8 != 7) record.storeSum = storeSumOf(salt, record, record.store);
    std::memcpy(file.data() + at, &record, sizeof record);
  }
  return file;
}

// Also that both have the same kinds, and the same order of keys.
bool isIdentical(const Value& left, const Value& right) {
  if (left.kind() != right.kind()) return false;
  if (const Array* const array = left.asArray()) {
    return std::equal(array->begin(), array->end(), right.asArray()->begin(), right.asArray()->end(), isIdentical);
  }
  if (const Dictionary* const dictionary = left.asDictionary()) {
    return std::equal(dictionary->begin(), dictionary->end(), right.asDictionary()->begin(),
                      right.asDictionary()->end(), [](const Dictionary::Entry& one, const Dictionary::Entry& other) {
                        return one.key == other.key && isIdentical(one.value, other.value);
                      });
  }
  return fuzz::same(left, right);
}

// An event comes back as it was called.
void checkEvent(const Value& name, const ZRProperties* properties) {
  Bytes written;
  appendEvent(name, properties, written);
  const auto read = readEvent(written.view());
  const ZRProperties expected = properties ? *properties : ZRProperties();
  fuzz::check(read && fuzz::same(read->name, name) &&
                  fuzz::same(read->properties.getAttributesDict(), expected.getAttributesDict()) &&
                  fuzz::same(read->properties.getDateTimeAttributesArray(), expected.getDateTimeAttributesArray()) &&
                  fuzz::same(read->properties.getLocationAttributesArray(), expected.getLocationAttributesArray()) &&
                  read->properties.isNonInteractiveEvent() == expected.isNonInteractiveEvent(),
              "an event that was written comes back equal");
  fuzz::check(!written.isExact() || (isIdentical(name, read->name) &&
                                     isIdentical(expected.getAttributesDict(), read->properties.getAttributesDict())),
              "an exact one comes back identical");
}

// Makes an event of the value through the operations of a host.
void checkCall(const Value& value) {
  checkEvent(value, nullptr);
  ZRProperties properties;
  if (value.isDictionary()) properties = *ZRProperties::initWithAttributes(*value.asDictionary());
  properties.addAttributeWithName(value, value.description());
  properties.addDateEpochAttributeWithName(static_cast<double>(value.description().size()), value);
  properties.addLocationAttributeWithName(ZRGeoLocation::initWithLatitudeAndLongitude(1, 2), value);
  if (value.isString()) properties.setNonInteractive();
  checkEvent("Called", &properties);
}

void checkValue(std::string_view bytes) {
  const auto value = takeValue(bytes);
  if (!value) return;
  Bytes written;
  appendValue(*value, written);
  std::string_view rest = written.view();
  const auto again = takeValue(rest);
  fuzz::check(again && rest.empty() && fuzz::same(*value, *again),
              "a value that was read can be written and read again");
  checkCall(*value);
}

void checkContents(const std::string& file) {
  const Contents contents = readContents(file);
  fuzz::check(contents.header.has_value(), "the header is read");
  std::uint64_t behind = 0;
  for (const Found& event : contents.events) {
    fuzz::check(event.record.position >= behind && event.record.position < contents.end, "events are in order");
    behind = event.record.position;
    fuzz::check(event.record.position >= contents.header->cleared, "no event was cleared");
    if (const auto read = readEvent(event.payload)) checkEvent(read->name, &read->properties);
  }
}

// The next launch: whatever it saves can be sent, and the journal after it is empty.
void checkRecovery(const std::string& file) {
  const std::string path = archivePath("ZREventJournal");
  fuzz::check(static_cast<bool>(platform::replaceFileAtomically(path, file)), "the journal is written");
  ZRBatchFile batches(fuzz::temporaryFolder() + "/batches");
  makeEventJournal({.bytes = 64u << 10})->open(batches);
  const auto saved = batches.load();
  fuzz::check(saved.has_value(), "the batch file can be read");
  for (const ZRStoredBatch& batch : *saved) fuzz::check(batch.isBatch() && batch.eventCount() > 0, "a batch is one");
  const auto left = platform::readFile(path, 1u << 20);
  fuzz::check(left && readContents(left.value()).events.empty(), "nothing is left in the journal");
  fuzz::check(static_cast<bool>(batches.removeAll()), "the batch file is removed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const bool started = (startModule(), true);
  (void)started;
  const std::string_view input = fuzz::textOf(data, size);
  checkValue(input);
  const std::string file = fileOf(input);
  checkContents(file);
  checkRecovery(file);
  return 0;
}
