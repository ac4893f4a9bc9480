// Reads that share a snapshot see what has been committed, and hold up nobody.
#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <string>

#include "agent/store/sqlite/records.h"
#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::Optional;

constexpr std::size_t kLongLog = 10 * 1024 * 1024;  // more than two thousand pages
constexpr std::size_t kLongBody = 256 * 1024;

/// Somebody with a shell, beside the agent.
class Stranger {
public:
  explicit Stranger(const std::string& file) : connection_(optionsOf(file)) {}
  void write(const std::string& id, const std::string& body) {
    connection_.beginWriting(kNotAtAll);
    putRecord(connection_, kFile, id, body);
    connection_.commit();
  }
  /// Nobody may be in the way.
  void carryLog(const std::string& how) {
    Statement carry = connection_.prepare("PRAGMA wal_checkpoint(" + how + ")");
    ASSERT_TRUE(carry.step());
    EXPECT_EQ(carry.integer(0), 0);
    EXPECT_EQ(carry.integer(1), carry.integer(2));
  }

private:
  static ConnectionOptions optionsOf(const std::string& file) {
    ConnectionOptions options;
    options.file = file;
    return options;
  }
  SqliteConnection connection_;
};

class ReadSnapshots : public StoreTest {
protected:
  ReadSnapshots() {
    writer->write(kFile, "1", "Ann");
    EXPECT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  }

  std::size_t kept() { return store().connections().snapshots(); }
  std::uintmax_t bytesOfLog() const { return std::filesystem::file_size(databaseFile() + "-wal"); }
  /// Another one each time: the engine notices when nothing changes.
  std::string longBody() { return std::string(kLongBody, static_cast<char>('a' + letter_++ % 26)); }

  std::unique_ptr<StoreSession> reader = newSession();
  std::unique_ptr<StoreSession> writer = newSession();

private:
  int letter_ = 0;
};

TEST_F(ReadSnapshots, AreSharedByTheReadsThatFollow) {
  EXPECT_EQ(kept(), 1u);
  EXPECT_THAT(read(*writer, "1"), Optional(Eq("Ann")));
  EXPECT_TRUE(reader->exists(kFile, "1"));
  EXPECT_EQ(kept(), 1u);
  EXPECT_EQ(store().connections().idle(), 1u);
}

TEST_F(ReadSnapshots, EndWithTheWriteOfAnotherSession) {
  for (int i = 0; i < 100; ++i) {
    const std::string body = std::to_string(i);
    writer->write(kFile, "1", body);
    EXPECT_THAT(read(*reader, "1"), Optional(Eq(body)));
  }
  ASSERT_TRUE(writer->remove(kFile, "1"));
  EXPECT_FALSE(reader->exists(kFile, "1"));
}

TEST_F(ReadSnapshots, EndWithTheSessionsOwnWrite) {
  reader->write(kFile, "1", "Bob");
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Bob")));
}

TEST_F(ReadSnapshots, EndWithTheCommitOfATransactionAndNotBefore) {
  writer->begin(0);
  writer->write(kFile, "1", "Bob");
  EXPECT_THAT(read(*writer, "1"), Optional(Eq("Bob")));
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  writer->commit();
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Bob")));
}

TEST_F(ReadSnapshots, EndWithTheCommitOfABranch) {
  writer->beginBranch();
  writer->write(kFile, "1", "Bob");
  const auto branch = writer->endBranch({7, "gtrid:bqual"});
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  branch->commit(kNotAtAll);
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Bob")));
}

TEST_F(ReadSnapshots, EndWithAStatementThatWrites) {
  sql(*writer, "CREATE TABLE t(a)");
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  sql(*writer, "INSERT INTO t VALUES(1)");
  EXPECT_EQ(answer(*reader, "SELECT a FROM t"), "1");
}

TEST_F(ReadSnapshots, EndWithTheWriteOfAnotherProgram) {
  Stranger stranger(databaseFile());
  for (int i = 0; i < 100; ++i) {
    const std::string body = std::to_string(i);
    stranger.write("1", body);
    EXPECT_THAT(read(*reader, "1"), Optional(Eq(body)));
  }
}

TEST_F(ReadSnapshots, EndWithTheFileThatIsReadAndOneThatIsMadeInItsPlace) {
  ASSERT_TRUE(writer->deleteFile(kFile.file));
  EXPECT_EQ(failure([&] { read(*reader, "1"); }), StoreError::Kind::NoFile);
  ASSERT_TRUE(writer->createFile(kFile.file));
  EXPECT_EQ(read(*reader, "1"), std::nullopt);
}

TEST_F(ReadSnapshots, AreNotKeptForTransactionsThatHaveWritten) {
  reader->begin(0);
  reader->write(kFile, "2", "Bob");
  EXPECT_THAT(read(*reader, "2"), Optional(Eq("Bob")));
  reader->rollback();
  EXPECT_EQ(kept(), 0u);
  EXPECT_FALSE(reader->exists(kFile, "2"));
}

TEST_F(ReadSnapshots, AreNotKeptWhileTheSessionRests) {
  reader->rest();
  EXPECT_EQ(kept(), 0u);
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
}

TEST_F(ReadSnapshots, AreNotKeptBehindTheSession) {
  reader.reset();
  EXPECT_EQ(kept(), 0u);
}

TEST_F(ReadSnapshots, OfSessionsThatRestEndWhenSomebodyWrites) {
  ASSERT_EQ(kept(), 1u);
  writer->write(kFile, "2", "Bob");
  EXPECT_EQ(kept(), 0u);
}

TEST_F(ReadSnapshots, AreNotGivenBackWhenTheyAreOutdated) {
  {
    const ConnectionLease lease = store().connections().borrow(nullptr);
    ASSERT_TRUE(lease->snapshot().isKept());
    writer->write(kFile, "1", "Bob");
  }
  EXPECT_EQ(kept(), 0u);
}

// What follows is about the log, which is carried into the database when it has two thousand pages,
// and begun anew by the next who writes.

TEST_F(ReadSnapshots, LetTheLogBeBegunAnew) {
  for (std::size_t written = 0; written < 3 * kLongLog; written += kLongBody) {
    writer->write(kFile, "2", longBody());
    ASSERT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
    ASSERT_EQ(kept(), 1u);
  }
  EXPECT_LT(bytesOfLog(), 2 * kLongLog);
}

TEST_F(ReadSnapshots, OfSessionsThatRestEndBeforeTheLogIsCarried) {
  writer->begin(0);
  writer->write(kFile, "2", longBody());
  ASSERT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  ASSERT_EQ(kept(), 1u);
  constexpr int kBodies = kLongLog / kLongBody;
  for (int i = 0; i < kBodies; ++i) writer->write(kFile, std::to_string(3 + i), longBody());
  writer->commit();
  EXPECT_EQ(kept(), 0u);
  EXPECT_GT(std::filesystem::file_size(databaseFile()), kLongLog);
}

TEST_F(ReadSnapshots, EndWhenTheLogWasCarried) {
  Stranger stranger(databaseFile());
  writer->write(kFile, "2", longBody());
  ASSERT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  stranger.carryLog("PASSIVE");
  ASSERT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
  const std::uintmax_t before = bytesOfLog();
  stranger.write("3", longBody());
  EXPECT_EQ(bytesOfLog(), before);
}

TEST_F(ReadSnapshots, OfSessionsThatRestDoNotHoldUpStrangers) {
  reader->rest();
  Stranger stranger(databaseFile());
  stranger.carryLog("TRUNCATE");
  EXPECT_EQ(bytesOfLog(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
