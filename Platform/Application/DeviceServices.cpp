#include "Platform/Application/DeviceServices.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "Platform/Text/Ascii.h"
#include "Platform/Time/CivilTime.h"

namespace zorvane::platform {
namespace {

// Removes the part up to the next separator from the text and returns it.
std::string_view nextSubtag(std::string_view& text) {
  const std::string_view subtag = text.substr(0, text.find_first_of("_-"));
  text.remove_prefix(std::min(subtag.size() + 1, text.size()));
  return subtag;
}

bool consistsOf(std::string_view text, bool (*kind)(char)) {
  return std::all_of(text.begin(), text.end(), kind);
}

std::string withLetters(std::string_view text, char from, char to, int distance) {
  std::string result(text);
  for (char& c : result) {
    if (c >= from && c <= to) c = static_cast<char>(c + distance);
  }
  return result;
}

std::optional<std::string> processLocaleIdentifier() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* text = std::getenv(variable);
    if (!text || !*text) continue;
    return identifierOfLocaleName(text);
  }
  return std::nullopt;
}

class ProcessLocale final : public LocaleService {
 public:
  std::optional<std::string> localeIdentifier() const override { return identifier_; }
  std::optional<std::string> countryCode() const override { return countryCodeOfLocale(identifier_.value_or("")); }
  std::optional<std::string> languageCode() const override { return languageCodeOfLocale(identifier_.value_or("")); }

 private:
  const std::optional<std::string> identifier_ = processLocaleIdentifier();
};

class ProcessTimeZone final : public TimeZone {
 public:
  ProcessTimeZone() { ::tzset(); }

  std::int64_t secondsFromGMT(Date date) const override {
    if (std::isnan(date.secondsSince1970)) return 0;
    constexpr double kFirst = -62135596800.0;  // 0001-01-01
    constexpr double kLast = 253402300799.0;   // 9999-12-31
    auto seconds = static_cast<std::int64_t>(std::floor(std::clamp(date.secondsSince1970, kFirst, kLast)));
    seconds = std::clamp<std::int64_t>(seconds, std::numeric_limits<std::time_t>::min(),
                                       std::numeric_limits<std::time_t>::max());
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (!::localtime_r(&moment, &local)) return 0;
    const CivilTime civil{.year = std::int64_t{local.tm_year} + 1900,
                          .month = local.tm_mon + 1,
                          .day = local.tm_mday,
                          .hour = local.tm_hour,
                          .minute = local.tm_min,
                          .second = local.tm_sec};
    return secondsFromCivilTime(civil) - seconds;
  }
};

}  // namespace

std::optional<std::string> identifierOfLocaleName(std::string_view name) {
  std::string identifier(name.substr(0, name.find_first_of(".@")));
  if (identifier.empty() || identifier == "C" || identifier == "POSIX") return std::nullopt;
  std::replace(identifier.begin(), identifier.end(), '-', '_');
  return identifier;
}

std::optional<std::string> languageCodeOfLocale(std::string_view identifier) {
  identifier = identifier.substr(0, identifier.find_first_of(".@"));
  const std::string_view language = nextSubtag(identifier);
  if (language.size() < 2 || language.size() > 8 || !consistsOf(language, isAsciiLetter)) return std::nullopt;
  return withLetters(language, 'A', 'Z', 'a' - 'A');
}

std::optional<std::string> countryCodeOfLocale(std::string_view identifier) {
  identifier = identifier.substr(0, identifier.find_first_of(".@"));
  nextSubtag(identifier);  // the language
  while (!identifier.empty()) {
    const std::string_view subtag = nextSubtag(identifier);
    if (subtag.size() == 1) break;  // extensions follow
    if ((subtag.size() == 2 && consistsOf(subtag, isAsciiLetter)) ||
        (subtag.size() == 3 && consistsOf(subtag, isAsciiDigit))) {
      return withLetters(subtag, 'a', 'z', 'A' - 'a');
    }
  }
  return std::nullopt;
}

std::shared_ptr<LocaleService> makeProcessLocale() {
  return std::make_shared<ProcessLocale>();
}
std::shared_ptr<TimeZone> makeProcessTimeZone() {
  return std::make_shared<ProcessTimeZone>();
}

}  // namespace zorvane::platform
