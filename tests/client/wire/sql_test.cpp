// SQL against the real store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using test::errorOf;
using testing::Contains;
using testing::ElementsAre;

class NoxdSql : public test::NoxdSession {
protected:
  const std::string table_ = "S" + fileName();
};

TEST_F(NoxdSql, KeepsEveryKindOfValue) {
  ann_.update("CREATE TABLE " + table_ + " (A TEXT, B INTEGER, C REAL, D BLOB, E TEXT)");
  const std::string bytes("\x00\xFF\x80", 3);
  EXPECT_EQ(ann_.update("INSERT INTO " + table_ + " VALUES (?, ?, ?, ?, ?)",
                        {"Ünï", -42, 1.5, Value::bytes(bytes), nullptr}),
            1);
  Rows rows = bob_.query("SELECT * FROM " + table_);
  ASSERT_TRUE(rows.next());
  const Row& row = rows.row();
  EXPECT_EQ(row["a"].text(), "Ünï");
  EXPECT_EQ(row["B"].int64(), -42);
  EXPECT_EQ(row["C"].real(), 1.5);
  EXPECT_EQ(row["D"].bytes(), bytes);
  EXPECT_TRUE(row["E"].isNull());
  EXPECT_FALSE(rows.next());
}

TEST_F(NoxdSql, ComparesNumbersAsNumbers) {
  Rows rows = ann_.query("SELECT ? < 5, ? < 5", {10, "10"});
  ASSERT_TRUE(rows.next());
  EXPECT_FALSE(rows.row()[0].boolean());
}

TEST_F(NoxdSql, StreamsManyRows) {
  constexpr int kRows = 100'000;
  Rows rows = ann_.query(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?) SELECT i FROM n",
      {kRows});
  std::int64_t sum = 0;
  for (const Row& row : rows) sum += row[0].int64();
  EXPECT_EQ(sum, std::int64_t{kRows} * (kRows + 1) / 2);
}

TEST_F(NoxdSql, ReleasesWhatIsBrokenOff) {
  for (int i = 0; i < 600; ++i) {  // 256 statements may be open at a time
    for (const Row& row : ann_.query("SELECT 1 UNION ALL SELECT 2")) {
      EXPECT_EQ(row[0].int64(), 1);
      break;
    }
    ann_.update("CREATE TABLE IF NOT EXISTS " + table_ + " (A)");
  }
}

TEST_F(NoxdSql, PreparesOnceAndRunsOften) {
  ann_.update("CREATE TABLE " + table_ + " (A INTEGER PRIMARY KEY, B TEXT)");
  Statement insert = ann_.prepare("INSERT INTO " + table_ + " VALUES (?, ?)");
  EXPECT_EQ(insert.parameters().size(), 2u);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(insert.update({i, "x"}), 1);
  EXPECT_EQ(errorOf([&] { insert.update({3, "x"}); }), "23000 Rejected");
  EXPECT_EQ(errorOf([&] { insert.update({3}); }), "02001 Rejected");
  Statement select = ann_.prepare("SELECT B FROM " + table_ + " WHERE A = ?");
  EXPECT_EQ(select.columns().size(), 1u);
  for (int i = 0; i < 10; ++i) {
    Rows rows = select.query({i});
    EXPECT_TRUE(rows.next());
  }
}

TEST_F(NoxdSql, RunsStatementsInBatches) {
  ann_.update("CREATE TABLE " + table_ + " (A INTEGER PRIMARY KEY)");
  Statement insert = ann_.prepare("INSERT INTO " + table_ + " VALUES (?)");
  {
    Transaction work = ann_.begin();
    Batch batch(ann_);
    for (int i = 0; i < 2000; ++i) batch.update(insert, {i});
    batch.update(insert, {7});
    const std::vector<Batch::Result> results = batch.run();
    ASSERT_TRUE(results.back().error);
    EXPECT_EQ(results.back().error->sqlState(), "23000");
    EXPECT_EQ(results[0].changes, 1);
    work.commit();
  }
  Rows rows = ann_.query("SELECT COUNT(*) FROM " + table_);
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()[0].int64(), 2000);
}

TEST_F(NoxdSql, KnowsItsErrors) {
  EXPECT_EQ(errorOf([&] { ann_.query("SELEKT"); }), "42000 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.query("SELECT * FROM NONE"); }), "42S02 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.query("SELECT NONE FROM (SELECT 1 AS A)"); }), "42S22 Rejected");
  EXPECT_TRUE(ann_.isUsable());
}

TEST_F(NoxdSql, ListsItsCatalog) {
  ann_.update("CREATE TABLE " + table_ + " (A TEXT)");
  std::set<std::string> seen;
  for (const Row& row : ann_.catalog(Catalog::Tables)) {
    for (std::size_t i = 0; i < row.size(); ++i) seen.emplace(row[i].textOr(""));
  }
  EXPECT_THAT(seen, Contains(table_));
  Rows types = ann_.catalog(Catalog::Types);
  EXPECT_FALSE(types.columns().empty());
  EXPECT_TRUE(types.next());
}

TEST_F(NoxdSql, SeesFilesAsTables) {
  ann_.file("DICT " + fileName()).write("NAME", Record{"D", "1", "", "Name", "10L", "S"});
  ann_.file(fileName()).write("1", Record{"Ann"});
  Rows rows = bob_.query("SELECT ID, NAME FROM " + fileName());
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()[1].text(), "Ann");
}

TEST_F(NoxdSql, EndsRowsWithTheirTransaction) {
  ann_.update("CREATE TABLE " + table_ + " (A TEXT)");
  Transaction work = ann_.begin();
  ann_.update("INSERT INTO " + table_ + " VALUES ('x')");
  {
    Rows rows = ann_.query("SELECT A FROM " + table_);
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.row()[0].text(), "x");
  }
  work.rollback();
  Rows rows = ann_.query("SELECT A FROM " + table_);
  EXPECT_FALSE(rows.next());
}

}  // namespace
}  // namespace nox::client
