// Commands about files, saved lists, the active list, subroutines and the session itself.
#include <gmock/gmock.h>

#include <chrono>
#include <string>

#include "agent/conversions/conversions.h"
#include "commands_fixture.h"

namespace nox::agent::test {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class AccountCommandsTest : public CommandsTest {
protected:
  std::string last() { return ann.common("@LAST"); }
  void subroutine(const char* name, const char* lua) {
    if (ann.open("NOX.SUBS") != "OK") {
      EXPECT_EQ(execute(ann, "CREATE-FILE NOX.SUBS").error, "");
    }
    EXPECT_EQ(ann.write("NOX.SUBS", name, lua), "0");
  }
};

// Files.

TEST_F(AccountCommandsTest, CreatesAFileWithItsDictionary) {
  const CommandReply reply = execute(ann, "CREATE-FILE ORDERS");
  EXPECT_EQ(reply.output, "File ORDERS created");
  EXPECT_EQ(reply.setting, "0^0");
  EXPECT_EQ(ann.open("ORDERS"), "OK");
  EXPECT_EQ(ann.open("DICT ORDERS"), "OK");
}

TEST_F(AccountCommandsTest, CreatesNoFileTwice) {
  EXPECT_EQ(run("CREATE-FILE CUSTOMERS"), "IE/011: there is a file \"CUSTOMERS\" already");
}

TEST_F(AccountCommandsTest, DeletesAFileWithBothParts) {
  EXPECT_EQ(run("DELETE-FILE CUSTOMERS (Y"), "File CUSTOMERS deleted");
  EXPECT_EQ(ann.open("CUSTOMERS"), "IE/005");
  EXPECT_EQ(run("DELETE-FILE CUSTOMERS (Y"), "IE/011: there is no file \"CUSTOMERS\"");
}

TEST_F(AccountCommandsTest, ClearsAFileAndKeepsItsDictionary) {
  EXPECT_EQ(run("CLEAR-FILE CUSTOMERS (Y"), "File CUSTOMERS cleared");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "0 records counted");
  EXPECT_EQ(run("COUNT DICT CUSTOMERS"), "8 records counted");
  EXPECT_EQ(run("CLEAR-FILE NONE (Y"), "IE/011: there is no file \"NONE\"");
}

TEST_F(AccountCommandsTest, ListsTheFilesInOrder) {
  EXPECT_EQ(run("CREATE-FILE ORDERS"), "File ORDERS created");
  const CommandReply reply = execute(ann, "LISTF");
  EXPECT_EQ(reply.output, "CUSTOMERS\nORDERS\n\n2 files listed");
  EXPECT_EQ(reply.setting, "0^2");
}

TEST_F(AccountCommandsTest, NeitherDeletesNorClearsWhatAnotherSessionLocks) {
  ann.session().settings().lockWait = std::chrono::seconds(0);
  ClientInProcess bob(agent, Right::Write, "bob");
  ASSERT_EQ(bob.read("CUSTOMERS", "1", 2).substr(0, 1), "0");
  EXPECT_THAT(run("CLEAR-FILE CUSTOMERS (Y"), StartsWith("IE/024: "));
  EXPECT_THAT(run("DELETE-FILE CUSTOMERS (Y"), StartsWith("IE/024: "));
  EXPECT_EQ(bob.release(2), "OK");
  ASSERT_EQ(bob.read("DICT CUSTOMERS", "NAME", 2).substr(0, 1), "0");
  EXPECT_THAT(run("DELETE-FILE CUSTOMERS (Y"), StartsWith("IE/024: "));
  EXPECT_EQ(bob.release(2), "OK");
  EXPECT_EQ(run("DELETE-FILE CUSTOMERS (Y"), "File CUSTOMERS deleted");
}

TEST_F(AccountCommandsTest, FilesBelongToTheTransactionInWhichTheyWereMade) {
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(run("CREATE-FILE ORDERS"), "File ORDERS created");
  EXPECT_EQ(run("DELETE-FILE CUSTOMERS (Y"), "File CUSTOMERS deleted");
  EXPECT_EQ(ann.rollback(), "OK");
  EXPECT_EQ(run("LISTF"), "CUSTOMERS\n\n1 files listed");
}

TEST_F(AccountCommandsTest, NoFileIsMadeOrDeletedInABranch) {
  EXPECT_EQ(ann.xaStart("b1"), "OK");
  EXPECT_THAT(run("CREATE-FILE ORDERS"), StartsWith("0A/000"));
  EXPECT_THAT(run("DELETE-FILE CUSTOMERS (Y"), StartsWith("0A/000"));
  execute(ann, "SELECT CUSTOMERS");
  EXPECT_THAT(run("SAVE-LIST MINE"), StartsWith("0A/000")) << "its file would have to be made";
  EXPECT_EQ(ann.xaEnd("b1"), "OK");
}

