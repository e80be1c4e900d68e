// The checks of a request. Pure functions without I/O.
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

enum class Service { Report, Device, Unknown };

// Why a body is refused, with the place: "viewsInfo[3].EVENT_ACTION is not text".
class BadRequest : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws BadRequest if the body is not JSON or is nested deeper than kMaxBodyDepth.
json parseBody(std::string_view body);

// Throws BadRequest unless the body has the documented shape of the service's requests. Unknown keys are allowed.
void checkShape(Service service, const json& body);

// Upper-case hexadecimal digits; "SHA1" or "SHA256".
std::string hexDigest(const char* algorithm, const std::string& text);

// Upper-case hexadecimal SHA-1 of the concatenated bid, request_time and unique_id; none if one is missing.
std::optional<std::string> signatureOf(const json& body);

enum class Signature {
  None,  // not computable, and none was sent
  Good,
  Missing,  // computable, but not sent
  Wrong,    // sent, but not the signature of the body
};
Signature checkSignature(const json& body, const std::optional<std::string>& sent);

// The string or number at the path of keys, as text; none if there is neither. A whole double has no point: "5".
std::optional<std::string> textAt(const json& body, std::initializer_list<const char*> path);

}  // namespace zorvane::collector
