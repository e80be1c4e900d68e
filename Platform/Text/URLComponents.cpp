#include "Platform/Text/URLComponents.h"

#include <algorithm>
#include <utility>

#include "Platform/Text/Ascii.h"
#include "Platform/Text/Utf8.h"

namespace zorvane::platform {
namespace {

int hexDigit(char c) {
  if (isAsciiDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
bool isAnyOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}
bool isUnreserved(char c) {
  return isAsciiLetter(c) || isAsciiDigit(c) || isAnyOf(c, "-._~");
}
bool isSubDelimiter(char c) {
  return isAnyOf(c, "!$&'()*+,;=");
}

// Whether the text has only unreserved characters, sub-delimiters, the additional characters and valid escapes.
bool hasOnly(std::string_view text, std::string_view additional) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (i + 2 >= text.size() || hexDigit(text[i + 1]) < 0 || hexDigit(text[i + 2]) < 0) return false;
      i += 2;
    } else if (!isUnreserved(text[i]) && !isSubDelimiter(text[i]) && !isAnyOf(text[i], additional)) {
      return false;
    }
  }
  return true;
}

// Splits at the first separator: returns what is before it, and text keeps what is after it. nullopt when there is
// none.
std::optional<std::string_view> cutBefore(std::string_view& text, std::string_view separators) {
  const std::size_t position = text.find_first_of(separators);
  if (position == std::string_view::npos) return std::nullopt;
  const std::string_view front = text.substr(0, position);
  text.remove_prefix(position + 1);
  return front;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isAsciiLetter(text[0]) && std::all_of(text.begin(), text.end(), [](char c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || isAnyOf(c, "+-.");
  });
}

bool isAuthority(std::string_view text) {
  if (const auto userInfo = cutBefore(text, "@"); userInfo && !hasOnly(*userInfo, ":")) return false;
  std::string_view port;
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return false;
    const std::string_view address = text.substr(1, end - 1);
    // No escapes in an address in brackets.
    if (address.empty() || isAnyOf('%', address) || !hasOnly(address, ":")) return false;
    port = text.substr(end + 1);
    if (!port.empty() && port[0] != ':') return false;
  } else {
    const std::size_t colon = std::min(text.find(':'), text.size());
    if (!hasOnly(text.substr(0, colon), "")) return false;
    port = text.substr(colon);
  }
  if (!port.empty()) port.remove_prefix(1);
  return std::all_of(port.begin(), port.end(), isAsciiDigit);
}

// Scheme, authority and path.
bool isHierarchy(std::string_view text) {
  const std::size_t mark = text.find_first_of(":/");
  if (mark != std::string_view::npos && text[mark] == ':') {
    // A colon ends a scheme: the first segment of a relative path has none.
    if (!isScheme(text.substr(0, mark))) return false;
    text.remove_prefix(mark + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::size_t slash = std::min(text.find('/'), text.size());
    if (!isAuthority(text.substr(0, slash))) return false;
    text.remove_prefix(slash);
  }
  return hasOnly(text, ":@/");
}

std::string decoded(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {  // valid: hasOnly checked it
      result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
      i += 2;
    } else {
      result += text[i];
    }
  }
  return validUtf8(std::move(result));
}

QueryItem itemOf(std::string_view text) {
  if (const auto name = cutBefore(text, "=")) return {decoded(*name), decoded(text)};
  return {decoded(text), std::nullopt};
}

}  // namespace

std::vector<QueryItem> queryItemsOfURL(std::string_view text) {
  constexpr std::string_view kQueryCharacters = ":@/?";
  if (const auto front = cutBefore(text, "#")) {
    if (!hasOnly(text, kQueryCharacters)) return {};
    text = *front;
  }
  const auto hierarchy = cutBefore(text, "?");
  if (!hierarchy || text.empty() || !hasOnly(text, kQueryCharacters) || !isHierarchy(*hierarchy)) return {};
  std::vector<QueryItem> items;
  while (const auto item = cutBefore(text, "&")) items.push_back(itemOf(*item));
  items.push_back(itemOf(text));
  return items;
}

}  // namespace zorvane::platform
