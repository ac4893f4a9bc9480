// Which records SELECT, SSELECT and COUNT take, and in which order.
#include <gmock/gmock.h>

#include <string>

#include "commands_fixture.h"

namespace nox::agent::test {
namespace {

class SelectionTest : public CommandsTest {};

TEST_F(SelectionTest, WithoutClausesTakesAllRecordsInKeyOrder) {
  const CommandReply reply = execute(ann, "SELECT CUSTOMERS");
  EXPECT_EQ(reply.output, "4 records selected");
  EXPECT_EQ(reply.setting, "0^4");
  EXPECT_EQ(reply.list, "1: 1 10 2 3");
}

TEST_F(SelectionTest, AListThatFindsNoRoomIsNotActive) {
  for (int i = 0; i < 64; ++i) ann.select("CUSTOMERS");
  EXPECT_THAT(execute(ann, "SELECT CUSTOMERS").error, ::testing::StartsWith("IE/007"));
  EXPECT_EQ(ann.common("@LAST"), "1");
  EXPECT_THAT(execute(ann, "SAVE-LIST L").error, ::testing::HasSubstr("no list is active"));
  EXPECT_EQ(execute(ann, "WHO").error, "");
}

TEST_F(SelectionTest, CountCounts) {
  const CommandReply reply = execute(ann, "COUNT CUSTOMERS WITH AGE = 42");
  EXPECT_EQ(reply.output, "2 records counted");
  EXPECT_EQ(reply.setting, "0^2");
  EXPECT_EQ(reply.list, "none");
}

TEST_F(SelectionTest, ComparesNumbersAsNumbers) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH AGE > 42"), "3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH AGE >= 42.0"), "1 10 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH AGE < 42"), "2");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH AGE <= 42"), "1 10 2");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH AGE = 042"), "1 10");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH AGE # 42"), "2 3");
}

TEST_F(SelectionTest, ComparesTextBytewise) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME = Smith"), "1 10");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME = smith"), "");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME > Smith"), "3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH CITY = \"\""), "10");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH CITY < B"), "10");
}

TEST_F(SelectionTest, ABareItemIsNotEmpty) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH CITY"), "1 2 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH BORN"), "1 10 2");
}

TEST_F(SelectionTest, LikeTakesAnyTextForThreeDots) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME LIKE S..."), "1 10");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME LIKE ...n..."), "2 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME LIKE \"Å...\""), "3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME LIKE Smith"), "1 10");
}

TEST_F(SelectionTest, AndBindsBeforeOr) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME = Jones OR NAME = Smith AND CITY = Oslo"), "1 2");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME = Smith AND CITY = Oslo OR NAME = Jones"), "1 2");
}

TEST_F(SelectionTest, SeveralWithClausesAllHold) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME = Smith OR NAME = Jones WITH CITY"), "1 2");
}

TEST_F(SelectionTest, LiteralsGoThroughTheItemsConversion) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH BALANCE = 123.45"), "1");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH BALANCE < 0"), "2");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH BORN = \"1 JAN 1984\""), "1");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH BORN >= 1984-01-01"), "1 2");
}

TEST_F(SelectionTest, ALiteralThatItsConversionRefusesIsAnError) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH BORN = soon"),
            "IE/011: \"soon\" at character 30: no value of the item \"BORN\": \"soon\" is no date");
  EXPECT_EQ(keys("COUNT CUSTOMERS WITH BALANCE = much"),
            "IE/011: \"much\" at character 32: no value of the item \"BALANCE\": \"much\" is no "
            "number");
}

TEST_F(SelectionTest, OneValueOfAMultivaluedItemIsEnough) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONE = \"99 00\""), "1");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONE # \"99 00\""), "1 10 2 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONE"), "1 3");
}

TEST_F(SelectionTest, SubvaluesAreValuesToo) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONE = office"), "1");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONE = \"22 11\""), "1");
}

TEST_F(SelectionTest, EveryValueHasToHoldWithEvery) {
  put("CUSTOMERS", "4", "Lee^1^^^40 40]40 41");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH EVERY PHONE LIKE \"40...\""), "3 4");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH EVERY PHONE = \"40 40\""), "3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH EVERY PHONE"), "1 3 4");
}

TEST_F(SelectionTest, EveryHoldsForAllConditionsOfItsClause) {
  put("CUSTOMERS", "4", "Lee^1^^^40 40]41");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME AND PHONE LIKE \"40...\""), "3 4");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH EVERY NAME AND PHONE LIKE \"40...\""), "3");
}

