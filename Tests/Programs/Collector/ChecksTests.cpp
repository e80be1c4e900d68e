#include "Collector/Checks.h"

#include <gtest/gtest.h>

#include <cctype>

#include "Collector/Advice.h"

namespace zorvane::collector {
namespace {

std::string refusalOf(Service service, const json& body) {
  try {
    checkShape(service, body);
    return "";
  } catch (const BadRequest& refusal) {
    return refusal.what();
  }
}

json report() {
  return json::parse(R"({
    "viewsInfo": [{"EVENT_ACTION": "Bought", "EVENT_ATTRS": {"price": 10.5}, "EVENT_G_TIME": "2026-11-21T10:00:00.000Z",
                   "EVENT_L_TIME": "2026-11-21T11:00:00.000+01:00", "N_I_E": 1,
                   "EVENT_ATTRS_CUST": {"timestamp": [{"at": 1.5}, {"at": null}], "location": [{"here": "1.000000,2.000000"}]}}],
    "viewsCount": 1, "identifiers": {"zrv_user_id": "u"},
    "meta": {"bid": "1-A", "request_time": "2026-11-21T10:00:01.000Z", "dev_pref": {"push_p": false},
             "session": {"session_id": "S", "start_time": "T"}, "source": [{"source": "mail"}], "dev_add_res": "failure"},
    "query_params": {"unique_id": "id"}})");
}

json device() {
  return json::parse(R"({"IDFV": "v", "meta": {"dev_pref": {"e_t_p": true, "push_p": true, "in_app_p": true},
    "request_time": "t", "bid": "b"}, "query_params": {"unique_id": "id"}})");
}

TEST(Checks, DocumentedBodiesPass) {
  EXPECT_EQ(refusalOf(Service::Report, report()), "");
  EXPECT_EQ(refusalOf(Service::Device, device()), "");
  EXPECT_EQ(refusalOf(Service::Report, {{"viewsCount", 0}}), "");
}

TEST(Checks, ARefusalNamesThePlace) {
  // Each case sets the value at a pointer of a valid body; "-" removes it.
  struct Case {
    Service service;
    const char* pointer;
    const char* value;
    const char* refusal;
  };
  const Case cases[] = {
      {Service::Report, "", "[]", "the body is not an object"},
      {Service::Report, "/viewsCount", "-", "viewsCount is missing"},
      {Service::Report, "/viewsCount", "1.0", "viewsCount is not an integer"},
      {Service::Report, "/viewsCount", "2", "viewsCount is 2, but viewsInfo holds 1"},
      {Service::Report, "/viewsInfo", "{}", "viewsInfo is not an array"},
      {Service::Report, "/viewsInfo/0", "\"e\"", "viewsInfo[0] is not an object"},
      {Service::Report, "/viewsInfo/0/EVENT_ACTION", "-", "viewsInfo[0].EVENT_ACTION is missing"},
      {Service::Report, "/viewsInfo/0/EVENT_ACTION", "7", "viewsInfo[0].EVENT_ACTION is not text"},
      {Service::Report, "/viewsInfo/0/EVENT_G_TIME", "7", "viewsInfo[0].EVENT_G_TIME is not text"},
      {Service::Report, "/viewsInfo/0/EVENT_ATTRS", "[]", "viewsInfo[0].EVENT_ATTRS is not an object"},
      {Service::Report, "/viewsInfo/0/N_I_E", "0", "viewsInfo[0].N_I_E is not the number 1"},
      {Service::Report, "/viewsInfo/0/N_I_E", "true", "viewsInfo[0].N_I_E is not the number 1"},
      {Service::Report, "/viewsInfo/0/EVENT_ATTRS_CUST/timestamp/0", R"({"a": 1, "b": 2})",
       "viewsInfo[0].EVENT_ATTRS_CUST.timestamp[0] is not an object of one pair"},
      {Service::Report, "/viewsInfo/0/EVENT_ATTRS_CUST/timestamp/0/at", "\"1\"",
       "viewsInfo[0].EVENT_ATTRS_CUST.timestamp[0] is not a number"},
      {Service::Report, "/viewsInfo/0/EVENT_ATTRS_CUST/location/0/here", "[1, 2]",
       "viewsInfo[0].EVENT_ATTRS_CUST.location[0] is not text"},
      {Service::Report, "/identifiers", "null", "identifiers is not an object"},
      {Service::Report, "/meta/bid", "-", "meta.bid is missing"},
      {Service::Report, "/meta/request_time", "7", "meta.request_time is not text"},
      {Service::Report, "/meta/dev_pref/push_p", "0", "meta.dev_pref.push_p is not a boolean"},
      {Service::Report, "/meta/session", "[]", "meta.session is not an object"},
      {Service::Report, "/meta/source/0", "\"mail\"", "meta.source[0] is not an object"},
      {Service::Report, "/query_params/unique_id", "[]", "query_params.unique_id is neither text nor a number"},
      {Service::Device, "/meta", "-", "meta is missing"},
      {Service::Device, "/meta/dev_pref", "-", "meta.dev_pref is missing"},
      {Service::Device, "/query_params", "-", "query_params is missing"},
      {Service::Device, "/IDFV", "7", "IDFV is not text"},
  };
  for (const Case& c : cases) {
    json body = c.service == Service::Report ? report() : device();
    const json::json_pointer pointer(c.pointer);
    if (std::string(c.value) == "-") {
      body[pointer.parent_pointer()].erase(pointer.back());
    } else {
      body[pointer] = json::parse(c.value);
    }
    EXPECT_EQ(refusalOf(c.service, body), c.refusal) << c.pointer << " = " << c.value;
  }
}

