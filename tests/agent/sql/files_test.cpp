// Files as tables of SQL.
#include <algorithm>

#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

class SqlFilesTest : public SqlTest {
protected:
  SqlFilesTest() {
    ann_.run("CREATE-FILE BOOKS");
    item("TITLE", {"D", "1", "", "Title", "30L", "S"});
    item("PAGES", {"D", "2", "", "Pages", "5R", "S"});
    item("BOUGHT", {"D", "3", "DI", "Bought", "10R", "S"});
    item("PRICE", {"D", "4", "MD2", "Price", "10R", "S"});
    item("AUTHORS", {"D", "5", "", "Authors", "20L", "M"});
    item("DATES", {"D", "6", "DI", "Dates", "10L", "M"});
    write("b1", {"Emma", "474", "0", "1250", values({"Austen"}), ""});
    write("b2",
          {"Das Kapital", "980", "1", "9900", values({"Marx", "Engels"}), values({"0", "366"})});
    write("b10", {"Atlas"});
  }

  void item(const char* name, std::initializer_list<std::string> attributes) {
    ASSERT_EQ(ann_.write("DICT BOOKS", name, record(attributes)), "0");
  }
  void write(const char* id, std::initializer_list<std::string> attributes) {
    ASSERT_EQ(ann_.write("BOOKS", id, record(attributes)), "0");
  }
  /// How the store finds the rows.
  std::string plan(const std::string& query) { return sql_.once("EXPLAIN QUERY PLAN " + query); }
};

TEST_F(SqlFilesTest, AFileHasItsIdAndItsSingleValuedItems) {
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS WHERE ID = 'b1'"), "rows b1,Emma,474,1967-12-31,12.50");
}

TEST_F(SqlFilesTest, RowsComeInTheOrderOfTheirIds) {
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS"), "rows b1|b10|b2");
  EXPECT_EQ(sql_.once("SELECT ID, TITLE FROM BOOKS ORDER BY ID DESC"),
            "rows b2,Das Kapital|b10,Atlas|b1,Emma");
}

TEST_F(SqlFilesTest, WhatARecordLacksIsEmptyAndNotNull) {
  EXPECT_EQ(sql_.once("SELECT PAGES, BOUGHT, PRICE, TITLE IS NULL FROM BOOKS WHERE ID = 'b10'"),
            "rows ,,,0");
}

TEST_F(SqlFilesTest, ValuesWithoutADateTimeOrDecimalConversionStayRaw) {
  item("LOUD", {"D", "1", "MCU", "", "", "S"});
  item("TIME", {"D", "2", "MTS", "", "", "S"});
  EXPECT_EQ(sql_.once("SELECT LOUD, TIME FROM BOOKS WHERE ID = 'b1'"), "rows Emma,00:07:54");
}

TEST_F(SqlFilesTest, AValueThatCannotBeConvertedStaysAsItIs) {
  write("b3", {"X", "", "soon"});
  EXPECT_EQ(sql_.once("SELECT BOUGHT FROM BOOKS WHERE ID = 'b3'"), "rows soon");
}

TEST_F(SqlFilesTest, AnItemOfAttributeZeroIsTheId) {
  item("KEY", {"D", "0", "", "", "", "S"});
  EXPECT_EQ(sql_.once("SELECT KEY FROM BOOKS WHERE KEY = 'b2'"), "rows b2");
}

TEST_F(SqlFilesTest, AMultivaluedItemIsATableOfItsOwn) {
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS__AUTHORS"), "rows b1,1,Austen|b2,1,Marx|b2,2,Engels");
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS__DATES"), "rows b2,1,1967-12-31|b2,2,1968-12-31");
  EXPECT_EQ(sql_.once("SELECT AUTHORS FROM BOOKS"), "42/S22 1");
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS__TITLE"), "42/S02 1");
}

TEST_F(SqlFilesTest, EmptyValuesKeepTheirPositions) {
  write("b3", {"", "", "", "", values({"", "Two", ""})});
  EXPECT_EQ(sql_.once("SELECT POS, VALUE FROM BOOKS__AUTHORS WHERE ID = 'b3'"), "rows 1,|2,Two|3,");
}

