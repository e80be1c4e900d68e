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

// The items of the text's query in order, percent-decoded ("+" stays a plus; invalid UTF-8 becomes U+FFFD). None when
// the query is missing or empty, or when any part of the text breaks the grammar of an absolute or relative URL: a
// blank, a character outside ASCII, a malformed escape, a square bracket elsewhere than around the host. Takes time
// linear in the text's length.
std::vector<QueryItem> queryItemsOfURL(std::string_view text);

}  // namespace zorvane::platform
