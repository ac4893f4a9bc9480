// What LIST and SORT print.
#include <gmock/gmock.h>

#include <chrono>
#include <string>

#include "commands_fixture.h"

namespace nox::agent::test {
namespace {

class ListCommandTest : public CommandsTest {};

TEST_F(ListCommandTest, ShowsTheIdsWhereTheDictionaryNamesNoItems) {
  const CommandReply reply = execute(ann, "LIST CUSTOMERS");
  EXPECT_EQ(reply.output,
            "@ID\n"
            "1\n"
            "10\n"
            "2\n"
            "3\n"
            "\n"
            "4 records listed");
  EXPECT_EQ(reply.setting, "0^4");
  EXPECT_EQ(reply.list, "none");
}

TEST_F(ListCommandTest, ShowsItemsAsTheDictionarySays) {
  EXPECT_EQ(run("LIST CUSTOMERS NAME AGE CITY BORN BALANCE"),
            "@ID Name      Age City     Born           Balance\n"
            "1   Smith      42 Oslo     01 JAN 1984     123.45\n"
            "10  Smith      42          13 DEC 1978       0.07\n"
            "2   Jones       7 Bergen   31 DEC 2018      -0.05\n"
            "3   Ågren     101 Oslo                       0.00\n"
            "\n"
            "4 records listed");
}

TEST_F(ListCommandTest, ShowsValuesInLinesOfTheirOwn) {
  EXPECT_EQ(run("LIST CUSTOMERS '1' '3' PHONE NAME"),
            "@ID Phone        Name\n"
            "1   22 11\\office Smith\n"
            "    99 00\n"
            "3   40 40        Ågren\n"
            "\n"
            "2 records listed");
}

TEST_F(ListCommandTest, ShowsWhatExpressionsGive) {
  EXPECT_EQ(run("LIST CUSTOMERS '2' INITIAL NEXT"),
            "@ID I Next\n"
            "2   J    8\n"
            "\n"
            "1 records listed");
}

TEST_F(ListCommandTest, ShowsAValueThatCannotBeConvertedAsItIs) {
  put("CUSTOMERS", "5", "Lee^^^soon^^much");
  EXPECT_EQ(run("LIST CUSTOMERS '5' BORN BALANCE"),
            "@ID Born           Balance\n"
            "5   soon              much\n"
            "\n"
            "1 records listed");
}

TEST_F(ListCommandTest, ShowsTheItemsOfTheRecordList) {
  makeFile("DICT CUSTOMERS", {{"@LIST", "NAME^AGE"}});
  EXPECT_EQ(run("LIST CUSTOMERS '1'"),
            "@ID Name      Age\n"
            "1   Smith      42\n"
            "\n"
            "1 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS '1' CITY"),
            "@ID City\n"
            "1   Oslo\n"
            "\n"
            "1 records listed");
}

TEST_F(ListCommandTest, RefusesAnItemOfTheRecordListThatIsNotThere) {
  makeFile("DICT CUSTOMERS", {{"@LIST", "NAME^NONE"}});
  EXPECT_EQ(run("LIST CUSTOMERS"), "IE/011: \"NONE\": there is no such item in the dictionary");
}

TEST_F(ListCommandTest, SuppressesHeadingsAndIds) {
  EXPECT_EQ(run("LIST CUSTOMERS '2' NAME HDR-SUPP"), "2 Jones\n\n1 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS '2' NAME ID-SUPP"), "Name\nJones\n\n1 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS '2' NAME ID-SUPP HDR-SUPP"), "Jones\n\n1 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS ID-SUPP"), "\n4 records listed");
}

TEST_F(ListCommandTest, ShowsTheIdWhereItIsNamed) {
  EXPECT_EQ(run("LIST CUSTOMERS '2' NAME @ID HDR-SUPP"), "Jones    2\n\n1 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS '2' NAME @ID HDR-SUPP ID-SUPP"), "Jones    2\n\n1 records listed");
}

TEST_F(ListCommandTest, EndsAfterTheFirstRecords) {
  EXPECT_EQ(run("LIST CUSTOMERS HDR-SUPP FIRST 2"), "1\n10\n\n2 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS HDR-SUPP WITH AGE = 42 FIRST 1"), "1\n\n1 records listed");
  EXPECT_EQ(run("SORT CUSTOMERS BY-DSND AGE HDR-SUPP FIRST 2"), "3\n1\n\n2 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS HDR-SUPP FIRST 0"), "\n0 records listed");
  EXPECT_EQ(run("LIST CUSTOMERS HDR-SUPP FIRST 9"), "1\n10\n2\n3\n\n4 records listed");
}

