// Branches of distributed transactions: out of the store between their end and their commit.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::SizeIs;

const BranchId kId{7, "gtrid:bqual"};

class StoreBranches : public StoreTest {
protected:
  StoreBranches() {
    session->write(kFile, "1", "Ann");
    other->setWait(kNotAtAll);
  }

  /// A branch that has ended, in which `work` was done.
  template <class Work>
  std::unique_ptr<StoreBranch> branchWith(Work work) {
    session->beginBranch();
    work();
    return session->endBranch(kId);
  }
  std::unique_ptr<StoreBranch> branchThatWrites(const std::string& id, const std::string& body) {
    return branchWith([&] { session->write(kFile, id, body); });
  }

  /// As after a restart: the prepared branches of the account.
  std::vector<std::unique_ptr<StoreBranch>> restart() {
    session.reset();
    other.reset();
    reopen();
    session = newSession();
    other = newSession();
    return store().takePreparedBranches();
  }

  std::unique_ptr<StoreSession> session = newSession();
  std::unique_ptr<StoreSession> other = newSession();
};

TEST_F(StoreBranches, SeeTheirOwnChangesUntilTheyEnd) {
  session->beginBranch();
  EXPECT_TRUE(session->inTransaction());
  session->write(kFile, "1", "Bob");
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Bob")));
  const auto branch = session->endBranch(kId);
  EXPECT_FALSE(session->inTransaction());
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_TRUE(branch->id() == kId);
}

TEST_F(StoreBranches, LeaveTheStoreToOthersWhenTheyEnd) {
  const auto branch = branchThatWrites("2", "Bob");
  other->write(kFile, "3", "Cid");
  EXPECT_EQ(read(*other, "2"), std::nullopt);
  EXPECT_EQ(store().connections().borrowed(), 0u);
}

TEST_F(StoreBranches, ApplyTheirChangesWhenTheyAreCommitted) {
  const auto branch = branchWith([&] {
    session->write(kFile, "1", "Bob");
    session->write(kFile, "2", "Cid");
    session->write(kFile, "3", "Dan");
    session->remove(kFile, "3");
    session->write(kDict, "NAME", "D");
  });
  branch->prepare({});
  branch->commit(kNotAtAll);
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Bob")));
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Cid")));
  EXPECT_EQ(read(*other, "3"), std::nullopt);
  EXPECT_THAT(read(*other, "NAME", kDict), Optional(Eq("D")));
}

TEST_F(StoreBranches, AreCommittedWithoutBeingPrepared) {
  const auto branch = branchWith([&] { session->remove(kFile, "1"); });
  EXPECT_FALSE(branch->prepared());
  branch->commit(kNotAtAll);
  EXPECT_EQ(read(*other, "1"), std::nullopt);
}

TEST_F(StoreBranches, LeaveNothingWhenTheyAreRolledBack) {
  const auto branch = branchThatWrites("1", "Bob");
  branch->prepare({});
  branch->rollback(kNotAtAll);
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Ann")));
  EXPECT_THAT(restart(), IsEmpty());
}

TEST_F(StoreBranches, LeaveNothingWhenTheirSessionRollsThemBack) {
  session->beginBranch();
  session->write(kFile, "1", "Bob");
  session->rollback();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  other->write(kFile, "2", "Cid");
}

TEST_F(StoreBranches, WithoutChangesAreCommittedToo) {
  const auto branch = branchWith([] {});
  branch->prepare({});
  branch->commit(kNotAtAll);
  EXPECT_THAT(restart(), IsEmpty());
}

TEST_F(StoreBranches, SurviveARestartWhenTheyArePrepared) {
  const LockedRecord updated{kFile, "1", true};
  const LockedRecord shared{kDict, "\xC3\xA4'\"", false};
  {
    const auto branch = branchThatWrites("1", "Bob");
    branch->prepare({updated, shared});
    EXPECT_TRUE(branch->prepared());
  }
  const auto branches = restart();
  ASSERT_THAT(branches, SizeIs(1));
  EXPECT_TRUE(branches[0]->id() == kId);
  EXPECT_TRUE(branches[0]->prepared());
  ASSERT_THAT(branches[0]->locks(), SizeIs(2));
  for (const LockedRecord& lock : branches[0]->locks()) {
    const LockedRecord& expected = lock.update ? updated : shared;
    EXPECT_EQ(lock.file, expected.file);
    EXPECT_EQ(lock.id, expected.id);
  }
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  branches[0]->commit(kNotAtAll);
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Bob")));
  EXPECT_THAT(restart(), IsEmpty());
}

