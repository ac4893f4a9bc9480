// Sessions of several threads on one account: shared commits, isolation, and no answer mixed up.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/agent/store/store_test.h"
#include "tests/support/signals.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::IsEmpty;
using ::testing::Optional;

class StoreThreads : public StoreTest {
protected:
  ~StoreThreads() override { joinAll(); }

  /// Lets `work` run in a thread with a session of its own.
  void start(std::function<void(StoreSession&)> work) {
    threads.emplace_back([this, work = std::move(work)] {
      const auto session = newSession();
      session->setWait(kForEver);
      work(*session);
    });
  }
  /// The same, and returns when it waits for the writer's place as the newest of `waiting`.
  void startAndQueue(std::size_t waiting, std::function<void(StoreSession&)> work) {
    start(std::move(work));
    ASSERT_TRUE(eventually([&] { return store().writerPlace().waiting() == waiting; }));
  }
  void joinAll() {
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }

  std::vector<std::thread> threads;
};

TEST_F(StoreThreads, WhatIsAcknowledgedIsSeenByReadsThatBeginLater) {
  constexpr int kWrites = 500;
  newSession()->write(kFile, "1", "0");
  std::atomic<int> acknowledged{0};
  std::atomic<int> stale{0};
  for (int i = 0; i < 3; ++i) {
    start([&](StoreSession& session) {
      for (int known = 0; known < kWrites;) {
        known = acknowledged;
        if (std::stoi(read(session, "1").value_or("-1")) < known) ++stale;
      }
    });
  }
  start([&](StoreSession& session) {
    for (int i = 1; i <= kWrites; ++i) {
      session.write(kFile, "1", std::to_string(i));
      acknowledged = i;
    }
  });
  joinAll();
  EXPECT_EQ(stale, 0);
}

TEST_F(StoreThreads, ChangesThatWaitShareACommitAndKeepTheirOwnResults) {
  const auto holder = newSession();
  holder->write(kFile, "there", "x");
  holder->begin(0);
  holder->write(kFile, "holder", "x");
  const FilePart nowhere{"NOWHERE", Part::Data};

  std::atomic<int> right{0};
  const auto check = [&](bool isRight) { right += isRight ? 1 : 0; };
  startAndQueue(1, [&](StoreSession& s) { s.write(kFile, "1", "Ann"); });
  startAndQueue(2, [&](StoreSession& s) { check(!s.writeNew(kFile, "there", "y")); });
  startAndQueue(3, [&](StoreSession& s) { check(s.writeNew(kFile, "2", "Bob")); });
  startAndQueue(4, [&](StoreSession& s) { check(!s.remove(kFile, "missing")); });
  startAndQueue(5, [&](StoreSession& s) { check(s.remove(kFile, "there")); });
  startAndQueue(6, [&](StoreSession& s) {
    check(failure([&] { s.write(nowhere, "1", "x"); }) == StoreError::Kind::NoFile);
  });
  startAndQueue(7, [&](StoreSession& s) {
    check(failure([&] {
            s.writeAll({{kFile, "half", "x"}, {nowhere, "1", "x"}});
          }) == StoreError::Kind::NoFile);
  });
  startAndQueue(8, [&](StoreSession& s) { check(s.createFile("ORDERS")); });
  startAndQueue(9, [&](StoreSession& s) { s.writeAll({{kFile, "3", "Cid"}, {kDict, "3", "D"}}); });

  const std::uint64_t before = store().statistics().commits;
  holder->commit();
  joinAll();
  EXPECT_EQ(right, 7);
  EXPECT_EQ(store().statistics().commits - before, 2u);  // the holder's, and one for all

  EXPECT_THAT(read(*holder, "1"), Optional(Eq("Ann")));
  EXPECT_THAT(read(*holder, "2"), Optional(Eq("Bob")));
  EXPECT_THAT(read(*holder, "3"), Optional(Eq("Cid")));
  EXPECT_EQ(read(*holder, "there"), std::nullopt);
  EXPECT_EQ(read(*holder, "half"), std::nullopt);
  EXPECT_TRUE(holder->hasFile("ORDERS"));
}