TEST(Checks, WhatIsNoJSONIsRefusedWhateverItIs) {
  const std::string deepest(kMaxBodyDepth, '[');
  std::string objects = "[{}";
  for (int i = 0; i < 1'000'000; ++i) objects += ",{}";
  EXPECT_EQ(parseBody(objects + "]").size(), 1'000'001u) << "takes hours unless the time is linear";
  EXPECT_NO_THROW(parseBody(deepest + std::string(kMaxBodyDepth, ']')));
  const std::string bad[] = {"",
                             "{",
                             "{} {}",
                             "\xff\"",
                             "\"\xed\xa0\x80\"",
                             R"("\ud800")",
                             "[NaN]",
                             "[1e999]",
                             "nul",
                             "{\"a\": 1,}",
                             deepest + "[]" + std::string(kMaxBodyDepth, ']'),
                             std::string(5'000'000, '[')};
  for (const std::string& text : bad) EXPECT_THROW(parseBody(text), BadRequest) << text.substr(0, 40);
}

TEST(Checks, TheSignatureIsOfBidTimeAndIdentifierInThatOrder) {
  // printf %s 1-A2026-11-21T10:00:01.000Zid | sha1sum
  const std::string expected = "F4A96ACE933A78CC4B54A575F76EDC63B7EA1430";
  json body = report();
  const auto computed = signatureOf(body);
  ASSERT_TRUE(computed);
  EXPECT_EQ(*computed, expected);
  std::string lower = expected;
  for (char& c : lower) c = static_cast<char>(std::tolower(c));
  EXPECT_EQ(checkSignature(body, expected), Signature::Good);
  EXPECT_EQ(checkSignature(body, lower), Signature::Wrong);
  EXPECT_EQ(checkSignature(body, std::nullopt), Signature::Missing);
  const std::pair<json, const char*> numbers[] = {
      {7, "7"},        {5.0, "5"},        {0.5, "0.5"}, {-2.0, "-2"}, {1e16, "10000000000000000"},
      {1e17, "1e+17"}, {0.00001, "1e-05"}};
  for (const auto& [number, text] : numbers) {
    json same = body;
    body["query_params"]["unique_id"] = number;
    same["query_params"]["unique_id"] = text;
    EXPECT_EQ(signatureOf(body), signatureOf(same)) << text;
  }
  for (const char* pointer : {"/meta/bid", "/meta/request_time", "/query_params/unique_id"}) {
    json without = body;
    const json::json_pointer at(pointer);
    without[at.parent_pointer()].erase(at.back());
    EXPECT_EQ(checkSignature(without, std::nullopt), Signature::None) << pointer;
    EXPECT_EQ(checkSignature(without, expected), Signature::Wrong) << pointer;
  }
}

TEST(Advice, ARefusedRequestSaysWhatToChange) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"status": 200})", ""},
      {R"({"status": 200, "duplicate": 1})", "was accepted before"},
      {R"({"status": 400, "error": "viewsCount is 2, but viewsInfo holds 1"})", "Set viewsCount to the number"},
      {R"({"status": 400, "error": "meta.bid is missing"})", "Add it"},
      {R"({"status": 400, "error": "not JSON: nul"})", "one JSON object"},
      {R"({"status": 401, "signature": "missing", "expected": "AB"})", "Send \"ZRV-REQUEST-ID: AB\"."},
      {R"({"status": 401, "signature": "wrong", "expected": "AB", "headers": {"zrv-request-id": "cd"}})",
       "For this body that is AB"},
      {R"({"status": 401, "signature": "wrong", "expected": "AB", "headers": {"ZRV-REQUEST-ID": "ab"}})",
       "upper case: AB"},
      {R"({"status": 401, "signature": "wrong", "expected": null})", "leave the header out"},
      {R"({"status": 404})", "/v1/report/APP"},
      {R"({"status": 503, "injected": "failed"})", "--fail-every"},
      {R"({"status": 0, "injected": "dropped"})", "--drop-every"},
  };
  for (const auto& [row, part] : cases) {
    const std::string advice = adviceFor(json::parse(row));
    EXPECT_TRUE(*part == 0 ? advice.empty() : advice.find(part) != advice.npos) << row << ": " << advice;
  }
}

}  // namespace
}  // namespace zorvane::collector
