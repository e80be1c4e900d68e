// What a request must look like. Pure functions: no request is stored or answered here.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zorvane::collector {

using nlohmann::json;

inline constexpr std::size_t kMaxBodyBytes = 16u << 20;
inline constexpr int kMaxBodyDepth = 128;
inline constexpr const char* kSignatureHeader = "ZRV-REQUEST-ID";

enum class Service { Report, Device };

// Why a body is not acceptable: one sentence that names the place ("viewsInfo[3].EVENT_ACTION is not text").
class BadRequest : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The body as JSON. Throws BadRequest if it is none or is nested deeper than kMaxBodyDepth.
json parseBody(std::string_view body);

// Throws BadRequest unless the body has the documented shape of the service's requests. Unknown keys are allowed.
void checkShape(Service service, const json& body);

// Upper-case hexadecimal SHA-1 of bid, request_time and unique_id, written one after the other; none if one is missing.
std::optional<std::string> signatureOf(const json& body);

enum class Signature {
  None,  // cannot be computed, and none was sent
  Good,
  Missing,  // can be computed, but was not sent
  Wrong,    // was sent, and is not the body's
};
Signature checkSignature(const json& body, const std::optional<std::string>& sent);

// The text of a text or number at the path, each step a key; none when there is none.
std::optional<std::string> textAt(const json& body, std::initializer_list<const char*> path);

}  // namespace zorvane::collector
