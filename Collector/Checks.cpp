#include "Collector/Checks.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

namespace zorvane::collector {

namespace {

using Path = std::string;

[[noreturn]] void refuse(const Path& path, const char* what) {
  throw BadRequest(path + " " + what);
}

const json* member(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

const json& need(const json& object, const char* key, const Path& path) {
  const json* found = member(object, key);
  if (!found) refuse(path + key, "is missing");
  return *found;
}

void needObject(const json& value, const Path& path) {
  if (!value.is_object()) refuse(path, "is not an object");
}

void needText(const json& value, const Path& path) {
  if (!value.is_string()) refuse(path, "is not text");
}

void textIfPresent(const json& object, const char* key, const Path& path) {
  if (const json* value = member(object, key)) needText(*value, path + key);
}

// The section must be an array of objects with one member each.
template <typename Check>
void checkPairs(const json& section, const Path& path, Check check) {
  if (!section.is_array()) refuse(path, "is not an array");
  for (std::size_t i = 0; i < section.size(); ++i) {
    const Path here = path + "[" + std::to_string(i) + "]";
    if (!section[i].is_object() || section[i].size() != 1) refuse(here, "is not an object of one pair");
    check(section[i].begin().value(), here);
  }
}

void checkEvent(const json& event, const Path& at) {
  needObject(event, at);
  const Path path = at + ".";
  needText(need(event, "EVENT_ACTION", path), path + "EVENT_ACTION");
  textIfPresent(event, "EVENT_G_TIME", path);
  textIfPresent(event, "EVENT_L_TIME", path);
  if (const json* attributes = member(event, "EVENT_ATTRS")) needObject(*attributes, path + "EVENT_ATTRS");
  if (const json* flag = member(event, "N_I_E"); flag && !(flag->is_number() && *flag == 1)) {
    refuse(path + "N_I_E", "is not the number 1");
  }
  if (const json* custom = member(event, "EVENT_ATTRS_CUST")) {
    needObject(*custom, path + "EVENT_ATTRS_CUST");
    if (const json* section = member(*custom, "timestamp")) {
      checkPairs(*section, path + "EVENT_ATTRS_CUST.timestamp", [](const json& value, const Path& here) {
        // The client sends null for a date that is not a finite number.
        if (!value.is_number() && !value.is_null()) refuse(here, "is not a number");
      });
    }
    if (const json* section = member(*custom, "location"))
      checkPairs(*section, path + "EVENT_ATTRS_CUST.location", needText);
  }
}

void checkMeta(const json& meta) {
  needObject(meta, "meta");
  needText(need(meta, "bid", "meta."), "meta.bid");
  needText(need(meta, "request_time", "meta."), "meta.request_time");
  if (const json* preferences = member(meta, "dev_pref")) {
    needObject(*preferences, "meta.dev_pref");
    for (const auto& [key, value] : preferences->items()) {
      if (!value.is_boolean()) refuse("meta.dev_pref." + key, "is not a boolean");
    }
  }
  if (const json* session = member(meta, "session")) {
    needObject(*session, "meta.session");
    textIfPresent(*session, "session_id", "meta.session.");
    textIfPresent(*session, "start_time", "meta.session.");
  }
  if (const json* sources = member(meta, "source")) {
    if (!sources->is_array()) refuse("meta.source", "is not an array");
    for (std::size_t i = 0; i < sources->size(); ++i) {
      needObject((*sources)[i], "meta.source[" + std::to_string(i) + "]");
    }
  }
  textIfPresent(meta, "dev_add_res", "meta.");
}

void checkQueryParams(const json& params) {
  needObject(params, "query_params");
  const json* id = member(params, "unique_id");
  if (id && !id->is_string() && !id->is_number()) refuse("query_params.unique_id", "is neither text nor a number");
}

void checkReport(const json& body) {
  const json& count = need(body, "viewsCount", "");
  if (!count.is_number_integer()) refuse("viewsCount", "is not an integer");
  std::size_t events = 0;
  if (const json* list = member(body, "viewsInfo")) {
    if (!list->is_array()) refuse("viewsInfo", "is not an array");
    events = list->size();
    for (std::size_t i = 0; i < events; ++i) checkEvent((*list)[i], "viewsInfo[" + std::to_string(i) + "]");
  }
  if (count != events) {
    throw BadRequest("viewsCount is " + count.dump() + ", but viewsInfo holds " + std::to_string(events));
  }
  if (const json* identifiers = member(body, "identifiers")) needObject(*identifiers, "identifiers");
  if (const json* meta = member(body, "meta")) checkMeta(*meta);
  if (const json* params = member(body, "query_params")) checkQueryParams(*params);
}

void checkDevice(const json& body) {
  textIfPresent(body, "IDFV", "");
  textIfPresent(body, "ADVERTISING_IDENTIFIER", "");
  const json& meta = need(body, "meta", "");
  checkMeta(meta);
  need(meta, "dev_pref", "meta.");
  checkQueryParams(need(body, "query_params", ""));
}

// Bounds the depth while it builds the value: dump() recurses, and would exhaust the stack on deeper values.
// json::parse with a callback would do, too, but takes quadratic time on an array of objects.
class BoundedParser : public nlohmann::detail::json_sax_dom_parser<json> {
  using Base = nlohmann::detail::json_sax_dom_parser<json>;

 public:
  explicit BoundedParser(json& value) : Base(value) {}
  bool start_object(std::size_t size) { return open() && Base::start_object(size); }
  bool start_array(std::size_t size) { return open() && Base::start_array(size); }
  bool end_object() { return --depth_, Base::end_object(); }
  bool end_array() { return --depth_, Base::end_array(); }

 private:
  bool open() {
    if (++depth_ > kMaxBodyDepth) {
      throw BadRequest("nested deeper than " + std::to_string(kMaxBodyDepth) + " levels");
    }
    return true;
  }
  int depth_ = 0;
};

// A number as the client signs it: the shortest text that reads back as the same, without a point for a whole one, with
// an exponent from 1e17 on and below 1e-4.
std::string signedNumber(const json& number) {
  if (!number.is_number_float()) return number.dump();
  const double value = number.get<double>();
  char text[64];
  char* end = std::to_chars(text, std::end(text), value, std::chars_format::scientific).ptr;
  int exponent = 0;
  const char* digits = std::find(text, end, 'e') + 1;
  std::from_chars(digits + (*digits == '+' ? 1 : 0), end, exponent);
  if (exponent >= -4 && exponent <= 16) {
    end = std::to_chars(text, std::end(text), value, std::chars_format::fixed).ptr;
  }
  return {text, end};
}

}  // namespace

json parseBody(std::string_view body) {
  try {
    json parsed;
    BoundedParser parser(parsed);
    json::sax_parse(body, &parser);
    return parsed;
  } catch (const json::parse_error& error) {
    const std::string what = error.what();  // "[json.exception.parse_error.101] parse error at …"
    throw BadRequest("not JSON: " + what.substr(what.find("] ") + 2));
  } catch (const json::out_of_range& error) {
    throw BadRequest(std::string("not JSON: ") + error.what());
  }
}

void checkShape(Service service, const json& body) {
  if (!body.is_object()) throw BadRequest("the body is not an object");
  service == Service::Report ? checkReport(body) : checkDevice(body);
}

std::optional<std::string> textAt(const json& body, std::initializer_list<const char*> path) {
  const json* value = &body;
  for (const char* key : path) {
    if (!value->is_object()) return std::nullopt;
    value = member(*value, key);
    if (!value) return std::nullopt;
  }
  if (value->is_string()) return value->get<std::string>();
  if (value->is_number()) return signedNumber(*value);
  return std::nullopt;
}

std::string hexDigest(const char* algorithm, const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  const EVP_MD* const type = EVP_get_digestbyname(algorithm);
  if (!type || EVP_Digest(text.data(), text.size(), digest.data(), &size, type, nullptr) != 1) {
    throw std::runtime_error(std::string(algorithm) + " is not available");
  }
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    hex += "0123456789ABCDEF"[digest[i] >> 4];
    hex += "0123456789ABCDEF"[digest[i] & 15];
  }
  return hex;
}

std::optional<std::string> signatureOf(const json& body) {
  const auto bid = textAt(body, {"meta", "bid"});
  const auto time = textAt(body, {"meta", "request_time"});
  const auto id = textAt(body, {"query_params", "unique_id"});
  if (!bid || !time || !id) return std::nullopt;
  return hexDigest("SHA1", *bid + *time + *id);
}

Signature checkSignature(const json& body, const std::optional<std::string>& sent) {
  const auto computed = signatureOf(body);
  if (!computed) return sent ? Signature::Wrong : Signature::None;
  if (!sent) return Signature::Missing;
  return *sent == *computed ? Signature::Good : Signature::Wrong;
}

}  // namespace zorvane::collector
