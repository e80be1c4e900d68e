// zrcollector's requests: the first byte says the service and the signature that comes along, the rest is the body.
#include <memory>

#include "Check.h"
#include "Collector/Checks.h"
#include "Collector/Store.h"

using namespace zorvane;
using collector::json;

namespace {

constexpr int kRequestsAStore = 500;

// The signature of a sender that does it right.
std::optional<std::string> signatureFor(std::string_view body) {
  const json parsed = json::parse(body, nullptr, false);
  // What is too deep cannot be asked for a signature.
  return parsed.is_object() ? collector::signatureOf(parsed) : std::nullopt;
}

// The answer's status, as the server finds it.
int judge(collector::RequestRow& row, std::string_view text, const std::optional<std::string>& sent, json& body) {
  try {
    body = collector::parseBody(text);
    row.bid = collector::textAt(body, {"meta", "bid"});
    collector::checkShape(row.service, body);
  } catch (const collector::BadRequest& refusal) {
    fuzz::check(refusal.what()[0] != '\0', "a refusal has its reason");
    row.error = refusal.what();
    return 400;
  }
  row.signature = collector::checkSignature(body, sent);
  const bool isBad = row.signature == collector::Signature::Missing || row.signature == collector::Signature::Wrong;
  return isBad ? 401 : 200;
}

void checkStored(collector::Store& store, const collector::RequestRow& row, const json& body) {
  const json before = store.summary();
  const bool stored = store.addAccepted(row, body);
  const json after = store.summary();
  const auto grown = [&](const char* what) {
    return after[what].get<std::int64_t>() - before[what].get<std::int64_t>();
  };
  fuzz::check(stored || row.bid, "only a batch that was accepted before is not stored");
  fuzz::check(grown("duplicates") == (stored ? 0 : 1), "and counts as a repetition");
  const bool isReport = row.service == collector::Service::Report;
  fuzz::check(grown("batches") == (stored && isReport ? 1 : 0), "a report is a batch");
  const auto events = isReport && stored && body.contains("viewsInfo") ? body["viewsInfo"].size() : 0;
  fuzz::check(grown("events") == static_cast<std::int64_t>(events), "with its events");
  if (row.bid) fuzz::check(!store.addAccepted(row, body), "and is stored once");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static std::unique_ptr<collector::Store> store;
  static int requests = 0;
  if (size == 0) return 0;
  if (requests++ % kRequestsAStore == 0) store = std::make_unique<collector::Store>("");

  const std::string_view text = fuzz::textOf(data + 1, size - 1);
  collector::RequestRow row;
  row.service = data[0] % 2 == 0 ? collector::Service::Report : collector::Service::Device;
  row.appID = "APP";
  row.bytes = text.size();
  std::optional<std::string> sent;
  const bool isWrong = data[0] / 2 % 4 == 1;
  if (isWrong) sent = "0123456789ABCDEF0123456789ABCDEF01234567";
  if (data[0] / 2 % 4 > 1) sent = signatureFor(text);

  json body;
  row.status = judge(row, text, sent, body);
  fuzz::check(row.status != 200 || !isWrong, "a wrong signature is not accepted");
  if (row.status == 200) {
    checkStored(*store, row, body);
  } else {
    store->addRefused(row);
  }
  return 0;
}
