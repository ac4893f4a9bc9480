// What a commit appends to SQLite's log goes there in one piece, and nothing else is held back.
#include "agent/store/sqlite/gathered_log.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "tests/agent/support/temp_directory.h"

namespace nox::agent::test {
namespace {

/// The system's files; the writes to logs are counted, and refused on demand.
class CountingFiles {
public:
  static const char* layerAbove() {
    static const bool isRegistered = [] {
      below_ = sqlite3_vfs_find(nullptr);
      static sqlite3_vfs counting = *below_;
      counting.zName = "test-counting";
      counting.pNext = nullptr;
      counting.xOpen = open;
      sqlite3_vfs_register(&counting, 0);
      GatheredLog::registerAbove(counting, "test-gathered");
      return true;
    }();
    static_cast<void>(isRegistered);
    return "test-gathered";
  }

  static inline int writes = 0;
  static inline int refusal = SQLITE_OK;  // what the next write answers, once

private:
  static int open(sqlite3_vfs* /*self*/, const char* name, sqlite3_file* file, int flags,
                  int* outFlags) {
    const int code = below_->xOpen(below_, name, file, flags, outFlags);
    if (code != SQLITE_OK || (flags & SQLITE_OPEN_WAL) == 0) return code;
    system_ = file->pMethods;
    methods_ = *system_;
    methods_.xWrite = write;
    file->pMethods = &methods_;
    return code;
  }
  static int write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 at) {
    ++writes;
    if (refusal != SQLITE_OK) return std::exchange(refusal, SQLITE_OK);
    return system_->xWrite(file, bytes, size, at);
  }

  static inline sqlite3_vfs* below_ = nullptr;
  static inline const sqlite3_io_methods* system_ = nullptr;
  static inline sqlite3_io_methods methods_{};
};

class GatheredLogTest : public ::testing::Test {
protected:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  };
  using Database = std::unique_ptr<sqlite3, Close>;

  GatheredLogTest() {
    run("PRAGMA page_size = 4096; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
        "PRAGMA wal_autocheckpoint = 0;"
        "CREATE TABLE t(id INTEGER PRIMARY KEY, body TEXT);");
  }

  Database open(const char* layer) const {
    sqlite3* db = nullptr;
    EXPECT_EQ(
        sqlite3_open_v2(file_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, layer),
        SQLITE_OK);
    return Database(db);
  }

  void run(const char* sql) { EXPECT_EQ(tryToRun(sql), SQLITE_OK) << sqlite3_errmsg(db_.get()); }
  int tryToRun(const char* sql) { return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr); }
  /// In a transaction that is open: how often a COMMIT writes to the log.
  int writesOfCommit(int expectedCode = SQLITE_OK) {
    const int before = CountingFiles::writes;
    const GatheredLog::Commit gathered(db_.get());
    EXPECT_EQ(tryToRun("COMMIT"), expectedCode);
    return CountingFiles::writes - before;
  }
  /// Bodies of three quarters of a page, so that each is on a page of its own.
  void write(int from, int to, char letter) {
    const std::string sql =
        "WITH RECURSIVE n(i) AS (SELECT " + std::to_string(from) +
        " UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(to) +
        ") INSERT OR REPLACE INTO t SELECT i, replace(hex(zeroblob(1500)), '0', '" + letter +
        "') FROM n";
    run(sql.c_str());
  }
  /// How many bodies are of the letter, as another process would see it.
  int count(char letter) const {
    const Database other = open(nullptr);
    int result = -1;
    const std::string sql =
        std::string("SELECT count(*) FROM t WHERE body LIKE '") + letter + letter + "%'";
    sqlite3_exec(
        other.get(), sql.c_str(),
        [](void* to, int, char** values, char**) {
          *static_cast<int*>(to) = std::stoi(values[0]);
          return 0;
        },
        &result, nullptr);
    return result;
  }
  std::string integrity() const {
    const Database other = open(nullptr);
    std::string result;
    sqlite3_exec(
        other.get(), "PRAGMA integrity_check",
        [](void* to, int, char** values, char**) {
          static_cast<std::string*>(to)->append(values[0]);
          return 0;
        },
        &result, nullptr);
    return result;
  }
  std::uintmax_t bytesOfLog() const { return std::filesystem::file_size(file_ + "-wal"); }

  TempDirectory directory_;
  const std::string file_ = directory_.file("t.db");
  Database db_ = open(CountingFiles::layerAbove());
};

