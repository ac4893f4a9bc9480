// Connections that threads share by turns.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "nox/client/error.h"
#include "nox/client/pool.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using std::chrono::milliseconds;
using test::Environment;
using test::Peer;
using test::PeerConnection;

class Pools : public testing::Test {
protected:
  static PoolOptions sized(std::size_t size) {
    PoolOptions options;
    options.size = size;
    return options;
  }

  /// Returns once so much time has passed: what is tested is an age.
  static void passTime(milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() <= end) std::this_thread::yield();
  }

  const Environment empty_;
  std::mutex mutex_;
  std::vector<int> asked_;  // type codes
  Peer peer_{test::serving([this](PeerConnection& client, Serializable& request) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      asked_.push_back(request.getType());
    }
    NOXPBlob none("");
    switch (request.getType()) {
      case TypeCode::DateTimeRequest:
        client.send(noxp::remote::DateTimeResponseProt(7, 8));
        break;
      case TypeCode::RemoteExecuteRequest:
        client.send(noxp::remote::ExecuteResponseProt(&none, &none, nullptr));
        break;
      case TypeCode::RemoteSubroutineRequest:
        client.send(noxp::remote::SubroutineResponseProt());
        break;
      case TypeCode::ReadRecordRequest:
        client.send(noxp::remote::ToviResponseProt(1, nullptr, nullptr));
        break;
      case TypeCode::SetPropertiesRequest:
        client.send(noxp::common::SetPropertiesResponseProt());
        break;
      default:
        client.send(OKResponseProt());
    }
  })};

  int countOf(int type) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(std::count(asked_.begin(), asked_.end(), type));
  }
};

TEST_F(Pools, ConnectWhenTheyAreFirstAsked) {
  Pool pool(peer_.uri());
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_EQ(pool.acquire()->dateTime().day, 7);
  EXPECT_EQ(pool.statistics().open, 1u);
  EXPECT_EQ(pool.statistics().taken, 0u);
}

TEST_F(Pools, UseAConnectionAgain) {
  Pool pool(peer_.uri());
  for (int i = 0; i < 10; ++i) pool.acquire()->dateTime();
  EXPECT_EQ(peer_.connections(), 1);
  EXPECT_EQ(pool.statistics().opened, 1u);
}

TEST_F(Pools, OpenAsManyAsAreNeededAtOnce) {
  Pool pool(peer_.uri(), sized(3));
  {
    const Pool::Lease a = pool.acquire();
    const Pool::Lease b = pool.acquire();
    EXPECT_EQ(pool.statistics().taken, 2u);
  }
  EXPECT_EQ(pool.statistics().open, 2u);
  EXPECT_EQ(pool.statistics().taken, 0u);
}

TEST_F(Pools, EndAWaitAtItsDeadline) {
  Pool pool(peer_.uri(), sized(1));
  const Pool::Lease only = pool.acquire();
  const auto begin = std::chrono::steady_clock::now();
  try {
    pool.acquire(milliseconds(200));
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kPoolExhausted);
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
    EXPECT_EQ(error.message(), "all 1 connections of the pool are taken");
  }
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took + milliseconds(5), milliseconds(200));
  EXPECT_LT(took, std::chrono::seconds(3));
}

TEST_F(Pools, WaitForNobodyWhereNoTimeIsGiven) {
  Pool pool(peer_.uri(), sized(1));
  for (const milliseconds none : {milliseconds(0), milliseconds(-1), milliseconds::min()}) {
    std::optional<Pool::Lease> only(pool.acquire(none));  // a new one, and an idle one later
    EXPECT_EQ((*only)->dateTime().day, 7);
    const auto begin = std::chrono::steady_clock::now();
    try {
      pool.acquire(none);
      FAIL() << "nothing was thrown";
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kPoolExhausted);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
  }
  EXPECT_EQ(pool.statistics().opened, 1u);
}

TEST_F(Pools, WaitAsLongAsItTakesWhereTheTimeIsHuge) {
  PoolOptions endless = sized(1);
  endless.acquireTimeout = milliseconds(0);
  Pool pool(peer_.uri(), endless);
  for (const std::optional<milliseconds> time :
       {std::optional<milliseconds>(), std::optional(milliseconds::max())}) {
    std::optional<Pool::Lease> held(pool.acquire());
    std::thread waiting(
        [&] { EXPECT_EQ((time ? pool.acquire(*time) : pool.acquire())->dateTime().day, 7); });
    while (pool.statistics().waiting == 0) std::this_thread::yield();
    held.reset();
    waiting.join();
  }
}

TEST_F(Pools, RefuseTimesThatCannotBe) {
  for (milliseconds PoolOptions::*const time :
       {&PoolOptions::idle, &PoolOptions::maxLife, &PoolOptions::acquireTimeout}) {
    PoolOptions options;
    options.*time = milliseconds(-1);
    try {
      Pool(peer_.uri(), options);
      FAIL() << "nothing was thrown";
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
    }
    options.*time = milliseconds::max();
    Pool lasting(peer_.uri(), options);
    for (int i = 0; i < 2; ++i) lasting.acquire()->dateTime();
    EXPECT_EQ(lasting.statistics().opened, 1u);
  }
}