TEST_F(AccountCommandsTest, WritingNeedsTheRight) {
  ClientInProcess reader(agent, Right::Read, "eve");
  execute(reader, "SELECT CUSTOMERS");
  for (const char* const command :
       {"CREATE-FILE ORDERS", "DELETE-FILE CUSTOMERS", "DELETE-FILE CUSTOMERS (Y",
        "CLEAR-FILE CUSTOMERS", "CLEAR-FILE CUSTOMERS (Y", "SAVE-LIST MINE", "DELETE-LIST MINE"}) {
    EXPECT_THAT(execute(reader, command).text(), StartsWith("42/000")) << command;
  }
  EXPECT_EQ(run("COUNT CUSTOMERS"), "4 records counted");
}

// The active list.

TEST_F(AccountCommandsTest, AListIsUsedByTheNextCommandThatTakesRecords) {
  EXPECT_EQ(execute(ann, "SELECT CUSTOMERS WITH AGE = 42").list, "1: 1 10");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "2 records counted");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "4 records counted");
}

TEST_F(AccountCommandsTest, AListIsRefined) {
  execute(ann, "SELECT CUSTOMERS BY-DSND AGE");
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH NAME = Smith"), "1 10");
  execute(ann, "SELECT CUSTOMERS BY-DSND AGE");
  EXPECT_EQ(keys("SELECT CUSTOMERS"), "3 1 10 2") << "in the order of the list";
}

TEST_F(AccountCommandsTest, NamedIdsRestrictAList) {
  execute(ann, "SELECT CUSTOMERS BY-DSND AGE");
  EXPECT_EQ(keys("SELECT CUSTOMERS '2' '3' 'none'"), "3 2");
}

TEST_F(AccountCommandsTest, AListMayBeUsedOnAnotherFile) {
  makeFile("NOTES", {{"1", "one"}, {"3", "three"}, {"9", "nine"}});
  execute(ann, "SELECT CUSTOMERS");
  EXPECT_EQ(keys("SELECT NOTES"), "1 3");
}

TEST_F(AccountCommandsTest, AnEmptyListIsActiveToo) {
  EXPECT_EQ(execute(ann, "SELECT CUSTOMERS WITH AGE = 0").list, "1:");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "0 records counted");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "4 records counted");
}

TEST_F(AccountCommandsTest, CommandsThatTakeNoRecordsLeaveTheList) {
  execute(ann, "SELECT CUSTOMERS WITH AGE = 42");
  EXPECT_THAT(execute(ann, "WHO").list, HasSubstr(": 1 10"));
  EXPECT_EQ(run("COUNT CUSTOMERS"), "2 records counted");
}

TEST_F(AccountCommandsTest, ACommandThatIsWrongLeavesTheList) {
  execute(ann, "SELECT CUSTOMERS WITH AGE = 42");
  EXPECT_THAT(run("LIST CUSTOMERS NONE"), StartsWith("IE/011"));
  EXPECT_THAT(run("COUNT CUSTOMERS WITH NONE"), StartsWith("IE/011"));
  EXPECT_THAT(run("COUNT NONE"), StartsWith("IE/011"));
  EXPECT_EQ(run("COUNT CUSTOMERS"), "2 records counted");
}

TEST_F(AccountCommandsTest, ClearselectDropsTheList) {
  execute(ann, "SELECT CUSTOMERS WITH AGE = 42");
  const CommandReply reply = execute(ann, "CLEARSELECT");
  EXPECT_EQ(reply.text(), "");
  EXPECT_EQ(reply.list, "none");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "4 records counted");
}

TEST_F(AccountCommandsTest, AClientsKeysReplaceTheList) {
  execute(ann, "SELECT CUSTOMERS");
  noxp::remote::SelectListProt list = listOf({"3", "2"});
  EXPECT_EQ(execute(ann, "LIST CUSTOMERS NAME HDR-SUPP", &list).text(),
            "3 Ågren\n2 Jones\n\n2 records listed");
}

TEST_F(AccountCommandsTest, AnOpenListIsGivenByItsId) {
  EXPECT_EQ(ann.select("CUSTOMERS"), "1: 1 10 2 3");
  noxp::remote::SelectListProt list;
  list.setId(1);
  EXPECT_EQ(execute(ann, "COUNT CUSTOMERS WITH AGE = 42", &list).text(), "2 records counted");
  EXPECT_EQ(ann.fetch(1, 2, 2), "1: 1 10") << "it stays open";
  list.setId(77);
  EXPECT_THAT(execute(ann, "COUNT CUSTOMERS", &list).text(), StartsWith("24/000"));
}

