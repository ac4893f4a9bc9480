// Statements and their rows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <type_traits>

#include "nox/client/statement.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using noxp::sql::ColumnMetaDataProt;
using noxp::sql::ResultSetMetaDataProt;
using noxp::sql::ResultSetProt;
using noxp::sql::RowProt;
using noxp::sql::SQLOKResponseProt;
using noxp::sql::SQLResultResponseProt;
using noxp::sql::SQLRSMDResponseProt;
using noxp::sql::SQLUpdateResponseProt;
using testing::ElementsAre;

constexpr int kId = 3;

// A copy of a row would outlive the batch that its cells lie in.
static_assert(!std::is_copy_constructible_v<Row> && !std::is_copy_assignable_v<Row>);
static_assert(!std::is_move_constructible_v<Row> && !std::is_move_assignable_v<Row>);

class Sql : public test::RecordedSession {
protected:
  using Values = std::vector<std::string>;

  void replyRows(const std::vector<Values>& rows, int id = kId) {
    ResultSetProt set;
    for (const Values& values : rows) {
      auto row = std::make_unique<RowProt>(&set);
      for (const std::string& value : values) row->addColumnValue(value);
      set.addRow(row.release());
    }
    SQLResultResponseProt answer(id, &set);
    replyBytes(test::PeerConnection::frameOf(answer));
  }
  void replyUpdate(int changes) { reply<SQLUpdateResponseProt>(kId, changes); }
  void replyOk() { reply<SQLOKResponseProt>(kId); }
  void replyColumns(const Values& columns, const Values& parameters = {}) {
    ResultSetMetaDataProt data;
    data.setClassVersion(2);
    const auto described = [](const std::string& name) {
      noxp::sql::ColumnMetaDataPtr column(new ColumnMetaDataProt);
      column->setColumnName(NOXPString(name));
      column->setTableName(NOXPString("T"));
      column->setDatatype(NOXPString("12"));
      column->setPrecision(NOXPString("20"));
      column->setIsNullable(NOXPString("1"));
      column->setIsBlob(NOXPString("0"));
      return column.release();
    };
    for (const std::string& name : columns) {
      data.addColumn(static_cast<ColumnMetaDataProt*>(described(name)));
    }
    for (const std::string& name : parameters) {
      data.addParameter(static_cast<ColumnMetaDataProt*>(described(name)));
    }
    SQLRSMDResponseProt answer(kId, &data);
    replyBytes(test::PeerConnection::frameOf(answer));
  }

  static Values firstColumn(Rows& rows) {
    Values all;
    for (const Row& row : rows) all.emplace_back(row[0].text());
    return all;
  }
  static std::string stateOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Error& error) {
      return error.sqlState();
    }
    return "no error";
  }
};

TEST_F(Sql, QueriesFetchBatchByBatchUntilOneIsEmpty) {
  replyRows({{"1"}, {"2"}});
  replyRows({{"3"}});
  replyRows({});
  {
    Rows rows = connection_.query("SELECT ID FROM T");
    EXPECT_THAT(firstColumn(rows), ElementsAre("1", "2", "3"));
    EXPECT_FALSE(rows.next());
  }
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute SELECT ID FROM T", "Fetch 3 1000",
                                   "Fetch 3 1000", "ReleaseStatement 3"));
}

TEST_F(Sql, QueriesWithoutRowsAskOnce) {
  replyRows({});
  replyRows({});
  Rows rows = connection_.query("SELECT ID FROM T");
  EXPECT_TRUE(rows.begin() == rows.end());
}

TEST_F(Sql, QueriesAreReleasedWhenTheWalkIsBrokenOff) {
  replyRows({{"1"}, {"2"}});
  for (const Row& row : connection_.query("SELECT ID FROM T")) {
    EXPECT_EQ(row[0].text(), "1");
    break;
  }
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute SELECT ID FROM T", "ReleaseStatement 3"));
}