TEST_F(SelectionTest, ASinglevaluedItemIsComparedAsAWhole) {
  makeFile("DICT CUSTOMERS", {{"PHONES", "D^5"}});
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONES = \"99 00\""), "");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PHONES = \"40 40\""), "3");
}

TEST_F(SelectionTest, ExpressionsAreItems) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH INITIAL = S"), "1 10");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NEXT = 43"), "1 10");
}

TEST_F(SelectionTest, TheIdIsAnItem) {
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH @ID >= 3"), "10 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH @ID LIKE 1..."), "1 10");
}

TEST_F(SelectionTest, NamedIdsAreTakenInTheirOrderAsFarAsTheyExist) {
  EXPECT_EQ(keys("SELECT CUSTOMERS '3' '1' 'none'"), "3 1");
  EXPECT_EQ(keys("SELECT CUSTOMERS '3' '1' WITH AGE = 42"), "1");
  EXPECT_EQ(run("COUNT CUSTOMERS 'none'"), "0 records counted");
}

TEST_F(SelectionTest, ByOrdersBytewise) {
  EXPECT_EQ(keys("SELECT CUSTOMERS BY NAME"), "2 1 10 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS BY CITY"), "10 2 1 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS BY @ID"), "1 10 2 3");
}

TEST_F(SelectionTest, ByOrdersNumbersWhereTheFormatIsRight) {
  EXPECT_EQ(keys("SELECT CUSTOMERS BY AGE"), "2 1 10 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS BY BALANCE"), "2 3 10 1");
  makeFile("DICT CUSTOMERS", {{"LEFT", "D^2^^^4L"}});
  EXPECT_EQ(keys("SELECT CUSTOMERS BY LEFT"), "3 1 10 2");
}

TEST_F(SelectionTest, ByDsndOrdersDownwardsAndStaysStable) {
  EXPECT_EQ(keys("SELECT CUSTOMERS BY-DSND AGE"), "3 1 10 2");
  EXPECT_EQ(keys("SELECT CUSTOMERS BY-DSND NAME"), "3 1 10 2");
}

TEST_F(SelectionTest, LaterItemsOrderWhatEarlierOnesLeaveEqual) {
  EXPECT_EQ(keys("SELECT CUSTOMERS BY NAME BY-DSND BALANCE"), "2 1 10 3");
  EXPECT_EQ(keys("SELECT CUSTOMERS BY NAME BY BALANCE"), "2 10 1 3");
}

TEST_F(SelectionTest, SselectOrdersByTheIdAtTheEnd) {
  EXPECT_EQ(keys("SSELECT CUSTOMERS '3' '10' '1'"), "1 10 3");
  EXPECT_EQ(keys("SSELECT CUSTOMERS BY-DSND NAME"), "3 1 10 2");
}

TEST_F(SelectionTest, IdsAreNumbersWhereTheDictionarySaysSo) {
  makeFile("DICT CUSTOMERS", {{"@ID", "D^0^^No^4R"}});
  EXPECT_EQ(keys("SSELECT CUSTOMERS"), "1 2 3 10");
}

TEST_F(SelectionTest, DictionariesAreSelectedLikeFiles) {
  EXPECT_EQ(keys("SSELECT DICT CUSTOMERS WITH TYPE = I"), "INITIAL NEXT");
  EXPECT_EQ(keys("SELECT DICT CUSTOMERS WITH SM = M"), "PHONE");
}

TEST_F(SelectionTest, AFileThatIsNotThereIsAnError) {
  EXPECT_EQ(run("COUNT NONE"), "IE/011: there is no file \"NONE\"");
  EXPECT_EQ(run("SELECT DICT NONE"), "IE/011: there is no file \"NONE\"");
  EXPECT_EQ(run("LIST NONE '1'"), "IE/011: there is no file \"NONE\"");
}

TEST_F(SelectionTest, SeesTheSessionsOwnChangesAndNoOnesElse) {
  ClientInProcess bob(agent, Right::Write, "bob");
  EXPECT_EQ(ann.begin(), "OK");
  put("CUSTOMERS", "4", "Lee");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "5 records counted");
  EXPECT_EQ(execute(bob, "COUNT CUSTOMERS").text(), "4 records counted");
  EXPECT_EQ(ann.rollback(), "OK");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "4 records counted");
}

TEST_F(SelectionTest, ReadingIsEnoughOfARight) {
  ClientInProcess reader(agent, Right::Read, "eve");
  EXPECT_EQ(execute(reader, "SELECT CUSTOMERS").text(), "4 records selected");
  EXPECT_EQ(execute(reader, "COUNT CUSTOMERS WITH AGE = 42").text(), "2 records counted");
}

}  // namespace
}  // namespace nox::agent::test
