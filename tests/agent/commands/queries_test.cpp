// Queries: LIST and its kin, fetched row by row.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "agent/commands/queries.h"
#include "commands_fixture.h"

namespace nox::agent::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class QueriesTest : public CommandsTest {};

TEST_F(QueriesTest, AnswersWithTheHeadingAndTheFirstKeys) {
  const QueryReply reply = query(ann, "LIST CUSTOMERS NAME AGE PHONE");
  EXPECT_EQ(reply.error, "");
  EXPECT_EQ(reply.heading, "@ID^Name^Age^Phone");
  EXPECT_EQ(reply.list, "1: 1 10 2 3");
}

TEST_F(QueriesTest, RowsAreColumnsConvertedForOutput) {
  const QueryReply opened = query(ann, "LIST CUSTOMERS NAME BORN PHONE BALANCE");
  const RowsReply reply = fetchRows(ann, opened.id, 10);
  EXPECT_EQ(reply.status, 1);
  EXPECT_THAT(reply.rows, ElementsAre("1^Smith^01 JAN 1984^22 11\\office]99 00^123.45",
                                      "10^Smith^13 DEC 1978^^0.07", "2^Jones^31 DEC 2018^^-0.05",
                                      "3^Ågren^^40 40^0.00"));
  EXPECT_THAT(reply.types, Each(0));
}

TEST_F(QueriesTest, RowsComeInPieces) {
  const int id = query(ann, "LIST CUSTOMERS NAME ID-SUPP").id;
  RowsReply reply = fetchRows(ann, id, 3);
  EXPECT_EQ(reply.status, 0);
  EXPECT_THAT(reply.rows, ElementsAre("Smith", "Smith", "Jones"));
  reply = fetchRows(ann, id, 3);
  EXPECT_EQ(reply.status, 1);
  EXPECT_THAT(reply.rows, ElementsAre("Ågren"));
}

TEST_F(QueriesTest, AfterTheEndThereAreNoMoreRows) {
  const int id = query(ann, "LIST CUSTOMERS").id;
  EXPECT_EQ(fetchRows(ann, id, 10).rows.size(), 4u);
  const RowsReply reply = fetchRows(ann, id, 10);
  EXPECT_EQ(reply.error, "");
  EXPECT_EQ(reply.status, 1);
  EXPECT_THAT(reply.rows, IsEmpty());
}

TEST_F(QueriesTest, SortOrdersTheRows) {
  const QueryReply opened = query(ann, "SORT CUSTOMERS BY-DSND AGE AGE ID-SUPP");
  EXPECT_EQ(opened.list, "1: 3 1 10 2");
  EXPECT_THAT(fetchRows(ann, opened.id, 10).rows, ElementsAre("101", "42", "42", "7"));
}

TEST_F(QueriesTest, SelectGivesTheIds) {
  const QueryReply opened = query(ann, "SSELECT CUSTOMERS WITH AGE = 42");
  EXPECT_EQ(opened.heading, "@ID");
  EXPECT_EQ(opened.list, "1: 1 10");
  EXPECT_THAT(fetchRows(ann, opened.id, 10).rows, ElementsAre("1", "10"));
  EXPECT_EQ(run("COUNT CUSTOMERS"), "4 records counted") << "it leaves no active list";
}

TEST_F(QueriesTest, OptionsCountAsInCommands) {
  const QueryReply opened = query(ann, "LIST CUSTOMERS NAME ID-SUPP HDR-SUPP FIRST 2");
  EXPECT_EQ(opened.heading, "Name");
  EXPECT_EQ(opened.list, "1: 1 10");
  EXPECT_THAT(fetchRows(ann, opened.id, 10).rows, ElementsAre("Smith", "Smith"));
}

TEST_F(QueriesTest, WithoutItemsShowsTheRecordListOrTheId) {
  EXPECT_EQ(query(ann, "LIST CUSTOMERS").heading, "@ID");
  makeFile("DICT CUSTOMERS", {{"@LIST", "NAME"}});
  EXPECT_EQ(query(ann, "LIST CUSTOMERS").heading, "@ID^Name");
}

TEST_F(QueriesTest, HeadingsOfSeveralLinesAreValues) {
  makeFile("DICT CUSTOMERS", {{"LONG", "D^1^^First]name^8L"}});
  EXPECT_EQ(query(ann, "LIST CUSTOMERS LONG ID-SUPP").heading, "First]name");
}

TEST_F(QueriesTest, OtherCommandsAreNoQueries) {
  for (const char* const command : {"COUNT CUSTOMERS", "WHO", "CREATE-FILE X", "GET-LIST L",
                                    "DELETE-FILE CUSTOMERS (Y", "RUN X"}) {
    EXPECT_EQ(query(ann, command).error, "IE/011: a query is a LIST, SORT, SELECT or SSELECT")
        << command;
  }
  EXPECT_EQ(query(ann, "LOST").error, "IE/011: \"LOST\" at character 1: there is no such command");
  EXPECT_EQ(query(ann, "LIST NONE").error, "IE/011: there is no file \"NONE\"");
  EXPECT_EQ(query(ann, "LIST CUSTOMERS NONE").error,
            "IE/011: \"NONE\" at character 16: there is no such item in the dictionary");
}

