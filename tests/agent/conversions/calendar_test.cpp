// Days by number, and by year, month and day.
#include "agent/conversions/calendar.h"

#include <gtest/gtest.h>

namespace nox::agent::test {
namespace {

TEST(Calendar, CountsDaysFrom31December1967) {
  EXPECT_EQ(dayNumber({1967, 12, 31}), 0);
  EXPECT_EQ(dayNumber({1968, 1, 1}), 1);
  EXPECT_EQ(dayNumber({1967, 12, 30}), -1);
  EXPECT_EQ(dayNumber({1970, 1, 1}), 732);
  EXPECT_EQ(dayNumber({2000, 2, 29}), 11'748);
}

TEST(Calendar, ReachesFromYear1ToYear9999) {
  EXPECT_EQ(dayNumber({1, 1, 1}), -718'430);
  EXPECT_EQ(dayNumber({9999, 12, 31}), 2'933'628);
  EXPECT_FALSE(dayNumber({0, 12, 31}));
  EXPECT_FALSE(dayNumber({10'000, 1, 1}));
  EXPECT_FALSE(dateOf(-718'431));
  EXPECT_FALSE(dateOf(2'933'629));
}

TEST(Calendar, KnowsTheDaysThatThereAre) {
  EXPECT_TRUE(dayNumber({2024, 2, 29}));
  EXPECT_FALSE(dayNumber({2023, 2, 29}));
  EXPECT_FALSE(dayNumber({1900, 2, 29}));
  EXPECT_FALSE(dayNumber({2026, 4, 31}));
  EXPECT_FALSE(dayNumber({2026, 1, 0}));
  EXPECT_FALSE(dayNumber({2026, 0, 1}));
  EXPECT_FALSE(dayNumber({2026, 13, 1}));
}

TEST(Calendar, EveryDayNumberIsOneDateAndBack) {
  Date last{1, 1, 1};
  for (std::int64_t day = -718'430; day <= 2'933'628; ++day) {
    const std::optional<Date> date = dateOf(day);
    ASSERT_TRUE(date) << day;
    ASSERT_EQ(dayNumber(*date), day);
    ASSERT_GE(date->year * 10'000 + date->month * 100 + date->day,
              last.year * 10'000 + last.month * 100 + last.day);
    last = *date;
  }
  EXPECT_EQ(last.year, 9999);
}

TEST(Calendar, WeeksBeginOnMonday) {
  EXPECT_EQ(dayOfWeek(0), 7);  // 31 December 1967 was a Sunday
  EXPECT_EQ(dayOfWeek(1), 1);
  EXPECT_EQ(dayOfWeek(-1), 6);
  EXPECT_EQ(dayOfWeek(-718'430), 1);
}

TEST(Calendar, YearsBeginWithDay1) {
  EXPECT_EQ(dayOfYear({2026, 1, 1}), 1);
  EXPECT_EQ(dayOfYear({2026, 12, 31}), 365);
  EXPECT_EQ(dayOfYear({2024, 3, 1}), 61);
  EXPECT_EQ(dayOfYear({2024, 12, 31}), 366);
}

}  // namespace
}  // namespace nox::agent::test
