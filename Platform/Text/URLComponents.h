// The query of a URL, by RFC 3986.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane::platform {

struct QueryItem {
  std::string name;
  // Absent for an item without "=".
  std::optional<std::string> value;
};

// The items of the text's query in order, percent-decoded ("+" stays a plus); empty when there is no query or the text
// is no URL. Linear in the text's length.
std::vector<QueryItem> queryItemsOfURL(std::string_view text);

}  // namespace zorvane::platform
