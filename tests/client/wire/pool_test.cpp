// Many threads and a real noxd.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

class NoxdPoolsInThreads : public test::NoxdSession {};

TEST_F(NoxdPoolsInThreads, LoseNoUpdate) {
  constexpr int kThreads = 6;
  constexpr int kRounds = 30;
  Options patient = options();
  patient.requestTimeout = std::chrono::seconds(60);
  PoolOptions limits;
  limits.size = 4;
  limits.acquireTimeout = std::chrono::seconds(60);
  Pool pool(patient, limits);
  ann_.file(fileName()).write("counter", Record{"0"});
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      try {
        for (int round = 0; round < kRounds;) {
          const Pool::Lease lease = pool.acquire();
          File file = lease->file(fileName());
          ReadResult counter = file.read("counter", Lock::Update);
          if (counter.status == Status::Locked) continue;
          counter.record[1] = counter.record[1].toInt64() + 1;
          file.write("counter", counter.record);
          ++round;
        }
      } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
        ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(ann_.file(fileName()).read("counter"), Record{std::to_string(kThreads * kRounds)});
  EXPECT_LE(pool.statistics().opened, 4u);
}

TEST_F(NoxdPoolsInThreads, GiveLocksBackWithTheConnection) {
  PoolOptions limits;
  limits.size = 1;
  Pool pool(options(), limits);
  static_cast<void>(pool.acquire()->file(fileName()).read("1", Lock::Update));
  pool.acquire()->dateTime();
  EXPECT_EQ(ann_.file(fileName()).read("1", Lock::Update).status, Status::NotDone);
  EXPECT_EQ(pool.statistics().opened, 1u);
}

TEST_F(NoxdPoolsInThreads, LeaveNoActiveListBehind) {
  PoolOptions limits;
  limits.size = 1;
  Pool pool(options(), limits);
  ann_.file(fileName()).write("1", Record{"x"});
  ann_.file(fileName()).write("2", Record{"x"});
  pool.acquire()->execute("SELECT " + fileName() + " '1'");
  EXPECT_EQ(pool.acquire()->execute("COUNT " + fileName()).items(), 2);
}

TEST_F(NoxdPoolsInThreads, LeaveNoCommonsBehind) {
  PoolOptions limits;
  limits.size = 1;
  Pool pool(options(), limits);
  static_cast<void>(test::errorOf([this] { ann_.execute("CREATE-FILE NOX.SUBS"); }));
  ann_.file("NOX.SUBS").write("SETC", Record("nox.common.secret = 's3'"));
  pool.acquire()->call("SETC");
  EXPECT_EQ(pool.acquire()->common("secret"), Record());
  pool.acquire()->execute("RUN SETC");
  EXPECT_EQ(pool.acquire()->common("secret"), Record());
}

}  // namespace
}  // namespace nox::client
