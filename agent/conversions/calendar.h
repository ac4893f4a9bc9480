// The calendar: days by number, and by year, month and day.
#pragma once

#include <cstdint>
#include <optional>

namespace nox::agent {

constexpr std::int64_t kSecondsPerDay = 86'400;

/// A day of the proleptic Gregorian calendar. Years run from 1 to 9999.
struct Date {
  int year = 1;
  int month = 1;
  int day = 1;
};

/// Days since 31 December 1967; nothing where there is no such day.
std::optional<std::int32_t> dayNumber(const Date& date);
/// Nothing outside of the years 1 to 9999.
std::optional<Date> dateOf(std::int64_t dayNumber);
/// 1 to 366.
int dayOfYear(const Date& date);
/// Monday is 1, Sunday 7; of a day that `dateOf` knows.
int dayOfWeek(std::int64_t dayNumber);

}  // namespace nox::agent
