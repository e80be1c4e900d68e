// A request as a message of the stream. Pure functions. The form: docs/collector.md.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Collector/Store.h"

namespace zorvane::collector {

inline constexpr const char* kFormatHeader = "Zrcollector-Format";
inline constexpr const char* kFormat = "1";

struct StreamMessage {
  RequestRow row;
  std::string body;
};

// Throws StreamError if the request's headers are larger than 4 MiB.
std::string encodeMessage(const RequestRow& row, const std::string& body);

// The row has no bid yet: it stands in the body. Throws BadRequest if it is no such message.
StreamMessage decodeMessage(std::string_view payload);

// By which the stream recognises a duplicate, also across report and device requests: hexadecimal digits. None without
// a bid.
std::optional<std::string> messageID(const RequestRow& row);

}  // namespace zorvane::collector