TEST_F(StoreBranches, ThatWereNotPreparedDieWithTheirAgent) {
  { const auto branch = branchThatWrites("1", "Bob"); }
  EXPECT_THAT(restart(), IsEmpty());
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(StoreBranches, AreTakenOverOnce) {
  branchThatWrites("1", "Bob")->prepare({});
  EXPECT_THAT(restart(), SizeIs(1));
  EXPECT_THAT(store().takePreparedBranches(), IsEmpty());
}

TEST_F(StoreBranches, OfTheSameNameArePreparedOnce) {
  const auto first = branchThatWrites("1", "Bob");
  const auto second = branchThatWrites("2", "Cid");
  first->prepare({});
  EXPECT_EQ(failure([&] { second->prepare({}); }), StoreError::Kind::Duplicate);
  EXPECT_FALSE(second->prepared());
  EXPECT_THAT(restart(), SizeIs(1));
}

TEST_F(StoreBranches, WaitForWritersOnlyAsLongAsTheyAreTold) {
  const auto branch = branchThatWrites("1", "Bob");
  branch->prepare({});
  other->begin(0);
  other->write(kFile, "9", "x");
  EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Busy);
  EXPECT_EQ(failure([&] { branch->rollback(kNotAtAll); }), StoreError::Kind::Busy);
  other->rollback();
  branch->commit(kNotAtAll);
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Bob")));
}

// Conflicts.

TEST_F(StoreBranches, ThatNoLongerFitChangeNothing) {
  const auto branch = branchWith([&] {
    session->write(kFile, "1", "Bob");
    session->write(kFile, "2", "Cid");
  });
  branch->prepare({});
  other->write(kFile, "1", "changed");
  EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Conflict);
  EXPECT_THAT(read(*other, "1"), Optional(Eq("changed")));
  EXPECT_EQ(read(*other, "2"), std::nullopt);
  EXPECT_TRUE(branch->prepared());
}

TEST_F(StoreBranches, ThatNoLongerFitSayWhichFileHasChanged) {
  const auto branch = branchThatWrites("1", "Bob");
  other->remove(kFile, "1");
  EXPECT_THAT(reason([&] { branch->commit(kNotAtAll); }), HasSubstr("deleted since in CUSTOMERS"));
}

TEST_F(StoreBranches, ThatDoNotFitMayFitLater) {
  const auto branch = branchThatWrites("2", "Bob");
  branch->prepare({});
  other->write(kFile, "2", "in the way");
  EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Conflict);
  other->remove(kFile, "2");
  branch->commit(kNotAtAll);
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Bob")));
}

TEST_F(StoreBranches, ConflictWhenTheirFileIsGone) {
  const auto branch = branchThatWrites("2", "Bob");
  other->deleteFile(kFile.file);
  EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Conflict);
}

TEST_F(StoreBranches, ConflictWhenTheirFileWasMadeAgain) {
  const auto branch = branchThatWrites("2", "Bob");
  other->deleteFile(kFile.file);
  other->createFile(kFile.file);
  EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Conflict);
  EXPECT_EQ(read(*other, "2"), std::nullopt);
}

// What is recorded.

TEST_F(StoreBranches, RecordThatAPartWasCleared) {
  session->write(kFile, "2", "Bob");
  session->clear(kDict);  // the statement is known from outside
  const auto branch = branchWith([&] { EXPECT_EQ(session->clear(kFile), 2u); });
  EXPECT_TRUE(session->exists(kFile, "1"));
  branch->commit(kNotAtAll);
  EXPECT_FALSE(session->exists(kFile, "1"));
  EXPECT_FALSE(session->exists(kFile, "2"));
}

TEST_F(StoreBranches, RecordADeletionThatWasPreparedBeforeTheyBegan) {
  sql(*session, "CREATE TABLE t(id INTEGER PRIMARY KEY)");
  sql(*session, "INSERT INTO t VALUES(1), (2)");
  const auto statement = session->prepare("DELETE FROM t", true);
  statement->execute({});
  sql(*session, "INSERT INTO t VALUES(3), (4)");
  const auto branch = branchWith([&] { statement->execute({}); });
  EXPECT_EQ(answer(*session, "SELECT count(*) FROM t"), "2");
  branch->commit(kNotAtAll);
  EXPECT_EQ(answer(*session, "SELECT count(*) FROM t"), "0");
}

