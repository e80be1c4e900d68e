#include "Platform/Time/DateFormat.h"

#include <algorithm>
#include <cmath>

#include "Platform/Text/Ascii.h"
#include "Platform/Time/CivilTime.h"

namespace zorvane::platform {
namespace {

// Bounds secondsFromGMT, so that sums cannot overflow. Real offsets stay below a day.
constexpr std::int64_t kMaxShift = 1'000'000;

// One part of a pattern: a field (its letter and width) or a literal character (width 0).
struct Element {
  char letter = 0;
  std::size_t width = 0;
};

class PatternReader {
 public:
  explicit PatternReader(std::string_view pattern) : rest_(pattern) {}

  // False at the end of the pattern and at an unknown field.
  bool next(Element& element) {
    while (!rest_.empty()) {
      const char c = rest_[0];
      if (c == '\'' && !rest_.starts_with("''")) {
        quoted_ = !quoted_;
        rest_.remove_prefix(1);
        continue;
      }
      if (quoted_ || !isAsciiLetter(c)) {
        rest_.remove_prefix(c == '\'' ? 2 : 1);  // a doubled quote is one
        element = {c, 0};
        return true;
      }
      const std::size_t width = std::min(rest_.find_first_not_of(c), rest_.size());
      if (width != widthOf(c)) return false;
      rest_.remove_prefix(width);
      element = {c, width};
      return true;
    }
    return false;
  }
  bool atEnd() const { return rest_.empty(); }

 private:
  static std::size_t widthOf(char letter) {
    switch (letter) {
      case 'y':
        return 4;
      case 'S':
        return 3;
      case 'M':
      case 'd':
      case 'H':
      case 'm':
      case 's':
        return 2;
      default:
        return 0;
    }
  }

  std::string_view rest_;
  bool quoted_ = false;
};

// A time with milliseconds, by field letter.
struct Fields {
  CivilTime time;
  int millisecond = 0;

  int get(char letter) const {
    switch (letter) {
      case 'y':
        return static_cast<int>(time.year);
      case 'M':
        return time.month;
      case 'd':
        return time.day;
      case 'H':
        return time.hour;
      case 'm':
        return time.minute;
      case 's':
        return time.second;
      default:
        return millisecond;
    }
  }
  void set(char letter, int value) {
    switch (letter) {
      case 'y':
        time.year = value;
        break;
      case 'M':
        time.month = value;
        break;
      case 'd':
        time.day = value;
        break;
      case 'H':
        time.hour = value;
        break;
      case 'm':
        time.minute = value;
        break;
      case 's':
        time.second = value;
        break;
      default:
        millisecond = value;
    }
  }
  bool areValid() const {
    if (time.year < 1 || time.month < 1 || time.month > 12 || time.day < 1) return false;
    const bool december = time.month == 12;
    const std::int64_t nextMonth = daysFromCivil(time.year + (december ? 1 : 0), december ? 1 : time.month + 1, 1);
    return daysFromCivil(time.year, time.month, time.day) < nextMonth && time.hour < 24 && time.minute < 60 &&
           time.second < 60;
  }
};

bool readNumber(std::string_view& text, std::size_t width, int& number) {
  if (text.size() < width) return false;
  number = 0;
  for (const char c : text.substr(0, width)) {
    if (!isAsciiDigit(c)) return false;
    number = number * 10 + (c - '0');
  }
  text.remove_prefix(width);
  return true;
}

std::optional<Fields> fieldsOfDate(Date date, std::int64_t secondsFromGMT) {
  if (secondsFromGMT < -kMaxShift || secondsFromGMT > kMaxShift) return std::nullopt;
  const auto exact = millisecondsOfDate(date);
  if (!exact) return std::nullopt;
  const std::int64_t milliseconds = *exact;
  const std::int64_t seconds = milliseconds >= 0 ? milliseconds / 1000 : -((999 - milliseconds) / 1000);
  const Fields fields{civilTimeFromSeconds(seconds + secondsFromGMT), static_cast<int>(milliseconds - seconds * 1000)};
  if (fields.time.year < 1 || fields.time.year > 9999) return std::nullopt;
  return fields;
}

// Writes the last `width` digits of the number.
void writeNumber(int number, char* to, std::size_t width) {
  for (std::size_t i = width; i-- > 0; number /= 10) to[i] = static_cast<char>('0' + number % 10);
}

}  // namespace

std::optional<std::int64_t> millisecondsOfDate(Date date) {
  constexpr double kBeyondCalendar = 1e12;
  if (!(std::abs(date.secondsSince1970) < kBeyondCalendar)) return std::nullopt;
  // A date of whole milliseconds may be stored slightly below them. It must not be floored to the millisecond before.
  const double exact = date.secondsSince1970 * 1000;
  const double tolerance = 1e-3 + std::abs(exact) * 0x1p-51;
  return static_cast<std::int64_t>(std::floor(exact + tolerance));
}

std::optional<std::string> textOfDate(Date date, std::string_view pattern, std::int64_t secondsFromGMT) {
  const auto fields = fieldsOfDate(date, secondsFromGMT);
  if (!fields) return std::nullopt;
  std::string text;
  PatternReader reader(pattern);
  for (Element element; reader.next(element);) {
    if (element.width == 0) {
      text += element.letter;
      continue;
    }
    const std::size_t start = text.size();
    text.append(element.width, '0');
    writeNumber(fields->get(element.letter), text.data() + start, element.width);
  }
  if (!reader.atEnd()) return std::nullopt;
  return text;
}

Text isoTextOfDate(Date date, std::int64_t secondsFromGMT, std::string_view zone) {
  const auto fields = fieldsOfDate(date, secondsFromGMT);
  if (!fields) return {};
  const CivilTime& time = fields->time;
  constexpr std::string_view kPattern = "yyyy-MM-ddTHH:mm:ss.SSS";
  constexpr std::size_t kLongestZone = 8;
  char text[kPattern.size() + kLongestZone];
  kPattern.copy(text, kPattern.size());
  const std::size_t size = kPattern.size() + zone.copy(text + kPattern.size(), kLongestZone);
  writeNumber(static_cast<int>(time.year), &text[0], 4);
  writeNumber(time.month, &text[5], 2);
  writeNumber(time.day, &text[8], 2);
  writeNumber(time.hour, &text[11], 2);
  writeNumber(time.minute, &text[14], 2);
  writeNumber(time.second, &text[17], 2);
  writeNumber(fields->millisecond, &text[20], 3);
  return Text({text, size});
}

std::optional<Date> dateOfText(std::string_view text, std::string_view pattern, std::int64_t secondsFromGMT) {
  if (secondsFromGMT < -kMaxShift || secondsFromGMT > kMaxShift) return std::nullopt;
  Fields fields;
  PatternReader reader(pattern);
  for (Element element; reader.next(element);) {
    if (element.width == 0) {
      if (text.empty() || text[0] != element.letter) return std::nullopt;
      text.remove_prefix(1);
      continue;
    }
    int number = 0;
    if (!readNumber(text, element.width, number)) return std::nullopt;
    fields.set(element.letter, number);
  }
  if (!reader.atEnd() || !text.empty() || !fields.areValid()) return std::nullopt;
  const std::int64_t seconds = secondsFromCivilTime(fields.time) - secondsFromGMT;
  return Date{static_cast<double>(seconds * 1000 + fields.millisecond) / 1000};
}

}  // namespace zorvane::platform
