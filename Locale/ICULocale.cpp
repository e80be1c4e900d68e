#include "Locale/ICULocale.h"

#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <string>
#include <utility>

namespace zorvane {
namespace {

using Text = std::optional<std::string>;
using NameFunction = int32_t (*)(const char* locale, const char* displayLocale, UChar* name, int32_t capacity,
                                 UErrorCode* status);

Text utf8(const UChar* text, int32_t length) {
  // A UTF-16 unit takes at most three bytes.
  std::string bytes(static_cast<std::size_t>(length) * 3, '\0');
  int32_t size = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(bytes.data(), static_cast<int32_t>(bytes.size()), &size, text, length, &status);
  if (U_FAILURE(status)) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(size));
  return bytes;
}

class ICULocale final : public platform::LocaleService {
 public:
  explicit ICULocale(std::shared_ptr<platform::LocaleService> locale) : locale_(std::move(locale)) {}

  Text localeIdentifier() const override { return locale_->localeIdentifier(); }
  Text countryCode() const override { return locale_->countryCode(); }
  Text languageCode() const override { return locale_->languageCode(); }
  Text displayNameForCountryCode(const std::string& code) const override {
    return name(uloc_getDisplayCountry, "und_" + code);
  }
  Text displayNameForLanguageCode(const std::string& code) const override {
    return name(uloc_getDisplayLanguage, code);
  }
  Text displayNameForIdentifier(const std::string& identifier) const override {
    return name(uloc_getDisplayName, identifier);
  }

 private:
  Text name(NameFunction nameOf, const std::string& locale) const {
    const Text language = localeIdentifier();
    if (!language) return std::nullopt;
    UChar buffer[512];
    constexpr auto kCapacity = static_cast<int32_t>(std::size(buffer));
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = nameOf(locale.c_str(), language->c_str(), buffer, kCapacity, &status);
    // ICU returns the code itself, with this warning, if it knows no name.
    const bool named = U_SUCCESS(status) && status != U_USING_DEFAULT_WARNING && length > 0 && length <= kCapacity;
    return named ? utf8(buffer, length) : std::nullopt;
  }

  const std::shared_ptr<platform::LocaleService> locale_;
};

}  // namespace

std::shared_ptr<platform::LocaleService> makeICULocale(std::shared_ptr<platform::LocaleService> locale) {
  return std::make_shared<ICULocale>(std::move(locale));
}

}  // namespace zorvane