TEST_F(StoreBranches, RecordOnlyWhatWasDoneBeforeTheirMarkWhenTheyReturnToIt) {
  const auto branch = branchWith([&] {
    session->write(kFile, "1", "Bob");
    session->setMark();
    session->write(kFile, "1", "Cid");
    session->write(kFile, "2", "Dan");
    session->rollbackToMark();
  });
  branch->commit(kNotAtAll);
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Bob")));
  EXPECT_EQ(read(*other, "2"), std::nullopt);
}

TEST_F(StoreBranches, RecordNothingOfWhatTheyUndidFromTheStart) {
  const auto branch = branchWith([&] {
    session->setMark();
    session->write(kFile, "1", "Bob");
    session->rollbackToMark();
    session->write(kFile, "2", "Cid");
  });
  branch->commit(kNotAtAll);
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Ann")));
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Cid")));
}

TEST_F(StoreBranches, RecordTablesBesideRecords) {
  sql(*session, "CREATE TABLE t(id TEXT PRIMARY KEY, amount INTEGER)");
  sql(*session, "INSERT INTO t VALUES('a', 1)");
  const auto branch = branchWith([&] {
    sql(*session, "UPDATE t SET amount = 5");
    sql(*session, "INSERT INTO t VALUES('b', 2)");
    session->write(kFile, "2", "Bob");
  });
  EXPECT_EQ(answer(*session, "SELECT sum(amount) FROM t"), "1");
  branch->commit(kNotAtAll);
  EXPECT_EQ(answer(*session, "SELECT sum(amount) FROM t"), "7");
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Bob")));
}

TEST_F(StoreBranches, DoNotRunTriggersTwice) {
  sql(*session, "CREATE TABLE t(id INTEGER PRIMARY KEY)");
  sql(*session, "CREATE TABLE log(id INTEGER PRIMARY KEY, entry TEXT)");
  sql(*session,
      "CREATE TRIGGER logged AFTER INSERT ON t"
      " BEGIN INSERT INTO log(entry) VALUES('added ' || NEW.id); END");
  const auto branch = branchWith([&] { sql(*session, "INSERT INTO t VALUES(1)"); });
  branch->commit(kNotAtAll);
  EXPECT_EQ(answer(*session, "SELECT entry FROM log"), "added 1");
}

TEST_F(StoreBranches, ApplyWhatReferencesBroughtWithThem) {
  sql(*session, "CREATE TABLE parents(id INTEGER PRIMARY KEY)");
  sql(*session,
      "CREATE TABLE children(id INTEGER PRIMARY KEY,"
      " parent INTEGER REFERENCES parents(id) ON DELETE CASCADE)");
  sql(*session,
      "CREATE TABLE friends(id INTEGER PRIMARY KEY,"
      " parent INTEGER REFERENCES parents(id) ON DELETE SET NULL)");
  sql(*session, "INSERT INTO parents VALUES(1), (2)");
  sql(*session, "INSERT INTO children VALUES(10, 1), (20, 2)");
  sql(*session, "INSERT INTO friends VALUES(10, 1), (20, 2)");
  const auto branch = branchWith([&] { sql(*session, "DELETE FROM parents WHERE id = 1"); });
  branch->commit(kNotAtAll);
  EXPECT_EQ(answer(*session, "SELECT id FROM children"), "20");
  EXPECT_EQ(answer(*session, "SELECT parent FROM friends ORDER BY id"), "null,2");
}

TEST_F(StoreBranches, ConflictWhenAReferenceWouldLeadNowhere) {
  sql(*session, "CREATE TABLE parents(id INTEGER PRIMARY KEY)");
  sql(*session,
      "CREATE TABLE children(id INTEGER PRIMARY KEY, parent INTEGER REFERENCES parents(id))");
  sql(*session, "INSERT INTO parents VALUES(1)");
  const auto branch = branchWith([&] { sql(*session, "INSERT INTO children VALUES(10, 1)"); });
  sql(*other, "DELETE FROM parents");
  EXPECT_EQ(failure([&] { branch->commit(kNotAtAll); }), StoreError::Kind::Conflict);
  EXPECT_EQ(answer(*session, "SELECT count(*) FROM children"), "0");
}

// What is refused.

