// D, the conversion of dates.
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>

#include "agent/conversions/calendar.h"
#include "agent/conversions/characters.h"
#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"

namespace nox::agent {

namespace {

constexpr std::array<std::string_view, 12> kMonths = {
    "JANUARY", "FEBRUARY", "MARCH",     "APRIL",   "MAY",      "JUNE",
    "JULY",    "AUGUST",   "SEPTEMBER", "OCTOBER", "NOVEMBER", "DECEMBER"};
constexpr std::size_t kShortMonth = 3;

[[noreturn]] void refuseDate(std::string_view value) {
  throw Failure("22", "007", quoted(value) + " is no date");
}

/// A day number as it is stored.
std::int64_t storedDay(std::string_view value) {
  std::string_view digits = value;
  if (digits.front() == '+') digits.remove_prefix(1);
  std::int64_t day = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, day);
  const bool signs = value.front() == '+' && !digits.empty() && digits.front() == '-';
  if (error != std::errc() || stopped != end || signs) {
    throw Failure("22", "007", quoted(value) + " is no day number");
  }
  return day;
}

/// `number` with at least `width` digits; only its last ones when it has more.
std::string padded(int number, std::size_t width) {
  std::string digits = std::to_string(number);
  if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
  return digits.substr(digits.size() - width);
}

/// A written date in its parts: three numbers, or two and the name of a month.
struct Written {
  struct Part {
    std::string_view text;
    bool isName = false;
  };
  std::array<Part, 3> parts;
};

/// Takes "31 DEC 2026", "31DEC2026", "DEC 31, 2026", "2026-12-31" and the like apart: between two
/// parts stand blanks with at most one of "-/.,", or nothing between digits and letters.
std::optional<Written> takeApart(std::string_view text) {
  Written written;
  std::size_t at = 0;
  for (std::size_t part = 0; part < written.parts.size(); ++part) {
    bool separated = part == 0;
    bool marked = part == 0;
    for (; at < text.size(); ++at) {
      const bool isBlank = text[at] == ' ';
      if (!isBlank && (marked || std::string_view("-/.,").find(text[at]) == text.npos)) break;
      if (!isBlank) marked = true;
      separated = true;
    }
    if (at == text.size()) return {};
    const bool isName = isAsciiLetter(text[at]);
    const std::size_t begin = at;
    while (at < text.size() && (isName ? isAsciiLetter(text[at]) : isAsciiDigit(text[at]))) ++at;
    if (at == begin) return {};
    if (!separated && isName == written.parts[part - 1].isName) return {};
    written.parts[part] = {text.substr(begin, at - begin), isName};
  }
  while (at < text.size() && text[at] == ' ') ++at;
  if (at != text.size()) return {};
  return written;
}

/// Small numbers only: no part of a date has more than four digits.
std::optional<int> numberOf(std::string_view digits) {
  if (digits.size() > 4) return {};
  int number = 0;
  for (const char digit : digits) number = number * 10 + (digit - '0');
  return number;
}

/// By its name, or by three letters of it, in any case.
std::optional<int> monthOf(std::string_view name) {
  for (std::size_t month = 0; month < kMonths.size(); ++month) {
    if (equalsIgnoringCase(name, kMonths[month]) ||
        equalsIgnoringCase(name, kMonths[month].substr(0, kShortMonth))) {
      return static_cast<int>(month) + 1;
    }
  }
  return {};
}

/// Two digits are a year from 1930 to 2029, four the year itself.
std::optional<int> yearOf(std::string_view digits) {
  constexpr int kPivot = 30;
  const std::optional<int> year = numberOf(digits);
  if (!year || digits.size() == 4) return year;
  if (digits.size() != 2) return {};
  return *year < kPivot ? 2000 + *year : 1900 + *year;
}

std::optional<Date> readDate(std::string_view text, bool dayFirst) {
  const std::optional<Written> written = takeApart(text);
  if (!written) return {};
  const auto& [first, second, third] = written->parts;
  const int names = first.isName + second.isName + third.isName;
  if (names > 1 || third.isName) return {};

  std::string_view year = third.text;
  std::string_view day = second.text;
  Written::Part month = first;
  const bool yearFirst = !first.isName && first.text.size() == 4;
  if (yearFirst) {
    year = first.text;
    month = second;
    day = third.text;
  } else if (second.isName || (names == 0 && dayFirst)) {
    month = second;
    day = first.text;
  }
  if (day.size() > 2 || (!month.isName && month.text.size() > 2)) return {};
  const std::optional<int> y = yearOf(year);
  const std::optional<int> m = month.isName ? monthOf(month.text) : numberOf(month.text);
  const std::optional<int> d = numberOf(day);
  if (!y || !m || !d) return {};
  return Date{*y, *m, *d};
}

class DateCode : public ConversionCode {
public:
  enum class Form { Text, Numbers, Iso, DayOfWeek, Month, Quarter, DayOfYear };

