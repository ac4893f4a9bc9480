#include "nox/diag/mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace nox::test {
namespace {

TEST(Mutex, ItsOwnerMayLockItAgain) {
  Mutex mutex;
  mutex.Lock();
  mutex.Lock();
  mutex.Unlock();
  mutex.Unlock();
  // Free again: another thread gets it.
  std::thread([&] { const MutexGuard guard(mutex); }).join();
}

TEST(MutexThreads, KeepsOtherThreadsOutUntilTheLastUnlock) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  Mutex mutex;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        const MutexGuard outer(mutex);
        { const MutexGuard inner(mutex); }
        const int seen = counter;
        std::this_thread::yield();
        counter = seen + 1;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, kThreads * kRounds);
}

}  // namespace
}  // namespace nox::test