TEST_F(Sql, QueriesWithValuesBindThem) {
  replyOk();
  replyOk();
  replyRows({{"1"}});
  {
    Rows rows = connection_.query("SELECT ID FROM T WHERE A = ?",
                                  {"text", 42, 1.5, nullptr, Value::bytes("\x01\x02")});
    EXPECT_TRUE(rows.next());
  }
  EXPECT_THAT(asked(), ElementsAre("Compile SELECT ID FROM T WHERE A = ?",
                                   "Bind 3 12:text 4:42 8:1.5 12:null 2004:\x01\x02", "Execute 3",
                                   "ReleaseStatement 3"));
}

TEST_F(Sql, AsksForBatchesOfTheSizeThatIsWanted) {
  replyRows({{"1"}});
  replyRows({});
  Rows rows = connection_.query("SELECT ID FROM T").fetchSize(17);
  EXPECT_THAT(firstColumn(rows), ElementsAre("1"));
  EXPECT_EQ(asked().back(), "Fetch 3 17");
}

TEST_F(Sql, CellsTellNullFromEmpty) {
  replyRows({{"", "\x80", "x"}});
  Rows rows = connection_.query("SELECT A, B, C FROM T");
  ASSERT_TRUE(rows.next());
  const Row& row = rows.row();
  EXPECT_FALSE(row[0].isNull());
  EXPECT_EQ(row[0].text(), "");
  EXPECT_TRUE(row[1].isNull());
  EXPECT_EQ(row[1].textOr("none"), "none");
  EXPECT_FALSE(row[1].get());
  EXPECT_EQ(row[2].textOr("none"), "x");
  EXPECT_EQ(stateOf([&] { static_cast<void>(row[1].text()); }), sqlstate::kNull);
  EXPECT_EQ(stateOf([&] { static_cast<void>(row[1].int64()); }), sqlstate::kNull);
}

TEST_F(Sql, CountsEmptyAsNullOnceTheSessionDoes) {
  reply<noxp::common::SetPropertiesResponseProt>();
  connection_.setProperty("EMPTY_NULL", "1");
  replyRows({{"", "x"}});
  Rows rows = connection_.query("SELECT A, B FROM T");
  ASSERT_TRUE(rows.next());
  EXPECT_TRUE(rows.row()[0].isNull());
  EXPECT_FALSE(rows.row()[1].isNull());
}

TEST_F(Sql, CellsReadNumbersAndTruth) {
  replyRows({{"-42", "1.25", "1", "False", "x"}});
  Rows rows = connection_.query("SELECT ...");
  ASSERT_TRUE(rows.next());
  const Row& row = rows.row();
  EXPECT_EQ(row[0].int64(), -42);
  EXPECT_EQ(row[1].real(), 1.25);
  EXPECT_TRUE(row[2].boolean());
  EXPECT_FALSE(row[3].boolean());
  EXPECT_EQ(stateOf([&] { static_cast<void>(row[4].int64()); }), sqlstate::kNotANumber);
  EXPECT_EQ(stateOf([&] { static_cast<void>(row[4].real()); }), sqlstate::kNotANumber);
  EXPECT_EQ(stateOf([&] { static_cast<void>(row[4].boolean()); }), sqlstate::kNotANumber);
}

TEST_F(Sql, RowsHaveNoColumnBehindTheLast) {
  replyRows({{"1", "2"}});
  Rows rows = connection_.query("SELECT A, B FROM T");
  ASSERT_TRUE(rows.next());
  EXPECT_THROW(static_cast<void>(rows.row()[-1]), std::out_of_range);
  try {
    static_cast<void>(rows.row()[2]);
    FAIL() << "nothing was thrown";
  } catch (const std::out_of_range& mistake) {
    EXPECT_STREQ(mistake.what(), "a row of 2 columns, counted from 0, was asked for another");
  }
}

TEST_F(Sql, CellsAreFoundByNameInAnyCase) {
  replyRows({{"1", "Oslo"}, {"2", "Bergen"}});
  replyColumns({"ID", "CITY"});
  Rows rows = connection_.query("SELECT ID, CITY FROM T");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()["City"].text(), "Oslo");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()["id"].text(), "2");
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute SELECT ID, CITY FROM T", "MetaData 3"));
}