TEST_F(ListCommandTest, SortOrdersByTheIdAtTheEnd) {
  EXPECT_EQ(run("SORT CUSTOMERS BY CITY NAME CITY HDR-SUPP"),
            "10 Smith\n"
            "2  Jones    Bergen\n"
            "1  Smith    Oslo\n"
            "3  Ågren    Oslo\n"
            "\n"
            "4 records listed");
}

TEST_F(ListCommandTest, ListsNothingOfAnEmptyFile) {
  makeFile("EMPTY", {});
  const CommandReply reply = execute(ann, "LIST EMPTY");
  EXPECT_EQ(reply.output, "@ID\n\n0 records listed");
  EXPECT_EQ(reply.setting, "0^0");
}

TEST_F(ListCommandTest, DescribesDictionariesByItemsOfTheirOwn) {
  EXPECT_EQ(run("LIST DICT CUSTOMERS 'BALANCE' 'INITIAL'"),
            "@ID     TYPE LOC                          CONV HEADING FORMAT SM\n"
            "BALANCE D    6                            MD2, Balance 10R    S\n"
            "INITIAL I    nox.ext(record, 1):sub(1, 1)      I       1L     S\n"
            "\n"
            "2 records listed");
  EXPECT_EQ(run("LIST DICT CUSTOMERS NAME"),
            "IE/011: \"NAME\" at character 21: dictionaries have the items @ID, TYPE, LOC, CONV, "
            "HEADING, FORMAT and SM");
}

TEST_F(ListCommandTest, RefusesAnOutputThatNoFrameHolds) {
  AgentInProcess small([](ConfigurationValues& values) { values.maxFrame = 65'536; });
  ClientInProcess bob(small);
  ASSERT_EQ(execute(bob, "CREATE-FILE F").error, "");
  const std::string body(10'000, 'x');
  for (const char* const id : {"1", "2", "3", "4", "5", "6", "7"}) bob.write("F", id, body);
  bob.write("DICT F", "ALL", marked("D^1"));
  EXPECT_EQ(execute(bob, "LIST F ALL FIRST 6").setting, "0^6");
  EXPECT_EQ(execute(bob, "LIST F ALL").error,
            "IE/011: the output is longer than a frame may be: list fewer records, or fetch them "
            "with a query");
}

TEST_F(ListCommandTest, EndsWhereItTakesTooLong) {
  makeFile("DICT CUSTOMERS", {{"SLOW", "I^(function() for i = 1, 400000 do end return id end)()"}});
  std::string ids;
  for (int i = 0; i < 2'000; ++i) ids += "'1'";
  ann.session().settings().statementTimeout = std::chrono::seconds(1);
  const auto begin = std::chrono::steady_clock::now();
  const CommandReply reply = execute(ann, "LIST CUSTOMERS " + ids + " SLOW");
  EXPECT_EQ(reply.error.substr(0, 7), "IE/011:") << reply.output.substr(0, 100);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(ListCommandTest, SortsMoreThanMemoryHolds) {
  // Some 40 MB of columns: more than a sort keeps in memory.
  makeFile("BIG", {});
  ASSERT_EQ(ann.write("DICT BIG", "N", marked("D^1^^^6R")), "0");
  ASSERT_EQ(ann.write("DICT BIG", "TEXT", marked("D^2")), "0");
  ASSERT_EQ(ann.begin(), "OK");
  const std::string text(200'000, 'x');
  for (int i = 0; i < 200; ++i) {
    const std::string number = std::to_string((i * 7919) % 200);
    ann.write("BIG", std::to_string(i).c_str(), marked(number + "^" + text));
  }
  ASSERT_EQ(ann.commit(), "OK");
  const QueryReply opened = query(ann, "SORT BIG BY N N TEXT ID-SUPP");
  ASSERT_EQ(opened.error, "");
  int expected = 0;
  for (const std::string& row : allRows(ann, opened.id, 50)) {
    ASSERT_EQ(row, std::to_string(expected++) + "^" + text);
  }
  EXPECT_EQ(expected, 200);
}

}  // namespace
}  // namespace nox::agent::test
