// Accounts of a data directory: made whole, told apart from other files, refused when unknown.
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;

namespace fs = std::filesystem;

class Accounts : public StoreTest {
protected:
  /// Runs statements on the account's file, as a stranger with a shell would.
  void tamper(const char* statements) {
    engine.reset();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(databaseFile().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    reopen();
  }

  std::int64_t synchronisation() {
    const ConnectionLease connection = store().connections().borrow(nullptr);
    Statement ask = connection->prepare("PRAGMA synchronous");
    ask.step();
    return ask.integer(0);
  }
};

TEST_F(Accounts, AreListedInOrder) {
  engine->createAccount("b");
  engine->createAccount("A.db");
  EXPECT_THAT(engine->accounts(), ElementsAre("A.db", "MAIN", "b"));
}

TEST_F(Accounts, AreTheFilesOfTheDirectoryThatLookLikeThem) {
  std::ofstream(directory.file("notes.txt")) << "x";
  std::ofstream(directory.file("-odd.db")) << "x";
  fs::create_directory(directory.file("folder.db"));
  EXPECT_THAT(engine->accounts(), ElementsAre("MAIN"));
}

TEST_F(Accounts, OfADirectoryThatIsNotThereAreNone) {
  const auto elsewhere = makeSqliteEngine(directory.file("missing"), {});
  EXPECT_THAT(elsewhere->accounts(), IsEmpty());
  EXPECT_FALSE(elsewhere->hasAccount("MAIN"));
}

TEST_F(Accounts, OfADirectoryThatCannotBeReadAreNotTakenForNone) {
  std::ofstream(directory.file("flat")) << "x";
  const auto elsewhere = makeSqliteEngine(directory.file("flat"), {});
  EXPECT_THAT(reason([&] { elsewhere->accounts(); }), HasSubstr("flat"));
}

TEST_F(Accounts, MakeTheirDirectoryWithTheFirstOne) {
  const auto elsewhere = makeSqliteEngine(directory.file("a/b"), {});
  elsewhere->createAccount("MAIN");
  EXPECT_TRUE(elsewhere->hasAccount("MAIN"));
}

TEST_F(Accounts, AreMadeOnce) {
  newSession()->write(kFile, "1", "Ann");
  EXPECT_EQ(failure([&] { engine->createAccount("MAIN"); }), StoreError::Kind::Failed);
  EXPECT_THAT(read(*newSession(), "1"), Optional(Eq("Ann")));
}

TEST_F(Accounts, LeaveNothingElseBehindWhenTheyAreMade) {
  engine->createAccount("NEW");
  for (const auto& entry : fs::directory_iterator(directory.path())) {
    EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("new")));
  }
}

TEST_F(Accounts, CannotHaveNamesThatLeadElsewhere) {
  for (const char* name : {"", "../MAIN", "a/b", ".hidden", "a b"}) {
    EXPECT_EQ(failure([&] { engine->createAccount(name); }), StoreError::Kind::Failed) << name;
    EXPECT_FALSE(engine->hasAccount(name)) << name;
    EXPECT_EQ(failure([&] { engine->open(name); }), StoreError::Kind::Failed) << name;
  }
}

TEST_F(Accounts, AreOpenedOnce) { EXPECT_EQ(&engine->open("MAIN"), &engine->open("MAIN")); }

TEST_F(Accounts, ThatAreUnknownAreNotOpened) {
  EXPECT_THAT(reason([&] { engine->open("NOWHERE"); }), HasSubstr("no account NOWHERE"));
}

TEST_F(Accounts, AreReadableByTheirOwnerAlone) {
  newSession()->write(kFile, "1", "Ann");
  for (const char* suffix : {"", "-wal"}) {
    struct stat status = {};
    ASSERT_EQ(stat((databaseFile() + suffix).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u) << suffix;
  }
}

TEST_F(Accounts, KeepTheirRecordsApart) {
  engine->createAccount("OTHER");
  newSession()->write(kFile, "1", "Ann");
  const auto session = engine->open("OTHER").openSession();
  EXPECT_FALSE(session->hasFile(kFile.file));
}

TEST_F(Accounts, OfANewerAgentAreRefused) {
  tamper("PRAGMA user_version = 99");
  EXPECT_THAT(reason([&] { engine->open("MAIN"); }),
              AllOf(HasSubstr("MAIN"), HasSubstr("a newer agent"), HasSubstr("99")));
}

TEST_F(Accounts, ThatAreOtherDatabasesAreRefused) {
  tamper("PRAGMA application_id = 1");
  EXPECT_EQ(failure([&] { engine->open("MAIN"); }), StoreError::Kind::Damaged);
}

TEST_F(Accounts, ThatAreEmptyFilesAreRefused) {
  std::ofstream(directory.file("EMPTY.db"));
  EXPECT_EQ(failure([&] { engine->open("EMPTY"); }), StoreError::Kind::Damaged);
}

TEST_F(Accounts, ThatAreNoDatabasesAreRefused) {
  std::ofstream(directory.file("TEXT.db")) << std::string(10'000, 'x');
  EXPECT_EQ(failure([&] { engine->open("TEXT"); }), StoreError::Kind::Damaged);
  EXPECT_THAT(reason([&] { engine->open("TEXT"); }), HasSubstr("TEXT.db"));
}

TEST_F(Accounts, ReturnToTheWriteAheadLog) {
  tamper("PRAGMA journal_mode = DELETE");
  const auto session = newSession();
  session->begin(0);
  session->write(kFile, "1", "Ann");
  EXPECT_EQ(read(*newSession(), "1"), std::nullopt);  // a reader beside a writer
}

TEST_F(Accounts, MayBeMadeWithoutFullSynchronisation) {
  SqliteOptions options;
  options.synchronousFull = false;
  reopen(options);
  EXPECT_EQ(synchronisation(), 1);
}

TEST_F(Accounts, AreSynchronisedFullyUnlessToldOtherwise) {
  reopen(SqliteOptions());
  EXPECT_EQ(synchronisation(), 2);
}

/// Runs `work` in a process of its own, which ends by SIGKILL at its end.
template <class Work>
void inProcessThatIsKilled(Work work) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    work();
    raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

TEST_F(Accounts, KeepWhatWasAcknowledgedWhenTheAgentIsKilled) {
  engine.reset();
  inProcessThatIsKilled([&] {
    reopen();
    newSession()->write(kFile, "1", "Ann");
    const auto branching = newSession();
    branching->beginBranch();
    branching->write(kFile, "3", "Cid");
    branching->endBranch({7, "prepared"})->prepare({{kFile, "3", true}});
    // Stays open, so that its destructor does not roll it back before the end comes.
    auto* const open = newSession().release();
    open->begin(0);
    open->write(kFile, "2", "Bob");
  });
  reopen();
  EXPECT_THAT(read(*newSession(), "1"), Optional(Eq("Ann")));
  EXPECT_EQ(read(*newSession(), "2"), std::nullopt);
  EXPECT_THAT(engine->verify("MAIN"), IsEmpty());
  const auto branches = store().takePreparedBranches();
  ASSERT_EQ(branches.size(), 1u);
  branches[0]->commit(kNotAtAll);
  EXPECT_THAT(read(*newSession(), "3"), Optional(Eq("Cid")));
}

}  // namespace
}  // namespace nox::agent::test