TEST_F(SqlFilesTest, FilesAndTheirValuesAreJoined) {
  EXPECT_EQ(sql_.once("SELECT b.TITLE, a.VALUE FROM BOOKS b JOIN BOOKS__AUTHORS a ON a.ID = b.ID"
                      " WHERE b.PAGES > 500 ORDER BY a.POS"),
            "rows Das Kapital,Marx|Das Kapital,Engels");
}

TEST_F(SqlFilesTest, FilesAreJoinedWithTables) {
  sql_.once("CREATE TABLE shelf(book TEXT, place INTEGER)");
  sql_.once("INSERT INTO shelf VALUES('b2', 7), ('b1', 8)");
  EXPECT_EQ(sql_.once("SELECT place, TITLE FROM shelf JOIN BOOKS ON ID = book ORDER BY place"),
            "rows 7,Das Kapital|8,Emma");
  EXPECT_EQ(sql_.once("INSERT INTO shelf SELECT ID, 9 FROM BOOKS WHERE TITLE = 'Atlas'"),
            "changed 1");
}

TEST_F(SqlFilesTest, ItemsThatAreRightJustifiedAreComparedAsNumbers) {
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE PAGES > 500"), "rows b10|b2")
      << "what is no number is greater than all";
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE PAGES = 474.0"), "rows b1");
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE PRICE < 20"), "rows b1");
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE PAGES <> '' ORDER BY PAGES"), "rows b1|b2");
  EXPECT_EQ(sql_.once("SELECT sum(PRICE) FROM BOOKS"), "rows 111.5");
}

TEST_F(SqlFilesTest, NumbersAreShownAsTheyAreStored) {
  write("b4", {"", "007", "", "", ""});
  write("b5", {"", "-0", "", "", ""});
  write("b6", {"", "12.50", "", "", ""});
  EXPECT_EQ(sql_.once("SELECT PAGES FROM BOOKS WHERE ID IN ('b4', 'b5', 'b6')"),
            "rows 007|-0|12.50");
}

TEST_F(SqlFilesTest, AConditionOnTheIdIsASearchByKey) {
  EXPECT_EQ(sql_.once("SELECT TITLE FROM BOOKS WHERE ID = 'b2'"), "rows Das Kapital");
  EXPECT_EQ(sql_.once("SELECT TITLE FROM BOOKS WHERE ID IN ('b2', 'b1', 'none')"),
            "rows Emma|Das Kapital");
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE ID > 'b1' AND ID <= 'b2'"), "rows b10|b2");
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE ID >= 'b10'"), "rows b10|b2");
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE ID < 'b2' ORDER BY ID DESC"), "rows b10|b1");
  EXPECT_EQ(sql_.once("SELECT POS FROM BOOKS__AUTHORS WHERE ID = 'b2'"), "rows 1|2");
  // 1, and 2 with a range: see kById and kFromId.
  EXPECT_NE(plan("SELECT TITLE FROM BOOKS WHERE ID = 'b2'").find("INDEX 1:"), std::string::npos);
  EXPECT_NE(plan("SELECT TITLE FROM BOOKS WHERE ID > 'b2'").find("INDEX 2:"), std::string::npos);
  EXPECT_NE(plan("SELECT TITLE FROM BOOKS WHERE TITLE > 'b2'").find("INDEX 0:"), std::string::npos);
}

TEST_F(SqlFilesTest, AConditionThatIsNoneOnBytesIsNoSearchByKey) {
  EXPECT_EQ(sql_.once("SELECT ID FROM BOOKS WHERE ID = 'B2' COLLATE NOCASE"), "rows b2");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS WHERE ID < x'00'"), "rows 3");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS WHERE ID > x'00'"), "rows 0");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS WHERE ID = x'6231'"), "rows 0");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS WHERE ID = NULL"), "rows 0");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS WHERE ID > NULL"), "rows 0");
}

TEST_F(SqlFilesTest, AnIdThatLooksLikeANumberIsText) {
  write("17", {"Numbers"});
  EXPECT_EQ(sql_.once("SELECT TITLE FROM BOOKS WHERE ID = 17"), "rows Numbers");
  EXPECT_EQ(sql_.once("SELECT TITLE FROM BOOKS WHERE ID = ?", {{"17", SqlType::kInteger}}),
            "rows Numbers");
}

TEST_F(SqlFilesTest, AFileWithoutADictionaryHasItsIdOnly) {
  ann_.run("CREATE-FILE BARE");
  ann_.write("BARE", "x", "body");
  EXPECT_EQ(sql_.once("SELECT * FROM BARE"), "rows x");
}