TEST_F(QueriesTest, AQueryThatIsNotOpenIsUnknown) {
  EXPECT_THAT(fetchRows(ann, 1, 10).error, StartsWith("26/000: "));
  query(ann, "LIST CUSTOMERS");
  EXPECT_THAT(fetchRows(ann, 2, 10).error, StartsWith("26/000: "));
  EXPECT_THAT(fetchRows(ann, 0, 10).error, StartsWith("26/000: "));
  EXPECT_THAT(fetchRows(ann, -1, 10).error, StartsWith("26/000: "));
}

TEST_F(QueriesTest, QueriesStandSideBySide) {
  const int names = query(ann, "LIST CUSTOMERS NAME ID-SUPP").id;
  const int ages = query(ann, "LIST CUSTOMERS AGE ID-SUPP").id;
  EXPECT_NE(names, ages);
  EXPECT_THAT(fetchRows(ann, names, 1).rows, ElementsAre("Smith"));
  EXPECT_THAT(fetchRows(ann, ages, 2).rows, ElementsAre("42", "42"));
  EXPECT_THAT(fetchRows(ann, names, 2).rows, ElementsAre("Smith", "Jones"));
}

TEST_F(QueriesTest, UsesTheActiveListAndConsumesIt) {
  execute(ann, "SELECT CUSTOMERS BY-DSND AGE");
  EXPECT_EQ(query(ann, "LIST CUSTOMERS").list, "1: 3 1 10 2");
  EXPECT_EQ(query(ann, "LIST CUSTOMERS").list, "2: 1 10 2 3");
}

TEST_F(QueriesTest, AListInVersion1ReplacesTheActiveOne) {
  noxp::remote::SelectListProt list = listOf({"3", "2"});
  EXPECT_EQ(query(ann, "LIST CUSTOMERS", &list).list, "1: 3 2");
  EXPECT_EQ(query(ann, "LIST CUSTOMERS", &list, 0).list, "2: 1 10 2 3");
}

TEST_F(QueriesTest, FetchSizeCountsWhereNoneIsAskedFor) {
  ann.session().settings().fetchSize = 2;
  const QueryReply opened = query(ann, "LIST CUSTOMERS");
  EXPECT_EQ(opened.list, "1: 1 10");
  EXPECT_THAT(fetchRows(ann, opened.id, 0).rows, ElementsAre("1", "10"));
  EXPECT_THAT(fetchRows(ann, opened.id, -5).rows, ElementsAre("2", "3"));
  EXPECT_EQ(fetchRows(ann, opened.id, 0).status, 1);
}

TEST_F(QueriesTest, ShowsOneStateOfTheFile) {
  ann.session().settings().fetchSize = 1;
  const int id = query(ann, "LIST CUSTOMERS NAME ID-SUPP").id;
  ClientInProcess bob(agent, Right::Write, "bob");
  bob.write("CUSTOMERS", "2", "Changed");
  bob.remove("CUSTOMERS", "3");
  bob.write("CUSTOMERS", "4", "New");
  EXPECT_THAT(allRows(ann, id, 1), ElementsAre("Smith", "Smith", "Jones", "Ågren"));
}

TEST_F(QueriesTest, LivesThroughWhatItsOwnSessionWrites) {
  ann.session().settings().fetchSize = 1;
  const int id = query(ann, "LIST CUSTOMERS NAME ID-SUPP").id;
  put("CUSTOMERS", "2", "Changed");
  EXPECT_EQ(ann.begin(), "OK");
  put("CUSTOMERS", "3", "Changed");
  EXPECT_THAT(fetchRows(ann, id, 2).rows, ElementsAre("Smith", "Smith"));
  EXPECT_EQ(ann.commit(), "OK");
  EXPECT_THAT(fetchRows(ann, id, 2).rows, ElementsAre("Jones", "Ågren"));
}