TEST_F(Sql, ColumnsThatAreNotThereAreNamed) {
  replyRows({{"1"}});
  replyColumns({"ID"});
  Rows rows = connection_.query("SELECT ID FROM T");
  ASSERT_TRUE(rows.next());
  try {
    static_cast<void>(rows.row()["NONE"]);
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), "42S22");
    EXPECT_EQ(error.message(), "there is no column NONE");
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
  }
  EXPECT_EQ(rows.row()["ID"].text(), "1");
}

TEST_F(Sql, OnlyLettersOfAsciiAreFoundInEitherCase) {
  replyRows({{"1", "2"}});
  replyColumns({"\xC3\xA4", "z"});  // a small A with two dots
  Rows rows = connection_.query("SELECT 1, 2");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()["\xC3\xA4"].text(), "1");
  EXPECT_EQ(rows.row()["Z"].text(), "2");
  EXPECT_EQ(stateOf([&] { static_cast<void>(rows.row()["\xC3\x84"]); }), sqlstate::kNoColumn);
}

TEST_F(Sql, ColumnsAreDescribed) {
  replyRows({});
  replyColumns({"ID"});
  Rows rows = connection_.query("SELECT ID FROM T");
  ASSERT_EQ(rows.columns().size(), 1u);
  const Column& column = rows.columns()[0];
  EXPECT_EQ(column.name, "ID");
  EXPECT_EQ(column.table, "T");
  EXPECT_EQ(column.dataType, 12);
  EXPECT_EQ(column.precision, 20);
  EXPECT_EQ(column.scale, 0);
  EXPECT_TRUE(column.nullable);
  EXPECT_FALSE(column.blob);
}

TEST_F(Sql, UpdatesSayHowMuchTheyChanged) {
  replyUpdate(5);
  EXPECT_EQ(connection_.update("DELETE FROM T"), 5);
  replyOk();
  replyOk();
  replyUpdate(6);
  EXPECT_EQ(connection_.update("DELETE FROM T WHERE A = ?", {1}), 6);
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute DELETE FROM T", "ReleaseStatement 3",
                                   "Compile DELETE FROM T WHERE A = ?", "Bind 3 4:1", "Execute 3",
                                   "ReleaseStatement 3"));
}

TEST_F(Sql, StatementsOfTheWrongKindAreErrors) {
  replyUpdate(5);
  EXPECT_EQ(stateOf([&] { connection_.query("DELETE FROM T"); }), "07005");
  replyRows({{"1"}});
  EXPECT_EQ(stateOf([&] { connection_.update("SELECT 1"); }), "07005");
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute DELETE FROM T", "ReleaseStatement 3",
                                   "CompileAndExecute SELECT 1", "ReleaseStatement 3"));
}

TEST_F(Sql, StatementsOfAnyKindSayWhatTheyGave) {
  replyUpdate(5);
  const SqlResult update = connection_.sql("DELETE FROM T");
  EXPECT_FALSE(update.rows);
  EXPECT_EQ(update.changes, 5);
  replyRows({{"1"}});
  SqlResult query = connection_.sql("SELECT 1");
  ASSERT_TRUE(query.rows);
  EXPECT_TRUE(query.rows->next());
}

TEST_F(Sql, StatementsAreReleasedWhenABindFails) {
  replyOk();
  reply<noxp::sql::SQLErrorResponseProt>(kId, SQLExtError("02", "001", "wrong number"));
  EXPECT_EQ(stateOf([&] { connection_.query("SELECT ?", {1, 2}); }), "02001");
  EXPECT_EQ(asked().back(), "ReleaseStatement 3");
}

TEST_F(Sql, PreparedStatementsRunAgainAndAgain) {
  replyOk();
  {
    Statement statement = connection_.prepare("INSERT INTO T VALUES (?)");
    EXPECT_EQ(statement.id(), kId);
    replyOk();
    replyUpdate(1);
    EXPECT_EQ(statement.update({"a"}), 1);
    replyUpdate(1);
    EXPECT_EQ(statement.update(), 1);
  }
  EXPECT_THAT(asked(), ElementsAre("Compile INSERT INTO T VALUES (?)", "Bind 3 12:a", "Execute 3",
                                   "Execute 3", "ReleaseStatement 3"));
}