TEST_F(SqlFilesTest, WhatDefinesNoAttributeIsNoColumn) {
  item("SUM", {"I", "record[1]", "", "", "", "S"});
  item("@ID", {"D", "0", "", "", "", "S"});
  item("BAD", {"D", "many", "", "", "", "S"});
  item("@LIST", {"D"});
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS WHERE ID = 'b10'"), "rows b10,Atlas,,,");
}

TEST_F(SqlFilesTest, NamesThatAreNoIdentifiersAreQuoted) {
  item("FIRST PAGE", {"D", "2", "", "", "", "S"});
  item("a\"b", {"D", "2", "", "", "", "S"});
  item("select", {"D", "2", "", "", "", "S"});
  EXPECT_EQ(sql_.once("SELECT \"FIRST PAGE\", \"a\"\"b\", \"select\" FROM BOOKS WHERE ID = 'b1'"),
            "rows 474,474,474");
  ann_.run("CREATE-FILE A.B-C");
  ann_.write("A.B-C", "x", "");
  EXPECT_EQ(sql_.once("SELECT * FROM \"A.B-C\""), "rows x");
  EXPECT_EQ(sql_.once("SELECT * FROM A.B"), "42/S02 1");
}

TEST_F(SqlFilesTest, NamesThatClashGetANumber) {
  item("Title", {"D", "2", "", "", "", "S"});
  item("ID", {"D", "1", "", "", "", "S"});
  EXPECT_EQ(sql_.once("SELECT ID, ID_2, TITLE, TITLE_2 FROM BOOKS WHERE ID = 'b1'"),
            "rows b1,Emma,Emma,474");
}

TEST_F(SqlFilesTest, SqlFindsAFileInAnyCase) {
  EXPECT_EQ(sql_.once("select title from books where id = 'b1'"), "rows Emma");
  EXPECT_EQ(sql_.once("select value from books__authors where id = 'b1'"), "rows Austen");
}

TEST_F(SqlFilesTest, FilesThatDifferInCaseOnlyAreAmbiguous) {
  sql_.compile("SELECT TITLE FROM BOOKS");
  ann_.run("CREATE-FILE Books");
  EXPECT_EQ(sql_.once("SELECT * FROM Books"), "42/S02");
  EXPECT_NE(sql_.message().find("same name"), std::string::npos);
  EXPECT_EQ(sql_.execute(1), "1 42/S02");
  ann_.run("DELETE-FILE Books (Y");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS"), "rows 3");
}

TEST_F(SqlFilesTest, AChangedDictionaryIsSeenByStatementsThatExist) {
  sql_.compile("SELECT * FROM BOOKS WHERE ID = 'b1'");
  EXPECT_EQ(sql_.execute(1), "1 rows b1,Emma,474,1967-12-31,12.50");
  ann_.remove("DICT BOOKS", "PAGES");
  ClientInProcess bob(agent_);
  bob.remove("DICT BOOKS", "BOUGHT");
  EXPECT_EQ(sql_.execute(1), "1 rows b1,Emma,12.50");
  bob.remove("DICT BOOKS", "AUTHORS");
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS__AUTHORS"), "42/S02 1");
}

TEST_F(SqlFilesTest, AFileThatIsMadeAnewIsTheNewOne) {
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS"), "rows 3");
  ann_.run("DELETE-FILE BOOKS (Y");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM BOOKS"), "42/S02 1");
  ann_.run("CREATE-FILE BOOKS");
  ann_.write("BOOKS", "new", "");
  EXPECT_EQ(sql_.once("SELECT * FROM BOOKS"), "rows new");
}

TEST_F(SqlFilesTest, WrittenRecordsAreSeenInTheTransactionThatWroteThem) {
  ASSERT_EQ(sql_.begin(), "OK");
  write("b1", {"Emma again"});
  item("PAGES", {"D", "1", "", "", "", "S"});
  EXPECT_EQ(sql_.once("SELECT TITLE, PAGES FROM BOOKS WHERE ID = 'b1'"),
            "rows Emma again,Emma again");
  ClientInProcess bob(agent_);
  EXPECT_EQ(SqlCalls(bob).once("SELECT TITLE, PAGES FROM BOOKS WHERE ID = 'b1'"), "rows Emma,474");
  ASSERT_EQ(sql_.rollback(), "OK");
  EXPECT_EQ(sql_.once("SELECT TITLE, PAGES FROM BOOKS WHERE ID = 'b1'"), "rows Emma,474");
}

