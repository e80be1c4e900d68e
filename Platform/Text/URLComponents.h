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

// The items of the text's query in order, percent-decoded ("+" stays a plus; bytes that are no UTF-8 become U+FFFD).
// None when there is no query, when it is empty, or when any part of the text breaks the grammar of an absolute or
// relative URL: a blank, a character outside ASCII, an unsound escape, a square bracket elsewhere than around the host.
// Linear in the text's length.
std::vector<QueryItem> queryItemsOfURL(std::string_view text);

}  // namespace zorvane::platform
