// Verification: what is sound is passed in silence, what is not is named.
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

class Verify : public StoreTest {
protected:
  Verify() {
    const auto session = newSession();
    for (int i = 0; i < 1000; ++i) session->write(kFile, std::to_string(i), std::string(100, 'x'));
  }

  /// Runs statements on the account's file, as a stranger with a shell would.
  std::vector<std::string> mistakesAfter(const char* statements) {
    engine.reset();
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(databaseFile().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements, nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
    reopen();
    return engine->verify("MAIN");
  }

  /// Overwrites a part of the account's file.
  std::vector<std::string> mistakesAfterDamage(std::streamoff from, std::size_t bytes) {
    engine.reset();
    {
      std::fstream file(databaseFile(), std::ios::in | std::ios::out | std::ios::binary);
      file.seekp(from);
      file << std::string(bytes, '\x55');
    }
    reopen();
    return engine->verify("MAIN");
  }
};

TEST_F(Verify, FindsNothingInASoundAccount) {
  const auto session = newSession();
  session->beginBranch();
  session->write(kFile, "new", "x");
  session->endBranch({7, "x"})->prepare({{kFile, "new", true}});
  EXPECT_THAT(engine->verify("MAIN"), IsEmpty());
}

TEST_F(Verify, WorksWhileTheAccountIsWritten) {
  const auto session = newSession();
  session->begin(0);
  session->write(kFile, "1", "changed");
  EXPECT_THAT(engine->verify("MAIN"), IsEmpty());
}

TEST_F(Verify, FindsDamagedPages) {
  constexpr std::streamoff kPage = 4096;
  EXPECT_THAT(mistakesAfterDamage(12 * kPage, 6 * kPage), Not(IsEmpty()));
}

TEST_F(Verify, FindsADamagedHead) { EXPECT_THAT(mistakesAfterDamage(0, 4096), SizeIs(1)); }

TEST_F(Verify, FindsAFileWithoutItsTable) {
  EXPECT_THAT(mistakesAfter("DROP TABLE nox_dict_1"),
              ElementsAre("file DICT CUSTOMERS has no table nox_dict_1"));
}

TEST_F(Verify, FindsATableWithoutItsFile) {
  EXPECT_THAT(
      mistakesAfter("DELETE FROM nox_files"),
      ElementsAre("table nox_data_1 belongs to no file", "table nox_dict_1 belongs to no file"));
}

TEST_F(Verify, FindsANameThatIsNone) {
  EXPECT_THAT(mistakesAfter("UPDATE nox_files SET name = 'A B'"),
              ElementsAre("\"A B\" is no file name"));
}

TEST_F(Verify, FindsIdsThatAreNone) {
  EXPECT_THAT(mistakesAfter("INSERT INTO nox_data_1 VALUES(CAST(x'FE' AS TEXT), x'')"),
              ElementsAre(HasSubstr("file CUSTOMERS has a record that cannot be read")));
}

TEST_F(Verify, FindsBodiesThatAreNone) {
  EXPECT_THAT(mistakesAfter("UPDATE nox_data_1 SET body = 17 WHERE id = '5'"),
              ElementsAre("record 5 of file CUSTOMERS is no record"));
}

TEST_F(Verify, FindsChangesOfABranchThatCannotBeRead) {
  EXPECT_THAT(mistakesAfter("INSERT INTO nox_xa VALUES(7, 'x', 'garbage')"),
              ElementsAre("the changes of branch 7:x cannot be read"));
}

TEST_F(Verify, FindsReferencesThatLeadNowhere) {
  EXPECT_THAT(mistakesAfter("CREATE TABLE p(id INTEGER PRIMARY KEY);"
                            "CREATE TABLE c(id INTEGER PRIMARY KEY, p REFERENCES p(id));"
                            "INSERT INTO c VALUES(1, 99)"),
              Contains(HasSubstr("table c refers to a row of table p")));
}

}  // namespace
}  // namespace nox::agent::test