TEST_F(SqlFilesTest, AViewMayBeMadeOfAFile) {
  EXPECT_EQ(sql_.once("CREATE VIEW thick AS SELECT ID, TITLE FROM BOOKS WHERE PAGES > 500"),
            "changed 0");
  ClientInProcess bob(agent_);
  EXPECT_EQ(SqlCalls(bob).once("SELECT TITLE FROM thick WHERE ID = 'b2'"), "rows Das Kapital");
}

TEST_F(SqlFilesTest, ATableHidesAFileOfItsName) {
  sql_.once("CREATE TABLE later(x)");
  ann_.run("CREATE-FILE LATER");
  EXPECT_EQ(sql_.once("SELECT x FROM LATER"), "rows");
}

TEST_F(SqlFilesTest, ColumnsOfFilesAreDescribed) {
  sql_.compile("SELECT ID, PAGES, TITLE FROM BOOKS");
  noxp::sql::MetaDataRequestProt request(1);
  const auto reply = ann_.askFor<noxp::sql::SQLRSMDResponseProt>(request);
  ASSERT_TRUE(reply);
  const auto line = [&](int i) {
    return reply->getResultSetMetaData()->getColumnMetaDataProt(i)->toString().getString();
  };
  EXPECT_EQ(line(0).substr(0, 20), "1:ID,tableName:BOOKS");
  EXPECT_NE(line(1).find("displayWidth:5,"), std::string::npos);
  EXPECT_NE(line(1).find("datatype:2,nullable:0,readOnly:1,blob:0"), std::string::npos);
  EXPECT_NE(line(2).find("displayWidth:30,"), std::string::npos);
  EXPECT_NE(line(2).find("datatype:12,"), std::string::npos);
}

TEST_F(SqlFilesTest, ALargeFileIsReadInBatches) {
  for (int i = 0; i < 300; ++i) {
    ann_.session().store().write({"BOOKS", Part::Data}, "n" + std::to_string(1'000 + i), "x");
  }
  ann_.session().settings().fetchSize = 100;
  const std::string first = sql_.run("SELECT ID FROM BOOKS WHERE ID > 'n'");
  EXPECT_EQ(first.substr(0, 18), "1 rows n1000|n1001");
  ann_.run("DELETE-FILE BOOKS (Y");
  EXPECT_EQ(sql_.fetch(1, 100).substr(0, 18), "1 rows n1100|n1101") << "as it was";
}

TEST_F(SqlFilesTest, MoreFilesAreNamedThanAConnectionKnows) {
  StoreSession& store = ann_.session().store();
  std::string all = "SELECT 'x'";
  for (int i = 0; i < 300; ++i) {
    const std::string file = "M" + std::to_string(i);
    ASSERT_TRUE(store.createFile(file));
    store.write({file, Part::Data}, "of " + file, "");
    ASSERT_EQ(sql_.once("SELECT ID FROM " + file), "rows of " + file);
    if (i < 200) all += " UNION ALL SELECT ID FROM " + file;
  }
  EXPECT_EQ(sql_.once("SELECT ID FROM M0"), "rows of M0");
  const std::string answer = sql_.once(all);
  EXPECT_EQ(answer.substr(0, 22), "rows x|of M0|of M1|of ");
  EXPECT_EQ(std::count(answer.begin(), answer.end(), '|'), 200);
}

TEST_F(SqlFilesTest, ADictionaryOfAnySizeIsTaken) {
  for (int i = 0; i < 2'100; ++i) {
    ann_.session().store().write({"BOOKS", Part::Dict}, "I" + std::to_string(i),
                                 record({"D", std::to_string(i + 10)}));
  }
  EXPECT_EQ(sql_.once("SELECT TITLE, I0, I1994 FROM BOOKS WHERE ID = 'b1'"), "rows Emma,,");
  EXPECT_EQ(sql_.once("SELECT I1995 FROM BOOKS"), "42/S22 1") << "a table has 2,000 columns";
}

}  // namespace
}  // namespace nox::agent::test