TEST_F(AccountCommandsTest, AListTravelsInVersion1Only) {
  noxp::remote::SelectListProt list = listOf({"3", "2"});
  EXPECT_EQ(execute(ann, "COUNT CUSTOMERS", &list, 0).text(), "4 records counted");
  EXPECT_EQ(execute(ann, "COUNT CUSTOMERS", &list, 2).text(), "4 records counted");
  EXPECT_EQ(execute(ann, "COUNT CUSTOMERS", &list, 1).text(), "2 records counted");
}

TEST_F(AccountCommandsTest, TheListThatIsLeftCanBeFetchedWithItsRecords) {
  EXPECT_EQ(execute(ann, "SELECT CUSTOMERS '2'").list, "1: 2");
  EXPECT_EQ(ann.fetch(1, 2, 10, true), marked("1: 2=Jones^7^Bergen^18628^^-5"));
}

// Saved lists.

TEST_F(AccountCommandsTest, ListsAreSavedAndTakenBack) {
  execute(ann, "SELECT CUSTOMERS BY-DSND AGE");
  const CommandReply saved = execute(ann, "SAVE-LIST MINE");
  EXPECT_EQ(saved.output, "4 keys saved in list MINE");
  EXPECT_EQ(saved.setting, "0^4");
  EXPECT_EQ(saved.list, "none") << "saving consumes it";
  EXPECT_EQ(ann.read("NOX.LISTS", "MINE"), marked("0 '3^1^10^2'"));

  ClientInProcess bob(agent, Right::Read, "bob");
  const CommandReply taken = execute(bob, "GET-LIST MINE");
  EXPECT_EQ(taken.output, "4 records selected");
  EXPECT_EQ(taken.setting, "0^4");
  EXPECT_EQ(taken.list, "1: 3 1 10 2");
  EXPECT_EQ(bob.fetch(1, 2, 1, true), marked("1: 3=Ågren^101^Oslo^^40 40^0"))
      << "it knows its file";
}

TEST_F(AccountCommandsTest, SavingReplacesAListOfTheSameName) {
  execute(ann, "SELECT CUSTOMERS");
  execute(ann, "SAVE-LIST MINE");
  execute(ann, "SELECT CUSTOMERS '2'");
  EXPECT_EQ(run("SAVE-LIST MINE"), "1 keys saved in list MINE");
  EXPECT_EQ(execute(ann, "GET-LIST MINE").output, "1 records selected");
}

TEST_F(AccountCommandsTest, AnEmptyListIsSavedAsOne) {
  execute(ann, "SELECT CUSTOMERS WITH AGE = 0");
  EXPECT_EQ(run("SAVE-LIST NOBODY"), "0 keys saved in list NOBODY");
  EXPECT_EQ(run("GET-LIST NOBODY"), "0 records selected");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "0 records counted");
}

TEST_F(AccountCommandsTest, SavingNeedsAList) {
  EXPECT_EQ(run("SAVE-LIST MINE"), "IE/011: no list is active");
  EXPECT_EQ(ann.open("NOX.LISTS"), "IE/005") << "nothing was made for nothing";
}

TEST_F(AccountCommandsTest, AListThatSomebodyWroteByHandIsTaken) {
  makeFile("NOX.LISTS", {{"HAND", "3^^1"}});
  EXPECT_EQ(execute(ann, "GET-LIST HAND").list, "1: 3 1");
  EXPECT_EQ(run("LIST CUSTOMERS HDR-SUPP"), "3\n1\n\n2 records listed");
}

TEST_F(AccountCommandsTest, AListThatIsNotThereIsAnError) {
  EXPECT_EQ(run("GET-LIST MINE"), "IE/011: there is no saved list \"MINE\"");
  EXPECT_EQ(run("DELETE-LIST MINE"), "IE/011: there is no saved list \"MINE\"");
  makeFile("NOX.LISTS", {});
  EXPECT_EQ(run("GET-LIST MINE"), "IE/011: there is no saved list \"MINE\"");
  EXPECT_EQ(run("DELETE-LIST MINE"), "IE/011: there is no saved list \"MINE\"");
}

TEST_F(AccountCommandsTest, SavedListsAreDeleted) {
  execute(ann, "SELECT CUSTOMERS");
  execute(ann, "SAVE-LIST MINE");
  EXPECT_EQ(run("DELETE-LIST MINE"), "List MINE deleted");
  EXPECT_EQ(ann.exists("NOX.LISTS", "MINE"), "1");
  EXPECT_EQ(ann.exists("DICT NOX.LISTS", "MINE"), "1");
}

TEST_F(AccountCommandsTest, AListThatAnotherSessionLocksIsNeitherSavedNorDeleted) {
  ann.session().settings().lockWait = std::chrono::seconds(0);
  execute(ann, "SELECT CUSTOMERS");
  execute(ann, "SAVE-LIST MINE");
  ClientInProcess bob(agent, Right::Write, "bob");
  ASSERT_EQ(bob.read("NOX.LISTS", "MINE", 2).substr(0, 1), "0");
  execute(ann, "SELECT CUSTOMERS");
  EXPECT_THAT(run("SAVE-LIST MINE"), StartsWith("IE/024"));
  EXPECT_THAT(run("DELETE-LIST MINE"), StartsWith("IE/024"));
}

