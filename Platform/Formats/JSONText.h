// The JSON of single parts, for writers that have no Value at hand. Everything is appended to out.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Values/Value.h"

namespace zorvane::platform {

// Quoted and escaped; the text must be valid UTF-8.
void appendJSONString(std::string_view text, std::string& out);
// Null where it is not finite.
void appendJSONDouble(double number, std::string& out);
void appendJSONInteger(std::int64_t number, std::string& out);
// Null where no calendar holds the date.
void appendJSONDate(Date date, std::string& out);
void appendJSONData(std::span<const std::uint8_t> bytes, std::string& out);

}  // namespace zorvane::platform
