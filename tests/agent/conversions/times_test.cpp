// MT: times as seconds since midnight, and as people write them.
#include <gtest/gtest.h>

#include "converted.h"

namespace nox::agent::test {
namespace {

TEST(TimeConversion, ShowsHoursAndMinutes) {
  EXPECT_EQ(shown("0", "MT"), "00:00");
  EXPECT_EQ(shown("34259", "MT"), "09:30");
  EXPECT_EQ(shown("86399", "MT"), "23:59");
}

TEST(TimeConversion, ShowsSecondsWithS) {
  EXPECT_EQ(shown("34259", "MTS"), "09:30:59");
  EXPECT_EQ(shown("86399", "MTS"), "23:59:59");
}

TEST(TimeConversion, ShowsTwelveHoursWithH) {
  EXPECT_EQ(shown("0", "MTH"), "12:00AM");
  EXPECT_EQ(shown("34259", "MTH"), "09:30AM");
  EXPECT_EQ(shown("43200", "MTH"), "12:00PM");
  EXPECT_EQ(shown("46800", "MTH"), "01:00PM");
  EXPECT_EQ(shown("86399", "MTHS"), "11:59:59PM");
}

TEST(TimeConversion, ShowsOnlySecondsOfADay) {
  for (const char* const data : {"-1", "86400", "x", "1.5", "12:00", "99999999999"}) {
    EXPECT_EQ(shown(data, "MT"), kNoDate) << data;
  }
}

TEST(TimeConversion, ReadsWhatItShows) {
  EXPECT_EQ(stored("09:30", "MT"), "34200");
  EXPECT_EQ(stored("9:30", "MT"), "34200");
  EXPECT_EQ(stored("9:30:59", "MT"), "34259");
  EXPECT_EQ(stored("23:59:59", "MTS"), "86399");
  EXPECT_EQ(stored("12:00AM", "MTH"), "0");
  EXPECT_EQ(stored("12:00PM", "MTH"), "43200");
  EXPECT_EQ(stored("1:00:30 pm", "MT"), "46830");
  EXPECT_EQ(stored("9PM", "MT"), "75600");
  EXPECT_EQ(stored(" 9 am ", "MTHS"), "32400");
}

TEST(TimeConversion, ReadsNothingElse) {
  for (const char* const text : {"24:00", "9:60", "9:30:60", "9", "930", "9:", ":30", "9:30:1:1",
                                 "13PM", "0AM", "9:30XM", "-1:00", "009:30", "9:300", "noon"}) {
    EXPECT_EQ(stored(text, "MT"), kNoDate) << text;
  }
}

TEST(TimeConversion, KnowsItsCodes) {
  for (const char* const code : {"MTX", "MTSH", "MTHH", "MTSS", "MT ", "mt", "M", "MTS2"}) {
    EXPECT_EQ(shown("0", code), kNoCode) << code;
  }
}

}  // namespace
}  // namespace nox::agent::test