// The session.

TEST_F(AccountCommandsTest, WhoNamesTheSession) {
  EXPECT_EQ(run("WHO"), std::to_string(ann.session().id()) + " MAIN ann");
}

TEST_F(AccountCommandsTest, DateAndTimeAreThoseOfTheSessionsZone) {
  ann.session().settings().timezone = "Pacific/Kiritimati";
  const auto today = [] {
    return convert(std::to_string(now("Pacific/Kiritimati").day), "D", Direction::Output);
  };
  // Midnight may pass while the test runs.
  const std::string before = today();
  const std::string date = run("DATE");
  EXPECT_THAT(date, AnyOf(before, today()));
  EXPECT_THAT(run("TIME"), MatchesRegex("[0-2][0-9]:[0-5][0-9]:[0-5][0-9]"));
}

TEST_F(AccountCommandsTest, TheLastCommandsCodeIsACommon) {
  EXPECT_EQ(last(), "0");
  EXPECT_THAT(run("LOST"), StartsWith("IE/011"));
  EXPECT_EQ(last(), "1");
  run("WHO");
  EXPECT_EQ(last(), "0");
  EXPECT_THAT(run("COUNT NONE"), StartsWith("IE/011"));
  EXPECT_EQ(last(), "1");
}

// Subroutines.

TEST_F(AccountCommandsTest, RunCallsASubroutineWithTextsAndShowsWhatItPrints) {
  subroutine("GREET", "nox.print('Hello ' .. args[1]) nox.print(#args)");
  const CommandReply reply = execute(ann, "RUN GREET \"Ann of Oslo\" x");
  EXPECT_EQ(reply.output, "Hello Ann of Oslo\n2");
  EXPECT_EQ(reply.setting, "0^0");
}

TEST_F(AccountCommandsTest, RunLeavesTheListThatItsSubroutineSelects) {
  subroutine("PICK", "nox.execute('SELECT CUSTOMERS WITH AGE = 42')");
  EXPECT_THAT(execute(ann, "RUN PICK").list, HasSubstr(": 1 10"));
}

TEST_F(AccountCommandsTest, ASubroutineThatAbortsLeavesCode1) {
  subroutine("STOP", "nox.print('no') nox.abort()");
  const CommandReply reply = execute(ann, "RUN STOP");
  EXPECT_EQ(reply.output, "no");
  EXPECT_EQ(reply.setting, "1^0");
  EXPECT_EQ(last(), "1");
}

TEST_F(AccountCommandsTest, ASubroutineThatFailsIsAnErrorWithItsText) {
  subroutine("FAIL", "error('out of luck')");
  const CommandReply reply = execute(ann, "RUN FAIL");
  EXPECT_THAT(reply.error, StartsWith("IE/003: "));
  EXPECT_THAT(reply.error, HasSubstr("out of luck"));
  EXPECT_EQ(last(), "1");
}

TEST_F(AccountCommandsTest, ASubroutineThatIsNotThereIsAWordThatIsWrong) {
  EXPECT_THAT(run("RUN NONE"), StartsWith("IE/011: \"NONE\" at character 5: "));
  subroutine("OTHER", "");
  EXPECT_THAT(run("RUN NONE"), StartsWith("IE/011: \"NONE\" at character 5: "));
}

TEST_F(AccountCommandsTest, OutputAndListTravelInOneFrame) {
  AgentInProcess small([](ConfigurationValues& values) { values.maxFrame = 65'536; });
  ClientInProcess bob(small);
  ASSERT_EQ(bob.begin(), "OK");
  ASSERT_EQ(execute(bob, "CREATE-FILE NOX.SUBS").error, "");
  ASSERT_EQ(execute(bob, "CREATE-FILE F").error, "");
  for (int i = 0; i < 300; ++i) {
    bob.write("F", (std::string(200, 'k') + std::to_string(i)).c_str(), "");
  }
  bob.write("NOX.SUBS", "BOTH", "nox.print(('x'):rep(30000)) nox.execute('SELECT F')");
  ASSERT_EQ(bob.commit(), "OK");
  const CommandReply reply = execute(bob, "RUN BOTH");
  EXPECT_EQ(reply.error, "");
  EXPECT_GE(reply.output.size(), 30'000u);
  EXPECT_GT(reply.list.size(), 10'000u);
  EXPECT_LT(reply.output.size() + reply.list.size(), 65'536u);
}

}  // namespace
}  // namespace nox::agent::test
