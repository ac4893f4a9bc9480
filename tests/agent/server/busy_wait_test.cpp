// When a thread that has answered looks for the next request, and when it goes to sleep at once.
#include "agent/server/busy_wait.h"

#include <gtest/gtest.h>

#include <chrono>

namespace nox::agent::test {
namespace {

constexpr unsigned int kTwoProcessors = 2;  // one of them the client's
constexpr std::chrono::hours kLong{1};
constexpr std::chrono::hours kNoTime{0};

/// How often it looks for what comes with the given look (0: never).
int looks(BusyWait& wait, int comesWith) {
  int looks = 0;
  wait.await([&] { return ++looks == comesWith; });
  return looks;
}

/// After the first request, which is nobody's next.
class OneAtWork : public ::testing::Test {
protected:
  void begin(BusyWait& wait) { looks(wait, 1); }
  BusyWait::Traffic traffic{kTwoProcessors};
};

TEST_F(OneAtWork, LooksUntilTheRequestIsThere) {
  BusyWait wait(traffic, kLong);
  begin(wait);
  EXPECT_EQ(looks(wait, 1), 1);
  EXPECT_EQ(looks(wait, 1000), 1000);
}

TEST_F(OneAtWork, GivesUpAfterItsMoment) {
  BusyWait wait(traffic, kNoTime);
  begin(wait);
  EXPECT_EQ(looks(wait, 0), 1);
}

TEST_F(OneAtWork, SleepsTheLongerTheLessItHelps) {
  BusyWait wait(traffic, kNoTime);
  begin(wait);
  int slept = 0;
  const auto sleptUntilItLooks = [&] {
    for (slept = 0; looks(wait, 0) == 0; ++slept) {
    }
    return slept;
  };
  ASSERT_EQ(looks(wait, 0), 1);
  EXPECT_EQ(sleptUntilItLooks(), 1);
  EXPECT_EQ(sleptUntilItLooks(), 3);
  EXPECT_EQ(sleptUntilItLooks(), 7);
  for (int i = 0; i < 5; ++i) sleptUntilItLooks();
  EXPECT_EQ(slept, 255);
  EXPECT_EQ(sleptUntilItLooks(), 255);
}

TEST_F(OneAtWork, LooksEachTimeOnceItHasHelped) {
  BusyWait wait(traffic, kNoTime);
  begin(wait);
  ASSERT_EQ(looks(wait, 0), 1);
  ASSERT_EQ(looks(wait, 0), 0);
  ASSERT_EQ(looks(wait, 1), 1);
  EXPECT_EQ(looks(wait, 1), 1);
  EXPECT_EQ(looks(wait, 0), 1);
}

TEST(BusyWait, LeavesTheProcessorsToThoseWhoAreAtWork) {
  BusyWait::Traffic traffic{kTwoProcessors};
  BusyWait one(traffic, kLong);
  BusyWait other(traffic, kLong);
  looks(one, 1);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(looks(other, 1), 0);
    EXPECT_EQ(looks(one, 1), 0);
  }
  EXPECT_EQ(looks(one, 1), 1);
}

TEST(BusyWait, LooksForAsManyAsHaveAProcessor) {
  BusyWait::Traffic traffic{2 * kTwoProcessors};
  BusyWait one(traffic, kLong);
  BusyWait other(traffic, kLong);
  looks(one, 1);
  looks(other, 1);
  EXPECT_EQ(looks(one, 1), 1);
  EXPECT_EQ(looks(other, 1), 1);
  EXPECT_EQ(looks(other, 1), 1);
}

TEST(BusyWait, NeverLooksWhereThereIsOneProcessor) {
  BusyWait::Traffic traffic{1};
  BusyWait wait(traffic, kLong);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(looks(wait, 1), 0);
}

}  // namespace
}  // namespace nox::agent::test