TEST_F(GatheredLogTest, ACommitOfSeveralPagesIsOneWrite) {
  run("BEGIN IMMEDIATE");
  write(1, 8, 'a');
  EXPECT_EQ(writesOfCommit(), 1);
  EXPECT_EQ(count('a'), 8);
}

TEST_F(GatheredLogTest, ALongCommitIsWrittenInPiecesOf64KiB) {
  run("BEGIN IMMEDIATE");
  write(1, 100, 'a');
  const std::uintmax_t before = bytesOfLog();
  const int writes = writesOfCommit();
  const auto pieces = static_cast<int>((bytesOfLog() - before) / (64 * 1024));
  EXPECT_GE(writes, pieces);
  // A page that does not fit into the last piece as a whole begins the next one.
  EXPECT_LE(writes, pieces * 16 / 15 + 1);
  EXPECT_EQ(count('a'), 100);
  EXPECT_EQ(integrity(), "ok");
}

TEST_F(GatheredLogTest, NothingIsHeldBackOutsideACommit) {
  run("PRAGMA cache_size = 5; BEGIN IMMEDIATE");
  const int before = CountingFiles::writes;
  write(1, 50, 'a');
  const std::uintmax_t bytes = bytesOfLog();
  EXPECT_GT(CountingFiles::writes - before, 2 * 40) << "a page that leaves the cache: two writes";
  writesOfCommit();
  EXPECT_LT(bytesOfLog() - bytes, 10 * 4120u) << "what was left in the cache";
  EXPECT_EQ(count('a'), 50);
}

TEST_F(GatheredLogTest, PagesThatAreInTheLogAlreadyAreWrittenThereAgain) {
  write(1, 50, 'a');
  run("PRAGMA cache_size = 5; BEGIN IMMEDIATE");
  write(1, 50, 'b');
  write(1, 50, 'c');
  writesOfCommit();
  EXPECT_EQ(count('c'), 50);
  EXPECT_EQ(count('b'), 0);
  EXPECT_EQ(integrity(), "ok");
}

TEST_F(GatheredLogTest, ACommitThatCannotBeWrittenFailsAndTakesEverythingBack) {
  write(1, 8, 'a');
  for (const int refusal : {SQLITE_FULL, SQLITE_IOERR_WRITE}) {
    run("BEGIN IMMEDIATE");
    write(1, 8, 'b');
    CountingFiles::refusal = refusal;
    writesOfCommit(refusal & 0xFF);
    EXPECT_TRUE(sqlite3_get_autocommit(db_.get())) << "no transaction is left";
    EXPECT_EQ(count('a'), 8);
    EXPECT_EQ(count('b'), 0);
  }
  run("BEGIN IMMEDIATE");
  write(1, 4, 'c');
  EXPECT_EQ(writesOfCommit(), 1) << "nothing of the refused ones is left";
  EXPECT_EQ(count('a'), 4);
  EXPECT_EQ(count('c'), 4);
  EXPECT_EQ(integrity(), "ok");
}

TEST_F(GatheredLogTest, ARefusedPieceInTheMiddleOfALongCommitFailsItToo) {
  write(1, 100, 'a');
  run("BEGIN IMMEDIATE");
  write(1, 100, 'b');
  CountingFiles::refusal = SQLITE_FULL;
  writesOfCommit(SQLITE_FULL);
  EXPECT_EQ(count('a'), 100);
  EXPECT_EQ(count('b'), 0);
}

TEST_F(GatheredLogTest, ADatabaseThatWasOpenedWithoutTheLayerIsLeftAlone) {
  db_ = open(nullptr);
  run("BEGIN IMMEDIATE");
  write(1, 8, 'a');
  writesOfCommit();
  EXPECT_EQ(count('a'), 8);
}

TEST_F(GatheredLogTest, TheLogIsBegunAnewAfterItWasCarriedIntoTheDatabase) {
  for (const char letter : {'a', 'b', 'c'}) {
    run("BEGIN IMMEDIATE");
    write(1, 8, letter);
    EXPECT_LE(writesOfCommit(), 2) << "its head, and the pages";
    run("PRAGMA wal_checkpoint(RESTART)");
    EXPECT_EQ(count(letter), 8);
  }
  EXPECT_EQ(integrity(), "ok");
}

}  // namespace
}  // namespace nox::agent::test