TEST_F(Pools, BoundTheOpeningByTheSameDeadline) {
  const test::BlackHole hole;
  Pool pool("nox://ann@127.0.0.1:" + std::to_string(hole.port()) + "?tls=off&connect_timeout=1m");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THROW(pool.acquire(milliseconds(300)), Error);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(pool.statistics().open, 0u);
}

TEST_F(Pools, HandAConnectionToTheThreadThatWaits) {
  Pool pool(peer_.uri(), sized(1));
  std::optional<Pool::Lease> held(pool.acquire());
  std::thread waiting(
      [&] { EXPECT_EQ(pool.acquire(std::chrono::seconds(60))->dateTime().day, 7); });
  while (pool.statistics().waiting == 0) std::this_thread::yield();
  held.reset();
  waiting.join();
  EXPECT_EQ(peer_.connections(), 1);
}

TEST_F(Pools, ServeManyThreads) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 50;
  Pool pool(peer_.uri(), sized(3));
  std::atomic<int> done{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const Pool::Lease lease = pool.acquire(std::chrono::seconds(60));
        if (lease->dateTime().day == 7) ++done;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(done, kThreads * kRounds);
  const PoolStatistics statistics = pool.statistics();
  EXPECT_LE(statistics.opened, 3u);
  EXPECT_EQ(statistics.taken, 0u);
  EXPECT_EQ(statistics.waiting, 0u);
}

TEST_F(Pools, LetThreadsGiveBackWhatOthersTook) {
  Pool pool(peer_.uri(), sized(2));
  for (int i = 0; i < 10; ++i) {
    Pool::Lease lease = pool.acquire();
    std::thread([taken = std::move(lease)]() mutable { taken->dateTime(); }).join();
  }
  EXPECT_EQ(pool.statistics().opened, 1u);
}

TEST_F(Pools, LetThreadsAcquireWhileOneIsBeingOpened) {
  std::atomic<bool> letIn{false};
  Peer slow([&letIn](PeerConnection& client) {
    const std::unique_ptr<Serializable> login = client.receive();
    while (!letIn) std::this_thread::yield();
    client.send(OKResponseProt());
    client.waitForClient();
  });
  Pool pool(slow.uri(), sized(2));
  std::thread first([&] { pool.acquire(std::chrono::seconds(60)); });
  while (pool.statistics().taken < 1) std::this_thread::yield();
  std::thread second([&] { pool.acquire(std::chrono::seconds(60)); });
  // Both connect at the same time: neither waits for the other's login.
  while (slow.connections() < 2) std::this_thread::yield();
  letIn = true;
  first.join();
  second.join();
}

TEST_F(Pools, DropConnectionsThatTheServerClosed) {
  std::atomic<bool> closes{true};
  Peer peer([&closes](PeerConnection& client) {
    client.welcome();
    if (closes.exchange(false)) return;
    client.receive();
    client.send(noxp::remote::DateTimeResponseProt(9, 0));
    client.waitForClient();
  });
  Pool pool(peer.uri());
  {
    const Pool::Lease first = pool.acquire();
    while (first->isAlive()) std::this_thread::yield();
  }
  EXPECT_EQ(pool.acquire()->dateTime().day, 9);
  EXPECT_EQ(pool.statistics().discarded, 1u);
}

TEST_F(Pools, NoticeAnEndThatCameWhileTheConnectionRested) {
  std::atomic<int> clients{0};
  std::atomic<bool> end{false};
  Peer peer([&](PeerConnection& client) {
    const int number = ++clients;
    client.welcome();
    if (number == 1) {
      while (!end) std::this_thread::yield();
      client.close();
      end = false;
      return;
    }
    client.receive();
    client.send(noxp::remote::DateTimeResponseProt(9, 0));
    client.waitForClient();
  });
  Pool pool(peer.uri());
  { const Pool::Lease first = pool.acquire(); }
  end = true;
  while (end) std::this_thread::yield();
  EXPECT_EQ(pool.acquire()->dateTime().day, 9);
}

TEST_F(Pools, CloseConnectionsThatNobodyWanted) {
  PoolOptions options;
  options.idle = milliseconds(1);
  Pool pool(peer_.uri(), options);
  { const Pool::Lease first = pool.acquire(); }
  passTime(options.idle);
  const Pool::Lease second = pool.acquire();
  EXPECT_EQ(pool.statistics().opened, 2u);
  EXPECT_EQ(pool.statistics().discarded, 1u);
}

