package com.zorvane.analytics;

import java.util.Locale;

/** What the library asks about a locale. */
final class LocaleAnswers {
  private LocaleAnswers() {}

  /** An empty text means unknown. Names are in the locale's own language. */
  static String answer(Locale locale, int question, String argument) {
    switch (question) {
      case 0:
        return locale.getLanguage().isEmpty() ? "" : locale.stripExtensions().toLanguageTag().replace('-', '_');
      case 1:
        return locale.getCountry();
      case 2:
        return locale.getLanguage();
      case 3:
        return new Locale.Builder().setRegion(argument).build().getDisplayCountry(locale);
      case 4:
        return new Locale.Builder().setLanguage(argument).build().getDisplayLanguage(locale);
      case 5:
        return Locale.forLanguageTag(argument.replace('_', '-')).getDisplayName(locale);
      default:
        return "";
    }
  }
}