TEST_F(QueriesTest, RowsAreCutAtTheFrame) {
  AgentInProcess small([](ConfigurationValues& values) { values.maxFrame = 65'536; });
  ClientInProcess bob(small);
  ASSERT_EQ(execute(bob, "CREATE-FILE F").error, "");
  bob.write("DICT F", "ALL", marked("D^1"));
  const std::string body(20'000, 'x');
  for (const char* const id : {"1", "2", "3", "4", "5", "6", "7"}) bob.write("F", id, body);
  const int id = query(bob, "LIST F ALL ID-SUPP").id;
  std::size_t rows = 0;
  RowsReply reply;
  do {
    reply = fetchRows(bob, id, 100);
    ASSERT_EQ(reply.error, "");
    EXPECT_LE(reply.rows.size(), 3u);
    rows += reply.rows.size();
  } while (reply.status == 0);
  EXPECT_EQ(rows, 7u);
}

TEST_F(QueriesTest, KeysOfTheFirstChunkAreCutAtTheFrame) {
  AgentInProcess small([](ConfigurationValues& values) { values.maxFrame = 65'536; });
  ClientInProcess bob(small);
  ASSERT_EQ(bob.begin(), "OK");
  ASSERT_EQ(execute(bob, "CREATE-FILE F").error, "");
  for (int i = 0; i < 400; ++i) {
    bob.write("F", (std::string(250, 'k') + std::to_string(1000 + i)).c_str(), "");
  }
  ASSERT_EQ(bob.commit(), "OK");
  const QueryReply opened = query(bob, "LIST F");
  EXPECT_EQ(opened.error, "");
  EXPECT_LT(opened.list.size(), 65'536u);
  EXPECT_GT(opened.list.size(), 50'000u);
  EXPECT_EQ(allRows(bob, opened.id, 1'000).size(), 400u);
}

TEST_F(QueriesTest, TheFirstChunkIsShorterWhereRowsAreLong) {
  makeFile("LONG", {});
  ann.write("DICT LONG", "TEXT", marked("D^1"));
  const std::string text(200'000, 'x');
  for (const char* const id : {"1", "2", "3", "4"}) ann.write("LONG", id, text);
  const QueryReply opened = query(ann, "LIST LONG TEXT ID-SUPP");
  EXPECT_EQ(opened.list, "1: 1 2");
  EXPECT_THAT(allRows(ann, opened.id, 3), ElementsAre(text, text, text, text));
}

TEST_F(QueriesTest, HeadingsThatNoFrameHoldsAreAnError) {
  AgentInProcess small([](ConfigurationValues& values) { values.maxFrame = 65'536; });
  ClientInProcess bob(small);
  ASSERT_EQ(execute(bob, "CREATE-FILE F").error, "");
  bob.write("DICT F", "ALL", marked("D^1^^" + std::string(40'000, 'x')));
  EXPECT_EQ(query(bob, "LIST F ALL").error, "");
  EXPECT_EQ(query(bob, "LIST F ALL ALL").error,
            "IE/011: the headings are longer than a frame may be");
}

TEST_F(QueriesTest, ARowThatNoFrameHoldsIsAnErrorAndEndsTheQuery) {
  AgentInProcess small([](ConfigurationValues& values) { values.maxFrame = 65'536; });
  ClientInProcess bob(small);
  ASSERT_EQ(execute(bob, "CREATE-FILE F").error, "");
  bob.write("DICT F", "ALL", marked("D^1"));
  bob.write("F", "1", "short");
  bob.write("F", "2", std::string(40'000, 'x'));
  const int id = query(bob, "LIST F ALL ALL ID-SUPP").id;
  EXPECT_THAT(fetchRows(bob, id, 10).rows, ElementsAre("short^short"));
  EXPECT_EQ(fetchRows(bob, id, 10).error, "IE/011: a row is longer than a frame may be");
  EXPECT_THAT(fetchRows(bob, id, 10).error, StartsWith("26/000"));
}

TEST_F(QueriesTest, ANewQueryTakesThePlaceOfTheOneUsedLongestAgo) {
  const int first = query(ann, "LIST CUSTOMERS").id;
  const int second = query(ann, "LIST CUSTOMERS").id;
  for (std::size_t i = 2; i < Queries::kMostOpen; ++i) query(ann, "LIST CUSTOMERS '1'");
  EXPECT_EQ(fetchRows(ann, first, 1).error, "");
  EXPECT_EQ(ann.session().queries().size(), Queries::kMostOpen);
  EXPECT_EQ(query(ann, "LIST CUSTOMERS").error, "");
  EXPECT_EQ(ann.session().queries().size(), Queries::kMostOpen);
  EXPECT_EQ(fetchRows(ann, first, 1).error, "");
  EXPECT_THAT(fetchRows(ann, second, 1).error, StartsWith("26/000"));
}

TEST_F(QueriesTest, AnExpressionThatFailsLaterEndsTheQuery) {
  makeFile("DICT CUSTOMERS", {{"BAD", "I^id == '2' and error('no') or id"}});
  ann.session().settings().fetchSize = 1;
  const int id = query(ann, "LIST CUSTOMERS BAD ID-SUPP").id;
  EXPECT_THAT(fetchRows(ann, id, 2).rows, ElementsAre("1", "10"));
  EXPECT_THAT(fetchRows(ann, id, 2).error, StartsWith("IE/011: "));
  EXPECT_THAT(fetchRows(ann, id, 2).error, StartsWith("26/000: "));
}

}  // namespace
}  // namespace nox::agent::test