TEST_F(Sql, PreparedQueriesKeepTheirStatement) {
  replyOk();
  Statement statement = connection_.prepare("SELECT ID FROM T");
  replyRows({{"1"}});
  {
    Rows rows = statement.query();
    EXPECT_TRUE(rows.next());
  }
  EXPECT_EQ(asked().back(), "Execute 3") << "nothing is released";
}

TEST_F(Sql, RowsEndWithTheNextExecution) {
  replyOk();
  Statement statement = connection_.prepare("SELECT ID FROM T");
  replyRows({{"1"}, {"2"}});
  Rows first = statement.query();
  EXPECT_TRUE(first.next());
  replyRows({{"1"}});
  Rows second = statement.query();
  EXPECT_EQ(stateOf([&] { first.next(); }), "24000");
  EXPECT_TRUE(second.next());
  statement.close();
  EXPECT_EQ(stateOf([&] { second.next(); }), "24000");
  EXPECT_EQ(stateOf([&] { statement.query(); }), sqlstate::kUnusable);
}

TEST_F(Sql, ParametersAreDescribed) {
  replyOk();
  Statement statement = connection_.prepare("SELECT ID FROM T WHERE A = ? AND B = ?");
  replyColumns({"ID"}, {"?1", "?2"});
  EXPECT_EQ(statement.parameters().size(), 2u);
  EXPECT_EQ(statement.columns().size(), 1u);
  EXPECT_EQ(asked().back(), "MetaData 3") << "asked once";
}

TEST_F(Sql, CatalogsAreRowsLikeOthers) {
  replyRows({{"T"}}, 0);
  replyRows({}, 0);
  Rows tables = connection_.catalog(Catalog::Tables, {"T%"});
  EXPECT_THAT(firstColumn(tables), ElementsAre("T"));
  EXPECT_THAT(asked(), ElementsAre("Catalog TABLES 12:T%", "Fetch 0 1000"));
}

TEST_F(Sql, CatalogsEndWithTheNextOne) {
  replyRows({{"T"}}, 0);
  Rows tables = connection_.catalog(Catalog::Tables);
  replyRows({{"ID"}}, 0);
  Rows columns = connection_.catalog(Catalog::Columns);
  EXPECT_EQ(stateOf([&] { tables.next(); }), "24000");
  EXPECT_TRUE(columns.next());
}

TEST_F(Sql, RowsMove) {
  replyRows({{"1"}, {"2"}});
  Rows rows = connection_.query("SELECT ID FROM T");
  EXPECT_TRUE(rows.next());
  Rows moved = std::move(rows);
  EXPECT_EQ(moved.row()[0].text(), "1");
  EXPECT_TRUE(moved.next());
  EXPECT_EQ(moved.row()[0].text(), "2");
}

TEST_F(Sql, RowsAreReleasedWhereOthersTakeTheirPlace) {
  replyRows({{"1"}});
  replyRows({{"2"}});
  Rows rows = connection_.query("SELECT 1");
  Rows others = connection_.query("SELECT 2");
  rows = std::move(others);
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute SELECT 1", "CompileAndExecute SELECT 2",
                                   "ReleaseStatement 3"));
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()[0].text(), "2");
}

TEST_F(Sql, StatementsAreReleasedWhereOthersTakeTheirPlace) {
  replyOk();
  replyOk();
  Statement statement = connection_.prepare("SELECT 1");
  Statement other = connection_.prepare("SELECT 2");
  statement = std::move(other);
  EXPECT_THAT(asked(), ElementsAre("Compile SELECT 1", "Compile SELECT 2", "ReleaseStatement 3"));
}

TEST_F(Sql, RowsThatAreClosedHaveNoMore) {
  replyRows({{"1"}, {"2"}});
  Rows rows = connection_.query("SELECT ID FROM T");
  EXPECT_TRUE(rows.next());
  rows.close();
  EXPECT_FALSE(rows.next());
  rows.close();
  EXPECT_THAT(asked(), ElementsAre("CompileAndExecute SELECT ID FROM T", "ReleaseStatement 3"));
}

}  // namespace
}  // namespace nox::client