TEST_F(Pools, CloseConnectionsThatNobodyWantedWhenOneComesBack) {
  std::atomic<int> ended{0};
  Peer peer([&ended](PeerConnection& client) {
    client.welcome();
    client.waitForEnd();
    ++ended;
  });
  PoolOptions options;
  options.idle = milliseconds(200);
  Pool pool(peer.uri(), options);
  std::optional<Pool::Lease> first(pool.acquire());
  std::optional<Pool::Lease> second(pool.acquire());
  first.reset();
  passTime(options.idle);
  EXPECT_EQ(ended, 0);
  second.reset();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (ended == 0 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  EXPECT_EQ(ended, 1) << "nobody asked the pool for anything";
}

TEST_F(Pools, CloseConnectionsThatNobodyWantedWhenTheyAreCounted) {
  PoolOptions options;
  options.idle = milliseconds(1);
  Pool pool(peer_.uri(), options);
  { const Pool::Lease only = pool.acquire(); }
  passTime(options.idle);
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_EQ(pool.statistics().discarded, 1u);
}

TEST_F(Pools, CloseConnectionsThatAreTooOld) {
  PoolOptions options;
  options.maxLife = milliseconds(1);
  Pool pool(peer_.uri(), options);
  {
    const Pool::Lease lease = pool.acquire();
    passTime(options.maxLife);
  }
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_EQ(pool.statistics().discarded, 1u);
}

TEST_F(Pools, CloseConnectionsThatWereChanged) {
  Pool pool(peer_.uri());
  pool.acquire()->setProperty("LOCK_WAIT", "1");
  EXPECT_EQ(pool.statistics().open, 0u);
}

TEST_F(Pools, CloseConnectionsThatRanAProgram) {
  Pool pool(peer_.uri());
  for (const char* const command : {"RUN SETC", "run SETC", "  Run", "ELSE", "", "COUNTED F"}) {
    pool.acquire()->execute(command);
    EXPECT_EQ(pool.statistics().open, 0u) << command;
  }
  pool.acquire()->call("SETC");
  EXPECT_EQ(pool.statistics().open, 0u);
}

TEST_F(Pools, UseAConnectionAgainAfterCommandsThatRunNone) {
  Pool pool(peer_.uri());
  for (const char* const command : {"LIST F", "  sselect F WITH A", "Who", "CREATE-FILE F"}) {
    pool.acquire()->execute(command);
    EXPECT_EQ(pool.statistics().open, 1u) << command;
  }
}

TEST_F(Pools, CloseConnectionsInATransaction) {
  Pool pool(peer_.uri());
  std::optional<Transaction> work;
  { work = pool.acquire()->begin(); }
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_THROW(work->commit(), Error);
}

TEST_F(Pools, CloseConnectionsOfWhichSomethingIsLeft) {
  Pool pool(peer_.uri());
  std::optional<File> file;
  { file = pool.acquire()->file("F"); }
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_THROW(file->exists("1"), Error);
}

TEST_F(Pools, CloseConnectionsThatAreDiscarded) {
  Pool pool(peer_.uri());
  Pool::Lease lease = pool.acquire();
  lease.discard();
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_EQ(pool.statistics().taken, 0u);
}

TEST_F(Pools, GiveLocksAndTheActiveListBack) {
  Pool pool(peer_.uri());
  {
    const Pool::Lease lease = pool.acquire();
    static_cast<void>(lease->file("F").read("1", Lock::Update));
    lease->execute("SELECT F");
  }
  pool.acquire()->dateTime();
  EXPECT_EQ(peer_.connections(), 1);
  EXPECT_EQ(countOf(TypeCode::ReleaseRecordLockRequest), 1);
  EXPECT_EQ(countOf(TypeCode::RemoteExecuteRequest), 2) << "the second clears the active list";
}

TEST_F(Pools, TakeAConnectionBackWhereAnotherLeaseTakesItsPlace) {
  Pool pool(peer_.uri());
  Pool::Lease lease = pool.acquire();
  Pool::Lease other = pool.acquire();
  lease = std::move(other);
  EXPECT_EQ(pool.statistics().taken, 1u);
  EXPECT_EQ(pool.statistics().open, 2u);
  EXPECT_EQ(lease->dateTime().day, 7);
}

TEST_F(Pools, SetTheRequestTimeoutBack) {
  Pool pool(peer_.uri());
  pool.acquire()->setRequestTimeout(milliseconds(1));
  EXPECT_EQ(pool.acquire()->requestTimeout(), milliseconds(90'000));
}

TEST_F(Pools, MayEndBeforeTheirLeases) {
  std::optional<Pool::Lease> lease;
  {
    Pool pool(peer_.uri());
    lease = pool.acquire();
  }
  EXPECT_EQ((*lease)->dateTime().day, 7);
  lease.reset();
}

TEST_F(Pools, SayWhyNoConnectionCouldBeOpened) {
  Pool pool("nox://ann@127.0.0.1:" + std::to_string(test::refusedPort()) + "?tls=off");
  try {
    pool.acquire();
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kCannotConnect);
  }
  EXPECT_EQ(pool.statistics().open, 0u);
  EXPECT_EQ(pool.statistics().taken, 0u);
}

}  // namespace
}  // namespace nox::client
