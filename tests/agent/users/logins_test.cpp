#include "agent/users/logins.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "agent/users/users.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent::test {
namespace {

using namespace std::chrono_literals;
using Clock = Logins::Clock;
using Verdict = Logins::Verdict;

constexpr const char* kHere = "10.0.0.1";
constexpr const char* kThere = "10.0.0.2";

class LoginsThreads : public testing::Test {
protected:
  Verdict check(const std::string& peer, const std::string& password,
                std::chrono::milliseconds patience = 1min) {
    return logins.check(peer, "ann", password, Clock::now() + patience);
  }
  std::future<Verdict> checkMeanwhile(const std::string& peer, const std::string& password) {
    return std::async(std::launch::async, [=] { return check(peer, password); });
  }
  /// Fails so often that the next wrong password costs 3.2 seconds, without waiting itself.
  void failOften(const std::string& peer) {
    for (int i = 0; i < 5; ++i) EXPECT_EQ(check(peer, "wrong", 0ms), Verdict::Wrong);
  }

  Logins logins{[](const std::string& user, std::string_view password) {
    return user == "ann" && password == "right";
  }};
};

TEST_F(LoginsThreads, TellRightFromWrong) {
  EXPECT_EQ(check(kHere, "right"), Verdict::Right);
  EXPECT_EQ(check(kHere, "wrong"), Verdict::Wrong);
  EXPECT_EQ(logins.check(kHere, "nobody", "right", Clock::now() + 1min), Verdict::Wrong);
}

TEST_F(LoginsThreads, AskTheUsers) {
  const TempDirectory directory;
  Users users(directory.file("users.db"), true);
  users.add("bob", "his own");
  Logins asking(users);
  EXPECT_EQ(asking.check(kHere, "bob", "his own", Clock::now() + 1min), Verdict::Right);
  EXPECT_EQ(asking.check(kHere, "bob", "another's", Clock::now() + 1min), Verdict::Wrong);
}

TEST_F(LoginsThreads, AreSlowerAfterEachFailure) {
  for (int i = 0; i < 3; ++i) {
    const auto begin = Clock::now();
    EXPECT_EQ(check(kHere, "wrong"), Verdict::Wrong);
    EXPECT_GE(Clock::now() - begin, 200ms * (1 << i));
  }
}

TEST_F(LoginsThreads, AnswerAtTheDeadlineAtTheLatest) {
  failOften(kHere);
  const auto begin = Clock::now();
  EXPECT_EQ(check(kHere, "wrong", 100ms), Verdict::Wrong);
  EXPECT_LT(Clock::now() - begin, 3s);
}

TEST_F(LoginsThreads, DelayNoRightPassword) {
  failOften(kHere);
  const auto begin = Clock::now();
  EXPECT_EQ(check(kHere, "right"), Verdict::Right);
  EXPECT_LT(Clock::now() - begin, 3s);
}

TEST_F(LoginsThreads, LetAPeerThatFailedWaitForItself) {
  check(kHere, "wrong", 0ms);
  auto first = checkMeanwhile(kHere, "wrong");   // 400 ms
  auto second = checkMeanwhile(kHere, "wrong");  // 800 ms
  const auto begin = Clock::now();
  first.get();
  second.get();
  EXPECT_GE(Clock::now() - begin, 1100ms);
}

TEST_F(LoginsThreads, GiveUpWhenTheTurnDoesNotCome) {
  failOften(kHere);
  auto slow = checkMeanwhile(kHere, "wrong");
  Verdict verdict = Verdict::Right;
  // It may come first, before the other has begun.
  while (verdict == Verdict::Right && slow.wait_for(0ms) != std::future_status::ready) {
    verdict = check(kHere, "right", 1ms);
  }
  EXPECT_EQ(verdict, Verdict::TooMany);
  logins.stop();
}

TEST_F(LoginsThreads, DoNotLetPeersWaitForOthers) {
  failOften(kHere);
  auto slow = checkMeanwhile(kHere, "wrong");
  EXPECT_EQ(check(kThere, "right"), Verdict::Right);
  EXPECT_EQ(slow.wait_for(0ms), std::future_status::timeout);
  logins.stop();
}

TEST_F(LoginsThreads, TakeANetworkOfIpv6ForOnePeer) {
  check("2001:db8:1:2::1", "wrong", 0ms);
  check("2001:db8:1:2:ffff::2", "wrong", 0ms);
  EXPECT_EQ(logins.rememberedPeers(), 1u);
  check("2001:db8:1:3::1", "wrong", 0ms);
  EXPECT_EQ(logins.rememberedPeers(), 2u);
}

TEST_F(LoginsThreads, EndAllWaitsWhenTheyAreStopped) {
  failOften(kHere);
  std::vector<std::future<Verdict>> waiting;
  for (int i = 0; i < 4; ++i) waiting.push_back(checkMeanwhile(kHere, "wrong"));
  const auto begin = Clock::now();
  logins.stop();
  for (auto& one : waiting) EXPECT_NE(one.get(), Verdict::Right);
  EXPECT_LT(Clock::now() - begin, 3s);
  EXPECT_EQ(check(kHere, "right"), Verdict::TooMany);
}

TEST_F(LoginsThreads, RememberABoundedNumberOfPeers) {
  for (std::size_t i = 0; i < Logins::kMostPeers + 1000; ++i) {
    check("10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256), "wrong", 0ms);
  }
  EXPECT_LE(logins.rememberedPeers(), Logins::kMostPeers);
  EXPECT_EQ(check(kHere, "right"), Verdict::Right);
}

TEST(LoginsAtOnceThreads, AreAFew) {
  std::atomic<int> now{0};
  std::atomic<int> most{0};
  Logins logins([&](const std::string& /*user*/, std::string_view /*password*/) {
    const int others = now++;
    int seen = most;
    while (seen < others + 1 && !most.compare_exchange_weak(seen, others + 1)) {
    }
    std::this_thread::sleep_for(5ms);
    --now;
    return true;
  });
  std::vector<std::future<Verdict>> all;
  for (int i = 0; i < 30; ++i) {
    all.push_back(std::async(std::launch::async, [&logins] {
      return logins.check(kHere, "ann", "right", Clock::now() + 1min);
    }));
  }
  for (auto& one : all) EXPECT_EQ(one.get(), Verdict::Right);
  EXPECT_LE(most, 4);
}

TEST(LoginsAtOnceThreads, HaveTheirPlaceBackWhenUsersFail) {
  Logins logins([](const std::string& /*user*/, std::string_view /*password*/) -> bool {
    throw std::runtime_error("no users");
  });
  for (int i = 0; i < 10; ++i) {
    EXPECT_THROW(logins.check(kHere, "ann", "x", Clock::now() + 1min), std::runtime_error);
  }
}

}  // namespace
}  // namespace nox::agent::test
