// Programs that ask, one inside another, as noxd answers them: 209, 220, 305 and 210.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/agent/support/command_calls.h"
#include "tests/agent/wire/shared_noxd.h"

namespace nox::agent::test {
namespace {

using namespace noxp::remote;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class WirePrompts : public SharedNoxd {
protected:
  static void SetUpTestSuite() {
    SharedNoxd::SetUpTestSuite();
    execute(ann(), "CREATE-FILE NOX.SUBS");
  }
  static void subroutine(const char* name, const std::string& lua) {
    EXPECT_EQ(ann().write("NOX.SUBS", name, lua), "0");
  }
  static CommandReply run(const std::string& command) { return execute(ann(), command); }
};

TEST_F(WirePrompts, EachReplyHasWhatWasPrintedSinceTheLast) {
  subroutine("TALK",
             "nox.print('one') nox.print('Name?') local name = nox.input() "
             "nox.print('Hello ' .. name) nox.print('Age?') nox.input() nox.print('done')");
  const CommandReply first = run("RUN TALK");
  EXPECT_EQ(first.prompt, 1);
  EXPECT_EQ(first.output, "one\nName?");
  const CommandReply second = answer(ann(), "Jörg");
  EXPECT_EQ(second.prompt, 1);
  EXPECT_EQ(second.output, "Hello Jörg\nAge?");
  const CommandReply last = answer(ann(), "7");
  EXPECT_EQ(last.prompt, 0);
  EXPECT_EQ(last.output, "done");
  EXPECT_EQ(last.setting, "0^0");
}

TEST_F(WirePrompts, APromptMayHaveNoTextAndAnAnswerNone) {
  subroutine("SILENT", "args[1] = '<' .. nox.input() .. '>'");
  const SubroutineReply asked = call(ann(), "SILENT", std::vector<Parameter>{{"", 1}});
  EXPECT_EQ(asked.prompt, 1);
  EXPECT_EQ(asked.output, "");
  EXPECT_THAT(answerSubroutine(ann(), "").parameters, ElementsAre(Parameter{"<>", 1}));
}

TEST_F(WirePrompts, ProgramsThatAskNestTwoDeep) {
  subroutine("INNERMOST", "nox.print('PIN?') nox.common.pin = nox.input(true)");
  subroutine("MIDDLE",
             "nox.print('in the middle') nox.execute('RUN INNERMOST') nox.print('Sure?') "
             "nox.common.sure = nox.input()");
  subroutine("OUTER",
             "nox.print('outside') local output = nox.execute('RUN MIDDLE') "
             "nox.print('Last?') args[1] = nox.input() .. '|' .. output");
  const SubroutineReply first = call(ann(), "OUTER", std::vector<Parameter>{{"", 9}});
  EXPECT_EQ(first.prompt, 2) << "the innermost decides whether the answer is hidden";
  EXPECT_EQ(first.output, "outside\nin the middle\nPIN?");
  const SubroutineReply second = answerSubroutine(ann(), "1234");
  EXPECT_EQ(second.prompt, 1);
  EXPECT_EQ(second.output, "Sure?");
  const SubroutineReply third = answerSubroutine(ann(), "yes");
  EXPECT_EQ(third.prompt, 1);
  EXPECT_EQ(third.output, "Last?");
  const SubroutineReply last = answerSubroutine(ann(), "end");
  EXPECT_EQ(last.status, 0);
  EXPECT_THAT(last.parameters, ElementsAre(Parameter{marked("end|in the middle^PIN?^Sure?"), 9}));
  EXPECT_EQ(ann().common("pin"), "1234");
  EXPECT_EQ(ann().common("sure"), "yes");
}

TEST_F(WirePrompts, TheConfirmationOfACommandIsAskedThroughASubroutine) {
  ann().write(file(), "A", "x");
  subroutine("CLEANS", std::string("nox.execute('CLEAR-FILE ") + file() + "')");
  EXPECT_EQ(run("RUN CLEANS").prompt, 1);
  EXPECT_EQ(answer(ann(), "N").prompt, 0);
  EXPECT_EQ(ann().exists(file(), "A"), "0");
  EXPECT_EQ(run("RUN CLEANS").prompt, 1);
  EXPECT_EQ(answer(ann(), "Y").prompt, 0);
  EXPECT_EQ(ann().exists(file(), "A"), "1");
}

TEST_F(WirePrompts, AnErrorAfterAPromptEndsAllThatWait) {
  subroutine("FAILS", "nox.input() error('no luck')");
  subroutine("CALLS", "nox.execute('RUN FAILS') nox.open('NOX.SUBS'):delete('CALLS')");
  EXPECT_EQ(run("RUN CALLS").prompt, 1);
  EXPECT_THAT(answer(ann(), "x").error, HasSubstr("no luck"));
  EXPECT_THAT(answer(ann(), "x").error, StartsWith("IE/011"));
  EXPECT_EQ(ann().exists("NOX.SUBS", "CALLS"), "0");
}

TEST_F(WirePrompts, AnAbandonedNestIsUndoneInsideATransaction) {
  subroutine("INNER", std::string("nox.open('") + file() + "'):write('INNER', 'x') nox.input()");
  subroutine("OUTER", std::string("nox.open('") + file() +
                          "'):write('OUTER', 'x') nox.execute('RUN INNER')");
  ann().begin();
  ann().write(file(), "BEFORE", "x");
  EXPECT_EQ(run("RUN OUTER").prompt, 1);
  EXPECT_EQ(ann().exists(file(), "OUTER"), "1") << "this request abandons it";
  EXPECT_EQ(ann().exists(file(), "INNER"), "1");
  EXPECT_EQ(ann().exists(file(), "BEFORE"), "0");
  EXPECT_EQ(ann().commit(), "OK");
  EXPECT_EQ(bob().exists(file(), "BEFORE"), "0");
  EXPECT_EQ(bob().exists(file(), "INNER"), "1");
}

TEST_F(WirePrompts, OutsideATransactionEachWriteOfAnAbandonedProgramWasDone) {
  subroutine("WRITES", std::string("nox.open('") + file() + "'):write('A', 'x') nox.input()");
  EXPECT_EQ(run("RUN WRITES").prompt, 1);
  EXPECT_EQ(ann().exists(file(), "A"), "0");
  EXPECT_THAT(answer(ann(), "x").error, StartsWith("IE/011"));
}

TEST_F(WirePrompts, AnotherProgramAbandonsTheOneThatWaits) {
  subroutine("FIRST", "nox.input() nox.common.first = 'went on'");
  subroutine("SECOND", "nox.print('second?') nox.print('got ' .. nox.input())");
  EXPECT_EQ(run("RUN FIRST").prompt, 1);
  EXPECT_EQ(run("RUN SECOND").output, "second?");
  EXPECT_EQ(answer(ann(), "it").output, "got it");
  EXPECT_EQ(ann().common("first"), "");
}

TEST_F(WirePrompts, EachSessionHasAPromptOfItsOwn) {
  subroutine("WHOSE", "nox.print(nox.common['@SESSION'] .. nox.input())");
  const std::string anns = ann().common("@SESSION");
  const std::string bobs = bob().common("@SESSION");
  EXPECT_EQ(execute(ann(), "RUN WHOSE").prompt, 1);
  EXPECT_EQ(execute(bob(), "RUN WHOSE").prompt, 1);
  EXPECT_EQ(answer(bob(), "b").output, bobs + "b");
  EXPECT_EQ(answer(ann(), "a").output, anns + "a");
}

TEST_F(WirePrompts, ALongWaitIsNotCountedAsWork) {
  // The time of a request is that of its own work: the deadline is set anew with each answer.
  subroutine("ASKS", "for i = 1, 3 do nox.input() end nox.print('done')");
  ann().set("STATEMENT_TIMEOUT", "1");
  EXPECT_EQ(run("RUN ASKS").prompt, 1);
  EXPECT_EQ(answer(ann(), "").prompt, 1);
  EXPECT_EQ(answer(ann(), "").prompt, 1);
  EXPECT_EQ(answer(ann(), "").output, "done");
  ann().set("STATEMENT_TIMEOUT", "60");
}

TEST_F(WirePrompts, OutputThatNoFrameHoldsIsAnError) {
  subroutine("CHATTERS", "local line = ('x'):rep(1000000) for i = 1, 30 do nox.print(line) end");
  EXPECT_THAT(run("RUN CHATTERS").error, HasSubstr("more output than a reply can carry"));
  EXPECT_EQ(ann().exists(file(), "A"), "1") << "the session goes on";
}

}  // namespace
}  // namespace nox::agent::test
