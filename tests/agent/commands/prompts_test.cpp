// Commands that ask before they act.
#include <gmock/gmock.h>

#include <string>

#include "commands_fixture.h"

namespace nox::agent::test {
namespace {

using ::testing::StartsWith;

class PromptsTest : public CommandsTest {
protected:
  bool exists() { return ann.open("CUSTOMERS") == "OK"; }
};

TEST_F(PromptsTest, DeletingAFileAsksFirst) {
  const CommandReply asked = execute(ann, "DELETE-FILE CUSTOMERS");
  EXPECT_EQ(asked.prompt, 1);
  EXPECT_EQ(asked.output, "Delete file CUSTOMERS with all its records (Y/N)? ");
  const CommandReply done = answer(ann, "Y");
  EXPECT_EQ(done.prompt, 0);
  EXPECT_EQ(done.output, "File CUSTOMERS deleted");
  EXPECT_EQ(done.setting, "0^0");
  EXPECT_FALSE(exists());
}

TEST_F(PromptsTest, ClearingAFileAsksFirst) {
  const CommandReply asked = execute(ann, "CLEAR-FILE CUSTOMERS");
  EXPECT_EQ(asked.prompt, 1);
  EXPECT_EQ(asked.output, "Clear file CUSTOMERS of all its records (Y/N)? ");
  EXPECT_EQ(answer(ann, " yes ").output, "File CUSTOMERS cleared");
  EXPECT_EQ(run("COUNT CUSTOMERS"), "0 records counted");
}

TEST_F(PromptsTest, NothingIsDoneWithoutAYes) {
  for (const char* const no : {"N", "no", "", "yes please", "Yx", "1"}) {
    ASSERT_EQ(execute(ann, "DELETE-FILE CUSTOMERS").prompt, 1);
    const CommandReply done = answer(ann, no);
    EXPECT_EQ(done.output, "Nothing done") << no;
    EXPECT_EQ(done.setting, "1^0") << no;
    EXPECT_EQ(ann.common("@LAST"), "1");
  }
  EXPECT_TRUE(exists());
}

TEST_F(PromptsTest, WhatCannotBeDoneIsNotAsked) {
  EXPECT_EQ(run("DELETE-FILE NONE"), "IE/011: there is no file \"NONE\"");
  EXPECT_EQ(run("CLEAR-FILE NONE"), "IE/011: there is no file \"NONE\"");
  EXPECT_FALSE(ann.session().isPrompting());
}

TEST_F(PromptsTest, AnAnswerWithoutAQuestionIsAnError) {
  EXPECT_THAT(answer(ann, "Y").error, StartsWith("IE/011: "));
  execute(ann, "DELETE-FILE CUSTOMERS");
  answer(ann, "N");
  EXPECT_THAT(answer(ann, "Y").error, StartsWith("IE/011: "));
  EXPECT_TRUE(exists());
}

TEST_F(PromptsTest, AnotherRequestAbandonsTheCommand) {
  execute(ann, "DELETE-FILE CUSTOMERS");
  EXPECT_TRUE(exists());  // a request of its own
  EXPECT_THAT(answer(ann, "Y").error, StartsWith("IE/011: "));
  EXPECT_TRUE(exists());
}

TEST_F(PromptsTest, AnotherCommandAbandonsTheCommand) {
  execute(ann, "DELETE-FILE CUSTOMERS");
  EXPECT_EQ(execute(ann, "CLEAR-FILE CUSTOMERS").prompt, 1);
  EXPECT_EQ(answer(ann, "N").output, "Nothing done");
  EXPECT_TRUE(exists());
}

TEST_F(PromptsTest, AFileThatIsGoneMeanwhileIsAnError) {
  execute(ann, "DELETE-FILE CUSTOMERS");
  ClientInProcess bob(agent, Right::Write, "bob");
  EXPECT_EQ(execute(bob, "DELETE-FILE CUSTOMERS (Y").text(), "File CUSTOMERS deleted");
  EXPECT_EQ(answer(ann, "Y").error, "IE/011: there is no file \"CUSTOMERS\"");
}

TEST_F(PromptsTest, SubroutinesAskThroughRun) {
  makeFile("NOX.SUBS", {});
  ann.write("NOX.SUBS", "ASK",
            "nox.print('Name?') nox.print('Hello ' .. nox.input(args[1] == 'hidden'))");
  const CommandReply asked = execute(ann, "RUN ASK");
  EXPECT_EQ(asked.prompt, 1);
  EXPECT_EQ(asked.output, "Name?");
  EXPECT_EQ(answer(ann, "Ann").output, "Hello Ann");
  EXPECT_EQ(execute(ann, "RUN ASK hidden").prompt, 2);
}

TEST_F(PromptsTest, ACommandInsideASubroutineAsksThroughIt) {
  makeFile("NOX.SUBS", {});
  ann.write("NOX.SUBS", "DROP", "nox.execute('DELETE-FILE CUSTOMERS') nox.print('done')");
  const CommandReply asked = execute(ann, "RUN DROP");
  EXPECT_EQ(asked.prompt, 1);
  EXPECT_EQ(asked.output, "Delete file CUSTOMERS with all its records (Y/N)? ");
  const CommandReply done = answer(ann, "Y");
  EXPECT_EQ(done.error, "");
  EXPECT_FALSE(exists());
}

}  // namespace
}  // namespace nox::agent::test
