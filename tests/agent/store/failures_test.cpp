// A store that cannot do what it should: each time a clear error, and nothing that was there lost.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "tests/agent/store/store_test.h"
#include "tests/support/signals.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;

/// No file of this process grows beyond `bytes`, as on a disk without room, while it lives.
class FullDisk {
public:
  explicit FullDisk(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

private:
  const nox::test::Disposition ignored_{SIGXFSZ, SIG_IGN};  // so that writes fail instead
  rlimit before_ = {};
};

class StoreFailures : public StoreTest {
protected:
  rlim_t logSize() const {
    return static_cast<rlim_t>(std::filesystem::file_size(databaseFile() + "-wal"));
  }

  std::unique_ptr<StoreSession> session = newSession();
};

TEST_F(StoreFailures, AWriteToAFullDiskFailsAndLeavesNothing) {
  session->write(kFile, "1", "Ann");
  {
    const FullDisk full(logSize());
    EXPECT_EQ(failure([&] { session->write(kFile, "2", std::string(100'000, 'x')); }),
              StoreError::Kind::Full);
    EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  }
  EXPECT_EQ(read(*session, "2"), std::nullopt);
  session->write(kFile, "3", "Cid");
  session.reset();
  reopen();
  EXPECT_EQ(read(*newSession(), "2"), std::nullopt);
  EXPECT_THAT(read(*newSession(), "3"), Optional(Eq("Cid")));
  EXPECT_THAT(engine->verify("MAIN"), IsEmpty());
}

TEST_F(StoreFailures, ACommitToAFullDiskFailsAndLeavesNothing) {
  session->write(kFile, "1", "Ann");
  session->begin(0);
  session->write(kFile, "1", "Bob");
  session->write(kFile, "2", std::string(100'000, 'x'));
  {
    const FullDisk full(logSize());
    EXPECT_EQ(failure([&] { session->commit(); }), StoreError::Kind::Full);
  }
  EXPECT_FALSE(session->inTransaction());
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_EQ(read(*session, "2"), std::nullopt);
  session->write(kFile, "1", "Cid");
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Cid")));
}

TEST_F(StoreFailures, ABranchThatFindsNoRoomToPrepareIsNotPrepared) {
  session->write(kFile, "1", "Ann");
  session->beginBranch();
  session->write(kFile, "2", std::string(100'000, 'x'));
  const auto branch = session->endBranch({7, "x"});
  {
    const FullDisk full(logSize());
    EXPECT_EQ(failure([&] { branch->prepare({}); }), StoreError::Kind::Full);
    EXPECT_FALSE(branch->prepared());
  }
  branch->prepare({});
  branch->commit(kNotAtAll);
  EXPECT_TRUE(session->exists(kFile, "2"));
}

TEST_F(StoreFailures, ABranchThatFindsNoRoomToCommitStaysPrepared) {
  session->beginBranch();
  session->write(kFile, "2", std::string(100'000, 'x'));
  const auto branch = session->endBranch({7, "x"});
  branch->prepare({});
  {
    const FullDisk full(logSize());
    EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Full);
  }
  EXPECT_FALSE(session->exists(kFile, "2"));
  branch->commit(kNotAtAll);
  EXPECT_TRUE(session->exists(kFile, "2"));
}

TEST_F(StoreFailures, AnAccountGrowsAsFarAsItMay) {
  session.reset();
  SqliteOptions options;
  options.mostBytes = 1024 * 1024;
  reopen(options);
  session = newSession();
  const std::string body(100'000, 'x');
  int written = 0;
  const auto full = failure([&] {
    for (; written < 100; ++written) session->write(kFile, std::to_string(written), body);
  });
  EXPECT_EQ(full, StoreError::Kind::Full);
  EXPECT_GE(written, 5);
  EXPECT_LE(written, 10);
  for (int i = 0; i < written; ++i) EXPECT_TRUE(session->exists(kFile, std::to_string(i)));
  session->remove(kFile, "0");
  session->write(kFile, "again", body);
  EXPECT_TRUE(session->exists(kFile, "again"));
}

TEST_F(StoreFailures, ADamagedPageIsReportedWhereItIsMet) {
  for (int i = 0; i < 1000; ++i) session->write(kFile, std::to_string(i), std::string(100, 'x'));
  session.reset();
  engine.reset();
  const auto size = std::filesystem::file_size(databaseFile());
  {
    std::fstream file(databaseFile(), std::ios::in | std::ios::out | std::ios::binary);
    constexpr std::uintmax_t kPage = 4096;
    file.seekp(static_cast<std::streamoff>(size / 2 / kPage * kPage));
    file << std::string(size / 4, '\x55');
  }
  reopen();
  session = newSession();
  EXPECT_EQ(failure([&] {
              for (int i = 0; i < 1000; ++i) session->exists(kFile, std::to_string(i));
            }),
            StoreError::Kind::Damaged);
}

TEST_F(StoreFailures, ADirectoryThatMayNotBeWrittenIsReported) {
  session.reset();
  engine.reset();
  ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(databaseFile().c_str(), 0644), 0);
  // As a user who owns nothing here; one who may do everything would not be refused.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    const bool isOther = geteuid() != 0 || setuid(kNobody) == 0;
    if (geteuid() != kNobody) chmod(directory.path().c_str(), 0555);
    if (!isOther) _exit(3);
    engine = makeSqliteEngine(directory.path(), {});
    const bool isOpenRefused = reason([&] {
                                 newSession()->write(kFile, "1", "Ann");
                               }).find("may not be written") != std::string::npos;
    const bool isCreationRefused = reason([&] {
                                     engine->createAccount("NEW");
                                   }).find("Permission denied") != std::string::npos;
    _exit(isOpenRefused && isCreationRefused ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
}

// Deadlines.

TEST_F(StoreFailures, WorkEndsAtItsDeadline) {
  session->setDeadline(std::chrono::steady_clock::now() + std::chrono::milliseconds(20));
  EXPECT_EQ(failure([&] {
              answer(*session,
                     "WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c)"
                     " SELECT count(*) FROM c");
            }),
            StoreError::Kind::Interrupted);
  session->setDeadline(std::nullopt);
  session->write(kFile, "1", "Ann");
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(StoreFailures, AWaitForAWriterEndsAtTheDeadline) {
  const auto other = newSession();
  other->begin(0);
  other->write(kFile, "1", "Ann");
  session->setWait(kForEver);
  session->setDeadline(std::chrono::steady_clock::now() + std::chrono::milliseconds(5));
  EXPECT_EQ(failure([&] { session->write(kFile, "2", "Bob"); }), StoreError::Kind::Interrupted);
}

TEST_F(StoreFailures, AnInterruptEndsAllWorkUntilTheNextDeadlineIsSet) {
  session->write(kFile, "1", "Ann");
  session->interrupt();
  EXPECT_EQ(failure([&] { read(*session, "1"); }), StoreError::Kind::Interrupted);
  EXPECT_EQ(failure([&] { session->write(kFile, "1", "Bob"); }), StoreError::Kind::Interrupted);
  session->setDeadline(std::nullopt);
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(StoreFailures, AnInterruptDoesNotReachOtherSessions) {
  session->write(kFile, "1", "Ann");
  session->interrupt();
  EXPECT_THAT(read(*newSession(), "1"), Optional(Eq("Ann")));
}

TEST_F(StoreFailures, AnInterruptedTransactionIsRolledBack) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->interrupt();
  session->rollback();
  session->setDeadline(std::nullopt);
  EXPECT_EQ(read(*session, "1"), std::nullopt);
}

TEST_F(StoreFailures, AWriterOfAnotherProcessIsWaitedFor) {
  // A connection beside the store's, as another process has.
  SqliteConnection foreign(store().connections().options());
  foreign.beginWriting(kNotAtAll);
  session->setWait(kNotAtAll);
  session->begin(0);
  EXPECT_EQ(failure([&] { session->write(kFile, "1", "Ann"); }), StoreError::Kind::Busy);
  foreign.rollback();
  session->write(kFile, "1", "Ann");
  session->commit();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

}  // namespace
}  // namespace nox::agent::test