  Form form = Form::Text;
  std::size_t yearDigits = 4;
  char separator = ' ';
  bool dayFirst = false;

  std::string output(std::string_view value) const override {
    const std::int64_t number = storedDay(value);
    const std::optional<Date> date = dateOf(number);
    if (!date) throw Failure("22", "007", quoted(value) + " is a day outside of 0001 to 9999");
    switch (form) {
      case Form::Text:
        return padded(date->day, 2) + " " + std::string(nameOf(date->month)) +
               yearBehind(" ", date->year);
      case Form::Numbers: {
        const std::string between(1, separator);
        const int first = dayFirst ? date->day : date->month;
        const int second = dayFirst ? date->month : date->day;
        return padded(first, 2) + between + padded(second, 2) + yearBehind(between, date->year);
      }
      case Form::Iso:
        return padded(date->year, 4) + "-" + padded(date->month, 2) + "-" + padded(date->day, 2);
      case Form::DayOfWeek:
        return std::to_string(dayOfWeek(number));
      case Form::Month:
        return std::to_string(date->month);
      case Form::Quarter:
        return std::to_string((date->month + 2) / 3);
      case Form::DayOfYear:
        return std::to_string(dayOfYear(*date));
    }
    return {};
  }

  std::string input(std::string_view value) const override {
    const std::optional<Date> date = readDate(value, dayFirst);
    const std::optional<std::int32_t> day = date ? dayNumber(*date) : std::nullopt;
    if (!day) refuseDate(value);
    return std::to_string(*day);
  }

private:
  static std::string_view nameOf(int month) {
    return kMonths[static_cast<std::size_t>(month) - 1].substr(0, kShortMonth);
  }
  std::string yearBehind(const std::string& between, int year) const {
    return yearDigits == 0 ? std::string() : between + padded(year, yearDigits);
  }
};

}  // namespace

CodePointer makeDateCode(std::string_view options) {
  auto code = std::make_unique<DateCode>();
  const auto form = [&](DateCode::Form value) {
    code->form = value;
    return std::move(code);
  };
  if (options == "I") return form(DateCode::Form::Iso);
  if (options == "W") return form(DateCode::Form::DayOfWeek);
  if (options == "M") return form(DateCode::Form::Month);
  if (options == "Q") return form(DateCode::Form::Quarter);
  if (options == "J") return form(DateCode::Form::DayOfYear);
  if (!options.empty() && isAsciiDigit(options.front())) {
    code->yearDigits = static_cast<std::size_t>(options.front() - '0');
    if (code->yearDigits > 4) return nullptr;
    options.remove_prefix(1);
  }
  if (!options.empty() && isAsciiSign(options.front())) {
    code->form = DateCode::Form::Numbers;
    code->separator = options.front();
    options.remove_prefix(1);
  }
  if (options == "E") {
    code->dayFirst = true;
    options = {};
  }
  return options.empty() ? std::move(code) : nullptr;
}

}  // namespace nox::agent
