#include "Collector/Advice.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace zorvane::collector {

namespace {

constexpr const char* kSignatureRule =
    " It is the SHA-1 of meta.bid, meta.request_time and query_params.unique_id, written one after the other without "
    "anything between them, as 40 upper-case hexadecimal digits.";

std::string textIn(const json& object, std::string_view key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

// Names of headers are compared without regard to case.
std::string sentSignature(const json& headers) {
  const auto lower = [](std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
  };
  if (!headers.is_object()) return "";
  for (const auto& [name, value] : headers.items()) {
    if (lower(name) == lower(kSignatureHeader) && value.is_string()) return value.get<std::string>();
  }
  return "";
}

std::string signatureAdvice(const json& row, const std::string& signature) {
  const std::string expected = textIn(row, "expected");
  if (signature == "missing") {
    return "The request has no header ZRV-REQUEST-ID." + std::string(kSignatureRule) +
           " Send \"ZRV-REQUEST-ID: " + expected + "\".";
  }
  if (expected.empty()) {
    return "The request has the header ZRV-REQUEST-ID, but its body lacks what is signed: meta.bid, meta.request_time "
           "or "
           "query_params.unique_id. Send all three, or leave the header out.";
  }
  std::string sent = sentSignature(row.value("headers", json::object()));
  std::ranges::transform(sent, sent.begin(),
                         [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 32) : c; });
  if (sent == expected)
    return "The signature is right but for its case. Send its digits in upper case: " + expected + ".";
  return "The header ZRV-REQUEST-ID is not the signature of this body." + std::string(kSignatureRule) +
         " For this body that is " + expected +
         ". Sign again whenever one of the three changes, for example when a request is repeated with another time.";
}

std::string shapeAdvice(const std::string& error) {
  // By the end of the error, which begins with the place.
  constexpr std::pair<std::string_view, const char*> kAdvice[] = {
      {" is missing", "Add it: the body must have it."},
      {" is not text", "Send it as a JSON string, in quotes."},
      {" is not an object", "Send it as a JSON object, in braces."},
      {" is not an array", "Send it as a JSON array, in square brackets."},
      {" is not an integer", "Send it as a number without a point."},
      {" is not a number", "Send milliseconds since 1970 as a number, not as text."},
      {" is not the number 1", "Send \"N_I_E\": 1 for a non-interactive event, and leave it out for any other."},
      {" is not an object of one pair", "Send one object for each attribute, such as {\"name\": value}."},
      {" is not a boolean", "Send true or false."},
      {" is neither text nor a number", "Send the device's identifier as a JSON string or a number."},
  };
  for (const auto& [end, advice] : kAdvice) {
    if (error.ends_with(end)) return advice;
  }
  if (error.starts_with("viewsCount is ")) return "Set viewsCount to the number of events in viewsInfo.";
  if (error.starts_with("nested deeper")) return "Flatten the attributes.";
  if (error.starts_with("not JSON: the body is a form")) {
    return "Send the JSON itself as the body, with Content-Type: application/json.";
  }
  if (error.starts_with("not JSON")) {
    return "The body must be one JSON object in UTF-8. The error names the first place that is not.";
  }
  if (error.starts_with("the body did not arrive")) {
    return "The connection ended or became too slow before the whole body had come. Check Content-Length, and the "
           "client's timeouts.";
  }
  return "Compare the body with the documented form.";
}

}  // namespace

std::string adviceFor(const json& row) {
  const std::string injected = textIn(row, "injected");
  if (injected == "failed") {
    return "This request failed on purpose: the collector runs with --fail-every. The client should keep the batch and "
           "send it again.";
  }
  if (injected == "dropped") {
    return "The connection was closed on purpose, without a response: the collector runs with --drop-every. The client "
           "should send the batch again, with the same identifier.";
  }
  const std::string error = textIn(row, "error");
  switch (row.value("status", 0)) {
    case 200:
      return row.value("duplicate", 0) == 1
                 ? "A batch with this identifier was accepted before, so nothing was stored. "
                   "Normal when a response was lost; otherwise give each batch a new bid."
                 : "";
    case 400:
      return shapeAdvice(error);
    case 401:
      return signatureAdvice(row, textIn(row, "signature"));
    case 404:
      return "Post to /v1/report/APP for events, or to /v1/device/APP to register a device. APP is the application "
             "identifier.";
    case 413:
      return "Send fewer events in a batch: a body has at most 16 MiB.";
    case 503:
      return "Many large bodies came at once. The client should send this one again after the seconds in Retry-After.";
    default:
      return "";
  }
}

}  // namespace zorvane::collector