TEST_F(StoreThreads, AFileThatFailsToBeMadeDoesNotLendItsNumberToAnother) {
  const auto holder = newSession();
  holder->begin(0);
  holder->write(kFile, "holder", "x");
  std::atomic<bool> isRefused{false};
  startAndQueue(1, [&](StoreSession& s) { s.createFile("ORDERS"); });
  startAndQueue(2, [&](StoreSession& s) {
    isRefused = failure([&] { s.createFile("A B"); }) == StoreError::Kind::Failed;
  });
  startAndQueue(3, [&](StoreSession& s) { s.createFile("ITEMS"); });
  holder->commit();
  joinAll();
  EXPECT_TRUE(isRefused);
  holder->write({"ORDERS", Part::Data}, "1", "order");
  holder->write({"ITEMS", Part::Data}, "1", "item");
  EXPECT_THAT(read(*holder, "1", {"ORDERS", Part::Data}), Optional(Eq("order")));
  EXPECT_THAT(engine->verify("MAIN"), IsEmpty());
}

TEST_F(StoreThreads, AGroupThatCannotBeCommittedFailsAsAWhole) {
  const auto holder = newSession();
  holder->write(kFile, "there", "x");
  holder->begin(0);
  holder->write(kFile, "holder", "x");
  constexpr std::size_t kWriters = 5;
  std::atomic<std::size_t> full{0};
  for (std::size_t i = 0; i < kWriters; ++i) {
    startAndQueue(i + 1, [&, i](StoreSession& session) {
      const auto kind =
          failure([&] { session.write(kFile, std::to_string(i), std::string(20'000, 'x')); });
      if (kind == StoreError::Kind::Full) ++full;
    });
  }
  {
    // No file grows any more, as on a disk without room.
    const nox::test::Disposition ignored(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto size = std::filesystem::file_size(databaseFile() + "-wal");
    const rlimit limit = {static_cast<rlim_t>(size), before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    holder->rollback();
    joinAll();
    setrlimit(RLIMIT_FSIZE, &before);
  }
  EXPECT_EQ(full, kWriters);
  for (std::size_t i = 0; i < kWriters; ++i) {
    EXPECT_EQ(read(*holder, std::to_string(i)), std::nullopt);
  }
  holder->write(kFile, "0", "Ann");
  EXPECT_THAT(read(*holder, "0"), Optional(Eq("Ann")));
}

TEST_F(StoreThreads, ConcurrentWritersLoseNothing) {
  constexpr int kWriters = 4;
  constexpr int kRecords = 50;
  for (int writer = 0; writer < kWriters; ++writer) {
    start([writer](StoreSession& session) {
      for (int i = 0; i < kRecords; ++i) {
        const std::string id = std::to_string(writer) + "." + std::to_string(i);
        session.write(kFile, id, id);
        // Acknowledged, so there for everybody, and first of all for oneself.
        EXPECT_THAT(read(session, id), Optional(Eq(id)));
      }
    });
  }
  joinAll();
  EXPECT_EQ(newSession()->clear(kFile), static_cast<std::uint64_t>(kWriters * kRecords));
}

TEST_F(StoreThreads, TransactionsOfSeveralSessionsFollowOneAnother) {
  newSession()->write(kFile, "counter", "0");
  constexpr int kSessions = 4;
  constexpr int kRounds = 20;
  for (int i = 0; i < kSessions; ++i) {
    start([](StoreSession& session) {
      for (int round = 0; round < kRounds; ++round) {
        session.begin(0);
        session.write(kFile, "mine", "x");  // takes the writer's place, so the next read is safe
        const int counter = std::stoi(read(session, "counter").value_or("0"));
        session.write(kFile, "counter", std::to_string(counter + 1));
        if (round % 4 == 0) {
          session.rollback();
        } else {
          session.commit();
        }
      }
    });
  }
  joinAll();
  EXPECT_THAT(read(*newSession(), "counter"),
              Optional(Eq(std::to_string(kSessions * kRounds * 3 / 4))));
}

TEST_F(StoreThreads, ReadersSeeChangesThatBelongTogetherTogether) {
  newSession()->writeAll({{kFile, "a", "0"}, {kFile, "b", "0"}});
  std::atomic<bool> isOver{false};
  for (int i = 0; i < 2; ++i) {
    start([&](StoreSession& session) {
      while (!isOver) {
        const auto cursor = session.scan(kFile, true);
        std::vector<std::string> bodies;
        while (cursor->next()) bodies.emplace_back(cursor->body());
        ASSERT_EQ(bodies.size(), 2u);
        EXPECT_EQ(bodies[0], bodies[1]);
      }
    });
  }
  start([&](StoreSession& session) {
    for (int i = 1; i <= 100; ++i) {
      const std::string body = std::to_string(i);
      session.writeAll({{kFile, "a", body}, {kFile, "b", body}});
    }
    isOver = true;
  });
  joinAll();
}

TEST_F(StoreThreads, FilesComeAndGoUnderTheirReaders) {
  std::atomic<bool> isOver{false};
  for (int i = 0; i < 2; ++i) {
    start([&](StoreSession& session) {
      while (!isOver) {
        try {
          const auto body = read(session, "1");
          if (body) {
            EXPECT_EQ(*body, "Ann");
          }
        } catch (const StoreError& error) {
          EXPECT_EQ(error.kind(), StoreError::Kind::NoFile) << error.what();
        }
      }
    });
  }
  start([&](StoreSession& session) {
    for (int i = 0; i < 30; ++i) {
      session.deleteFile(kFile.file);
      session.createFile(kFile.file);
      session.write(kFile, "1", "Ann");
    }
    isOver = true;
  });
  joinAll();
}

TEST_F(StoreThreads, AnInterruptEndsAWaitForTheWritersPlace) {
  const auto holder = newSession();
  holder->begin(0);
  holder->write(kFile, "1", "Ann");
  const auto waiter = newSession();  // outlives who interrupts it
  waiter->setWait(kForEver);
  std::atomic<bool> wasInterrupted{false};
  startAndQueue(1, [&](StoreSession&) {
    wasInterrupted =
        failure([&] { waiter->write(kFile, "2", "Bob"); }) == StoreError::Kind::Interrupted;
  });
  waiter->interrupt();
  joinAll();
  EXPECT_TRUE(wasInterrupted);
  holder->commit();
  EXPECT_EQ(read(*holder, "2"), std::nullopt);
}

TEST_F(StoreThreads, AnInterruptEndsWorkThatRuns) {
  const auto session = newSession();  // outlives who interrupts it
  std::atomic<bool> isRunning{false};
  std::atomic<bool> wasInterrupted{false};
  start([&](StoreSession&) {
    const auto statement = session->prepare(
        "WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c) SELECT n FROM c", true);
    wasInterrupted = failure([&] {
                       statement->execute({});
                       while (statement->next() != nullptr) isRunning = true;
                     }) == StoreError::Kind::Interrupted;
  });
  ASSERT_TRUE(eventually([&] { return isRunning.load(); }));
  session->interrupt();
  joinAll();
  EXPECT_TRUE(wasInterrupted);
}

TEST_F(StoreThreads, BranchesAndWritersDoNotStandInEachOthersWay) {
  constexpr int kRounds = 20;
  start([](StoreSession& session) {
    for (int i = 0; i < kRounds; ++i) {
      session.beginBranch();
      session.write(kFile, "branch", std::to_string(i));
      const auto branch = session.endBranch({1, std::to_string(i)});
      branch->prepare({{kFile, "branch", true}});
      branch->commit(kForEver);
    }
  });
  start([](StoreSession& session) {
    for (int i = 0; i < kRounds; ++i) session.write(kFile, "writer", std::to_string(i));
  });
  joinAll();
  const std::string last = std::to_string(kRounds - 1);
  EXPECT_THAT(read(*newSession(), "branch"), Optional(Eq(last)));
  EXPECT_THAT(read(*newSession(), "writer"), Optional(Eq(last)));
}

TEST_F(StoreThreads, ABackupIsMadeWhileOthersWrite) {
  newSession()->writeAll({{kFile, "a", "0"}, {kFile, "b", "0"}});
  std::filesystem::create_directory(directory.file("copy"));
  std::atomic<bool> isOver{false};
  start([&](StoreSession& session) {
    for (int i = 1; !isOver; ++i) {
      const std::string body = std::to_string(i);
      session.writeAll({{kFile, "a", body}, {kFile, "b", body}});
    }
  });
  engine->backup("MAIN", directory.file("copy/MAIN.db"));
  isOver = true;
  joinAll();
  const auto copy = makeSqliteEngine(directory.file("copy"), {});
  const auto session = copy->open("MAIN").openSession();
  EXPECT_EQ(read(*session, "a"), read(*session, "b"));
  EXPECT_THAT(copy->verify("MAIN"), IsEmpty());
}

}  // namespace
}  // namespace nox::agent::test
