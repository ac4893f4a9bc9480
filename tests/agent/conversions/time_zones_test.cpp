// What time it is, and where.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "agent/conversions/conversions.h"

namespace nox::agent::test {
namespace {

std::int64_t secondsIn(const std::string& timezone) {
  const DayAndSecond time = now(timezone);
  return std::int64_t{time.day} * 86'400 + time.second;
}

std::int64_t utcSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

TEST(TimeZones, UtcIsTheSystemsClockCountedFrom31December1967) {
  const std::int64_t before = utcSeconds();
  const std::int64_t time = secondsIn("UTC") - 732 * std::int64_t{86'400};
  EXPECT_LE(before, time);
  EXPECT_LE(time, utcSeconds());
}

TEST(TimeZones, SecondsAreThoseOfADay) {
  for (const char* const zone : {"UTC", "Pacific/Kiritimati", "Pacific/Pago_Pago"}) {
    const DayAndSecond time = now(zone);
    EXPECT_GE(time.second, 0) << zone;
    EXPECT_LT(time.second, 86'400) << zone;
  }
}

// These zones know no summer time, so that their difference is the same on every day.
TEST(TimeZones, ShowWhatTheirClocksShow) {
  constexpr std::int64_t kHour = 3'600;
  constexpr std::int64_t kSlack = 5;
  EXPECT_NEAR(secondsIn("Asia/Tokyo") - secondsIn("UTC"), 9 * kHour, kSlack);
  EXPECT_NEAR(secondsIn("Asia/Kolkata") - secondsIn("UTC"), 11 * kHour / 2, kSlack);
  EXPECT_NEAR(secondsIn("Pacific/Kiritimati") - secondsIn("Pacific/Pago_Pago"), 25 * kHour, kSlack);
  EXPECT_NEAR(secondsIn("America/Phoenix") - secondsIn("UTC"), -7 * kHour, kSlack);
}

TEST(TimeZones, AreThoseOfTheDatabase) {
  for (const char* const zone : {"UTC", "Etc/UTC", "Europe/Oslo", "America/New_York"}) {
    EXPECT_TRUE(isTimezone(zone)) << zone;
  }
  for (const char* const zone :
       {"", "Europe/Atlantis", "UTC+25", "GMT+5:30x", "../../etc/passwd", "Europe/Oslo ", "\xFE",
        "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
        "a"}) {
    EXPECT_FALSE(isTimezone(zone)) << zone;
  }
}

TEST(TimeZones, AnUnknownOneCountsAsUtc) {
  EXPECT_NEAR(secondsIn("Europe/Atlantis") - secondsIn("UTC"), 0, 5);
}

TEST(TimeZonesThreads, AreAskedByManyAtOnce) {
  constexpr std::int64_t kHour = 3'600;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < 50; ++n) {
        EXPECT_NEAR(secondsIn("Asia/Tokyo") - secondsIn("UTC"), 9 * kHour, 5);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace nox::agent::test
