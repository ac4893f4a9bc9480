#include "agent/conversions/calendar.h"

#include <array>

namespace nox::agent {

namespace {

constexpr std::int64_t kDaysIn400Years = 146'097;
constexpr int kLastYear = 9999;

bool isLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

/// Days from 1 January of year 1 to 1 January of `year`.
constexpr std::int64_t daysBeforeYear(int year) {
  const std::int64_t past = year - 1;
  return 365 * past + past / 4 - past / 100 + past / 400;
}

/// Days from 1 January to the first of the month; month 13 ends the year.
int daysBeforeMonth(int year, int month) {
  constexpr std::array<int, 13> kDays = {0,   31,  59,  90,  120, 151, 181,
                                         212, 243, 273, 304, 334, 365};
  return kDays[static_cast<std::size_t>(month) - 1] + (month > 2 && isLeapYear(year) ? 1 : 0);
}

/// Day 0, 31 December 1967, counted from 1 January of year 1.
constexpr std::int64_t kDayZero = daysBeforeYear(1968) - 1;
constexpr std::int64_t kDays = daysBeforeYear(kLastYear + 1);

}  // namespace

std::optional<std::int32_t> dayNumber(const Date& date) {
  if (date.year < 1 || date.year > kLastYear || date.month < 1 || date.month > 12) return {};
  const int length =
      daysBeforeMonth(date.year, date.month + 1) - daysBeforeMonth(date.year, date.month);
  if (date.day < 1 || date.day > length) return {};
  return static_cast<std::int32_t>(daysBeforeYear(date.year) + dayOfYear(date) - 1 - kDayZero);
}

std::optional<Date> dateOf(std::int64_t dayNumber) {
  if (dayNumber < -kDayZero || dayNumber >= kDays - kDayZero) return {};
  const std::int64_t days = dayNumber + kDayZero;
  Date date;
  date.year = static_cast<int>(days * 400 / kDaysIn400Years) + 1;  // a year off at most
  while (daysBeforeYear(date.year) > days) --date.year;
  while (daysBeforeYear(date.year + 1) <= days) ++date.year;
  const int rest = static_cast<int>(days - daysBeforeYear(date.year));
  while (daysBeforeMonth(date.year, date.month + 1) <= rest) ++date.month;
  date.day = rest - daysBeforeMonth(date.year, date.month) + 1;
  return date;
}

int dayOfYear(const Date& date) { return daysBeforeMonth(date.year, date.month) + date.day; }

int dayOfWeek(std::int64_t dayNumber) {
  return static_cast<int>((dayNumber + kDayZero) % 7) + 1;  // the first day is a Monday
}

}  // namespace nox::agent