TEST_F(StoreBranches, DoNotMakeOrDeleteFiles) {
  session->beginBranch();
  EXPECT_EQ(failure([&] { session->createFile("ORDERS"); }), StoreError::Kind::NotInBranch);
  EXPECT_EQ(failure([&] { session->deleteFile(kFile.file); }), StoreError::Kind::NotInBranch);
  session->write(kFile, "1", "Bob");
  EXPECT_EQ(failure([&] { session->createFile("ORDERS"); }), StoreError::Kind::NotInBranch);
  session->endBranch(kId)->commit(kNotAtAll);
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Bob")));
}

TEST_F(StoreBranches, DoNotDefineTables) {
  sql(*session, "CREATE TABLE t(id INTEGER PRIMARY KEY)");
  const auto known = session->prepare("CREATE INDEX later ON t(id)", true);
  session->beginBranch();
  for (const char* definition :
       {"CREATE TABLE u(id INTEGER PRIMARY KEY)", "DROP TABLE t", "CREATE INDEX i ON t(id)",
        "ALTER TABLE t ADD COLUMN x", "CREATE VIEW v AS SELECT * FROM t"}) {
    EXPECT_EQ(failure([&] { sql(*session, definition); }), StoreError::Kind::NotInBranch)
        << definition;
  }
  session->write(kFile, "2", "Bob");
  EXPECT_EQ(failure([&] { sql(*session, "DROP TABLE t"); }), StoreError::Kind::NotInBranch);
  EXPECT_EQ(failure([&] { known->execute({}); }), StoreError::Kind::NotInBranch);
}

TEST_F(StoreBranches, DefineTablesAgainWhenTheyHaveEnded) {
  const auto branch = branchThatWrites("1", "Bob");
  sql(*session, "CREATE TABLE t(id INTEGER PRIMARY KEY)");
  EXPECT_EQ(answer(*session, "SELECT count(*) FROM t"), "0");
}

TEST_F(StoreBranches, RefuseTablesWithoutAPrimaryKeyAndGoOn) {
  sql(*session, "CREATE TABLE keyless(value TEXT)");
  session->beginBranch();
  session->write(kFile, "1", "Bob");
  EXPECT_EQ(failure([&] { sql(*session, "INSERT INTO keyless VALUES('lost')"); }),
            StoreError::Kind::NotInBranch);
  EXPECT_EQ(failure([&] { sql(*session, "INSERT INTO keyless VALUES('again')"); }),
            StoreError::Kind::NotInBranch);
  EXPECT_EQ(answer(*session, "SELECT count(*) FROM keyless"), "0");
  session->endBranch(kId)->commit(kNotAtAll);
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Bob")));
}

TEST_F(StoreBranches, RefuseRowsWithoutAKey) {
  sql(*session, "CREATE TABLE t(id TEXT PRIMARY KEY, value TEXT)");
  session->beginBranch();
  sql(*session, "INSERT INTO t VALUES('a', 'kept')");
  EXPECT_EQ(failure([&] { sql(*session, "INSERT INTO t VALUES(NULL, 'lost')"); }),
            StoreError::Kind::NotInBranch);
  session->endBranch(kId)->commit(kNotAtAll);
  EXPECT_EQ(answer(*session, "SELECT value FROM t"), "kept");
}

TEST_F(StoreBranches, RefuseToChangeRowsThatHaveNoKey) {
  sql(*session, "CREATE TABLE t(id TEXT PRIMARY KEY, value TEXT)");
  sql(*session, "INSERT INTO t VALUES(NULL, 'there')");
  session->beginBranch();
  EXPECT_EQ(failure([&] { sql(*session, "DELETE FROM t"); }), StoreError::Kind::NotInBranch);
  EXPECT_EQ(answer(*session, "SELECT value FROM t"), "there");
}

TEST_F(StoreBranches, RefuseTablesWithGeneratedColumns) {
  sql(*session, "CREATE TABLE t(id INTEGER PRIMARY KEY, double AS (2 * id) STORED)");
  session->beginBranch();
  EXPECT_EQ(failure([&] { sql(*session, "INSERT INTO t VALUES(1)"); }),
            StoreError::Kind::NotInBranch);
  EXPECT_EQ(answer(*session, "SELECT count(*) FROM t"), "0");
}

TEST_F(StoreBranches, AreEndedNotCommitted) {
  session->beginBranch();
  EXPECT_EQ(failure([&] { session->commit(); }), StoreError::Kind::Failed);
  EXPECT_TRUE(session->inTransaction());
}

TEST_F(StoreBranches, MustBeOpenToEnd) {
  session->begin(0);
  EXPECT_EQ(failure([&] { session->endBranch(kId); }), StoreError::Kind::Failed);
}

}  // namespace
}  // namespace nox::agent::test
