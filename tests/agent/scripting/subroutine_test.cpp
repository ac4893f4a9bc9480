// Subroutines: what they are given, what they may do, what they leave.
#include "agent/scripting/subroutine.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "agent/commands/commands.h"
#include "agent/lists/select_lists.h"
#include "agent/session/agent.h"
#include "agent/session/named_commons.h"
#include "agent/session/transactions.h"
#include "tests/agent/scripting/scripts.h"

namespace nox::agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using State = Program::State;

class Subroutines : public test::Scripts {
protected:
  std::string read(const char* id) {
    NOXPBlob body;
    if (session().data().read("F", id, DataAccess::kReadPlain, body) != DataAccess::Done)
      return "-";
    return body.length() == 0 ? std::string()
                              : std::string(reinterpret_cast<char*>(body.getBuf()), body.length());
  }
  void write(const char* id, std::string_view body) {
    session().data().write("F", id, body, DataAccess::kWriteAndRelease);
  }
};

// --- loading ------------------------------------------------------------------------------------

TEST_F(Subroutines, ThatAreMissingCannotBeLoaded) {
  for (const char* name : {"NO.SUCH", "", "mark\xFE"}) {
    try {
      makeSubroutine(session(), name, {}, true);
      FAIL() << name;
    } catch (const Failure& failure) {
      EXPECT_THAT(describe(failure), StartsWith("IE/004:")) << name;
    }
  }
}

TEST_F(Subroutines, OfAnAccountWithoutThemCannotBeLoaded) {
  session().store().deleteFile("NOX.SUBS");
  EXPECT_THROW(checkSubroutine(session(), "TEST"), Failure);
}

TEST_F(Subroutines, AreCheckedWithoutRunning) {
  store("GOOD", "nox.open('F'):write('RAN', '')");
  EXPECT_NO_THROW(checkSubroutine(session(), "GOOD"));
  EXPECT_EQ(read("RAN"), "-");
  store("BAD", "this is no Lua");
  try {
    checkSubroutine(session(), "BAD");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(describe(failure), StartsWith("IE/004: BAD:1: syntax error"));
  }
}

TEST_F(Subroutines, ThatCannotBeCompiledFailWhenTheyRun) {
  EXPECT_THAT(run("args[1] = "), StartsWith("IE/003: TEST:1: unexpected symbol"));
}

TEST_F(Subroutines, MayHaveTheirLinesAsAttributes) {
  EXPECT_EQ(run("-- a comment\xFE"
                "args[1] = 'second line'"),
            "second line");
  EXPECT_THAT(run("local a = 1\xFE"
                  "error('here')"),
              HasSubstr("TEST:2: here"));
}

// --- arguments ----------------------------------------------------------------------------------

TEST_F(Subroutines, GetTheirArgumentsAsBytesAndNil) {
  const std::string bytes("\0\xFE\xFF", 3);
  const auto program = make("args[3] = #args[1] .. tostring(args[2])", {bytes, std::nullopt, ""});
  ASSERT_EQ(program->run(std::nullopt), State::Done);
  EXPECT_THAT(program->arguments(), ElementsAre(Argument(bytes), Argument(), Argument("3nil")));
}

TEST_F(Subroutines, LeaveTextNumbersAndNil) {
  const auto program =
      make("args[1], args[2], args[3], args[4], args[5] = 'text', 7, 10 / 4, 1e15, nil",
           {"", "", "", "", ""});
  ASSERT_EQ(program->run(std::nullopt), State::Done);
  EXPECT_THAT(program->arguments(), ElementsAre(Argument("text"), Argument("7"), Argument("2.5"),
                                                Argument("1000000000000000"), Argument()));
}

TEST_F(Subroutines, LeaveNoMoreArgumentsThanTheyGot) {
  const auto program = make("args[2] = 'more'", {"one"});
  ASSERT_EQ(program->run(std::nullopt), State::Done);
  EXPECT_THAT(program->arguments(), ElementsAre(Argument("one")));
}

TEST_F(Subroutines, CannotLeaveWhatIsNeitherTextNorNumber) {
  EXPECT_EQ(run("args[1] = false"), "IE/003: args[1] is neither text nor a number but a boolean");
  EXPECT_EQ(run("args[1] = {}"), "IE/003: args[1] is neither text nor a number but a table");
  EXPECT_THAT(run("args[1] = 0 / 0"), StartsWith("IE/003: args[1] is neither"));
  EXPECT_EQ(run("args = nil"), "IE/003: args is no table");
  EXPECT_EQ(run("args = {'another table'}"), "another table");
}

// --- errors and ends ----------------------------------------------------------------------------

TEST_F(Subroutines, FailWithTheTextOfTheirError) {
  EXPECT_EQ(run("error('went wrong')"), "IE/003: TEST:1: went wrong");
  EXPECT_EQ(run("error('just this', 0)"), "IE/003: just this");
  EXPECT_EQ(run("error({})"), "IE/003: an error that is no text");
  EXPECT_EQ(run("error()"), "IE/003: an error that is no text");
}

TEST_F(Subroutines, HaveControlCharactersAndMarksInErrorsEscaped) {
  EXPECT_EQ(run("error('a\\nb\\0c\\xFE', 0)"), "IE/003: a\\x0Ab\\x00c\\xFE");
  EXPECT_LT(run("error(('x'):rep(100000), 0)").size(), 2100U);
}

TEST_F(Subroutines, AbortThemselvesWhateverTheyCatch) {
  const auto program =
      make("args[1] = 'before' pcall(nox.abort) args[1] = 'after' nox.open('F'):write('LATE', '')",
           {""});
  ASSERT_EQ(program->run(std::nullopt), State::Done);
  EXPECT_TRUE(program->aborted());
  EXPECT_EQ(read("LATE"), "-");
}

TEST_F(Subroutines, ThatAbortLeaveTheirArguments) {
  const auto program = make("args[1] = 'left' nox.abort()", {""});
  ASSERT_EQ(program->run(std::nullopt), State::Done);
  EXPECT_TRUE(program->aborted());
  EXPECT_THAT(program->arguments(), ElementsAre(Argument("left")));
}

// --- files --------------------------------------------------------------------------------------

TEST_F(Subroutines, ReadAndWriteRecords) {
  write("A", "alpha");
  EXPECT_EQ(run("local f = nox.open('F') local record, status = f:read('A') "
                "local none, missing = f:read('B') "
                "args[1] = record .. status .. tostring(none) .. missing"),
            "alpha0nil1");
  EXPECT_EQ(run("args[1] = nox.open('F'):write('B', 'a\\xFEb')"), "0");
  EXPECT_EQ(read("B"),
            "a\xFE"
            "b");
  EXPECT_EQ(run("args[1] = nox.open('F'):write('B', 'other', 2)"), "1");
  EXPECT_EQ(run("local f = nox.open('F') args[1] = f:delete('B') .. f:delete('B')"), "01");
  EXPECT_EQ(read("B"), "-");
  EXPECT_EQ(run("nox.open('F'):write('N', 10 / 2)"), "nil");
  EXPECT_EQ(read("N"), "5");
}

TEST_F(Subroutines, ReadAnEmptyRecordAsEmptyText) {
  write("E", "");
  EXPECT_EQ(run("local record, status = nox.open('F'):read('E') args[1] = #record .. status"),
            "00");
}

TEST_F(Subroutines, OpenDictionaries) {
  EXPECT_EQ(run("nox.open('DICT F'):write('NAME', 'D\\xFE1')"), "nil");
  EXPECT_TRUE(session().store().exists({"F", Part::Dict}, "NAME"));
}

TEST_F(Subroutines, CatchWhatFailsInFiles) {
  EXPECT_THAT(run("nox.open('NO.SUCH')"), HasSubstr("An error occurred while opening the file"));
  EXPECT_THAT(run("args[1] = select(2, pcall(nox.open, 'NO.SUCH'))"),
              StartsWith("An error occurred while opening the file"));
  EXPECT_THAT(run("nox.open('F'):read('A', 9)"), HasSubstr("a read mode is"));
  EXPECT_THAT(run("nox.open('F'):read('A', -1)"), HasSubstr("a read mode is"));
  EXPECT_THAT(run("nox.open('F'):write('A', '', 1 << 40)"), HasSubstr("a write mode is"));
  EXPECT_THAT(run("nox.open('F'):write('', '')"), HasSubstr("a record id has"));
  EXPECT_THAT(run("nox.open('F'):write('A', nil)"), HasSubstr("text expected, got nil"));
  EXPECT_THAT(run("nox.open('F'):write('A', ('x'):rep(9000000))"), HasSubstr("at most 8 MiB"));
}

TEST_F(Subroutines, LockRecordsForTheirSession) {
  run("nox.open('F'):read('A', 2)");
  const auto other = agent().newSession();
  other->settings().lockWait = std::chrono::seconds(0);
  EXPECT_EQ(other->data().write("F", "A", "x", DataAccess::kWriteAndRelease), DataAccess::Locked);
  run("nox.open('F'):release('A')");
  EXPECT_EQ(other->data().read("F", "A", DataAccess::kReadUpdate, *std::make_unique<NOXPBlob>()),
            DataAccess::NotDone);
  EXPECT_EQ(run("local record, status = nox.open('F'):read('A', 6) args[1] = status"), "2");
}

TEST_F(Subroutines, ReleaseAllLocksOfAFile) {
  run("local f = nox.open('F') f:read('A', 2) f:read('B', 2) f:release()");
  EXPECT_EQ(agent().agent().locks.size(), 0U);
}

TEST_F(Subroutines, SelectAllIds) {
  for (const char* id : {"C", "A", "B"}) write(id, "");
  EXPECT_EQ(run("local all = '' for id in nox.open('F'):select() do all = all .. id end "
                "args[1] = all"),
            "ABC");
}

TEST_F(Subroutines, SelectASnapshotThatTheyMayChange) {
  for (const char* id : {"A", "B", "C"}) write(id, "");
  EXPECT_EQ(run("local f, n = nox.open('F'), 0 "
                "for id in f:select() do n = n + 1 f:delete(id) f:write('Z' .. id, '') end "
                "args[1] = n"),
            "3");
  EXPECT_EQ(read("ZC"), "");
}

TEST_F(Subroutines, SelectManyIds) {
  std::vector<RecordWrite> writes;
  for (int i = 0; i < 2500; ++i) writes.push_back({{"F", Part::Data}, std::to_string(i), ""});
  session().store().writeAll(writes);
  EXPECT_EQ(run("local n = 0 for id in nox.open('F'):select() do n = n + 1 end args[1] = n"),
            "2500");
}

TEST_F(Subroutines, GiveSelectionsBackWhenTheirLoopsEnd) {
  write("A", "");
  EXPECT_EQ(run("local f = nox.open('F') "
                "for i = 1, 1000 do for id in f:select() do break end end args[1] = 'done'"),
            "done");
  EXPECT_THAT(run("local f, all = nox.open('F'), {} for i = 1, 100 do all[i] = f:select() end"),
              HasSubstr("too many selections at once"));
  EXPECT_THAT(run("local next = nil for id in nox.open('F'):select() do end "
                  "local f = nox.open('F') local iterator, _, _, closing = f:select() "
                  "do local c <close> = closing end iterator()"),
              HasSubstr("the loop of this iterator is over"));
}

class ReadersSubroutines : public test::Scripts {
protected:
  ReadersSubroutines() : Scripts(Right::Read) {}
};

TEST_F(ReadersSubroutines, HaveTheRightsOfTheirCaller) {
  EXPECT_THAT(run("nox.open('F'):write('A', '')"), HasSubstr("may only read"));
  EXPECT_THAT(run("nox.open('F'):delete('A')"), HasSubstr("may only read"));
  EXPECT_THAT(run("nox.execute('CREATE-FILE G')"), HasSubstr("may only read"));
}

TEST_F(Subroutines, WorkInTheCallersTransaction) {
  session().transactions().begin(0);
  run("nox.open('F'):write('A', 'in it')");
  EXPECT_EQ(read("A"), "in it");
  session().transactions().rollback();
  EXPECT_EQ(read("A"), "-");
}

TEST_F(Subroutines, EndWithATransactionThatIsLost) {
  // This session waits for a record that the other one keeps, and the other way round.
  const auto other = agent().newSession();
  NOXPBlob body;
  session().settings().lockWait = std::chrono::seconds(20);
  other->settings().lockWait = std::chrono::seconds(20);
  session().transactions().begin(0);
  other->transactions().begin(0);
  write("MINE", "uncommitted");
  ASSERT_EQ(other->data().read("F", "THEIRS", DataAccess::kReadUpdate, body), DataAccess::NotDone);
  std::thread waiting([&] { other->data().read("F", "MINE", DataAccess::kReadUpdate, body); });
  while (agent().agent().locks.list("MAIN").at(0).waiting == 0) std::this_thread::yield();
  EXPECT_THAT(run("pcall(function() nox.open('F'):read('THEIRS', 2) end) "
                  "nox.open('F'):write('AFTER', 'x')"),
              StartsWith("40/000:"));
  waiting.join();
  other->transactions().rollback();
  EXPECT_EQ(read("MINE"), "-");
  EXPECT_EQ(read("AFTER"), "-");
}

// --- marks and conversions ----------------------------------------------------------------------

TEST_F(Subroutines, WorkOnMarks) {
  EXPECT_EQ(value("nox.ext('a\\xFEb\\xFDc', 2, 2)"), "c");
  EXPECT_EQ(value("nox.ext('a\\xFEb\\xFDc\\xFCd', 2, 2, 2)"), "d");
  EXPECT_EQ(value("nox.ext('a', 5)"), "");
  EXPECT_EQ(value("nox.rep('a\\xFEb', 2, 'x')"), "a\xFEx");
  EXPECT_EQ(value("nox.rep('a', 1, 2, 'x')"), "a\xFDx");
  EXPECT_EQ(value("nox.rep('a', -1, 'x')"), "a\xFEx");
  EXPECT_EQ(value("nox.ins('a\\xFEb', 2, 'x')"),
            "a\xFEx\xFE"
            "b");
  EXPECT_EQ(value("nox.del('a\\xFEb', 1)"), "b");
  EXPECT_EQ(value("nox.dcount('a\\xFEb\\xFEc')"), "3");
  EXPECT_EQ(value("nox.dcount('a\\xFDb', nox.VM)"), "2");
  EXPECT_EQ(value("nox.dcount('')"), "0");
  EXPECT_EQ(value("nox.AM .. nox.VM .. nox.SM"), "\xFE\xFD\xFC");
}

TEST_F(Subroutines, HaveTheNumbersOfFieldsChecked) {
  EXPECT_THAT(run("nox.rep('a', 2000000000, 'x')"), HasSubstr("no number of a field"));
  EXPECT_THAT(run("nox.ext('a', -2)"), HasSubstr("no number of a field"));
  EXPECT_THAT(run("nox.ext('a', 1.5)"), HasSubstr("whole number expected"));
  EXPECT_THAT(run("nox.ext('a')"), HasSubstr("one to three numbers"));
  EXPECT_THAT(run("nox.ext('a', 1, 1, 1, 1)"), HasSubstr("one to three numbers"));
  EXPECT_THAT(run("nox.dcount('a', 'ab')"), HasSubstr("one byte expected"));
}

TEST_F(Subroutines, ConvertValues) {
  EXPECT_EQ(value("nox.oconv('12345', 'MD2')"), "123.45");
  EXPECT_EQ(value("nox.iconv('123.45', 'MD2')"), "12345");
  EXPECT_THAT(run("nox.oconv('1', 'WHAT')"), StartsWith("IE/003: TEST:1: "));
  EXPECT_EQ(value("tostring((pcall(nox.iconv, 'no number', 'MD2')))"), "false");
}

// --- named commons ------------------------------------------------------------------------------

TEST_F(Subroutines, ShareNamedCommonsWithTheirSession) {
  run("nox.common.COUNT = 5 nox.common['other'] = 'x'");
  EXPECT_EQ(namedCommon(session(), "COUNT"), "5");
  EXPECT_EQ(value("nox.common.COUNT + 1"), "6");
  run("nox.common.COUNT = nil");
  EXPECT_EQ(value("'<' .. nox.common.COUNT .. '>'"), "<>");
  EXPECT_EQ(value("nox.common['@USER'] .. nox.common['@ACCOUNT']"), "annMAIN");
}

TEST_F(Subroutines, CannotSetTheAgentsOwnCommons) {
  EXPECT_THAT(run("nox.common['@USER'] = 'root'"), HasSubstr("does not begin with"));
  EXPECT_THAT(run("nox.common[''] = 'x'"), HasSubstr("1 to 255 bytes"));
  EXPECT_THAT(run("nox.common[('n'):rep(256)] = 'x'"), HasSubstr("1 to 255 bytes"));
  EXPECT_THAT(run("nox.common[{}] = 'x'"), HasSubstr("text expected"));
}

TEST_F(Subroutines, MayKeepOneMebibyteInCommons) {
  EXPECT_THAT(run("for i = 1, 20 do nox.common['n' .. i] = ('x'):rep(100000) end"),
              HasSubstr("the named commons are too large"));
  EXPECT_EQ(run("for i = 1, 100 do nox.common.n1 = ('x'):rep(100000) end"), "nil");
}

// --- SQL ----------------------------------------------------------------------------------------

TEST_F(Subroutines, RunSql) {
  EXPECT_EQ(run("nox.sql('CREATE TABLE T (A INTEGER PRIMARY KEY, B TEXT)') "
                "args[1] = nox.sql('INSERT INTO T VALUES (1, ?), (2, ?)', 'one', nil)"),
            "2");
  EXPECT_EQ(run("local rows = nox.sql('SELECT A, B FROM T ORDER BY A') "
                "args[1] = #rows .. rows[1].B .. rows[1][2] .. rows[2].A .. tostring(rows[2].B)"),
            "2oneone2nil");
  EXPECT_EQ(value("#nox.sql('SELECT A FROM T WHERE A > ?', 1)"), "1");
  EXPECT_EQ(value("#nox.sql('SELECT A FROM T WHERE A > 100')"), "0");
}

TEST_F(Subroutines, CatchSqlThatFails) {
  EXPECT_THAT(run("nox.sql('THIS IS NO SQL')"), StartsWith("IE/003: TEST:1: "));
  EXPECT_EQ(value("tostring((pcall(nox.sql, 'SELECT * FROM NO_SUCH')))"), "false");
  EXPECT_EQ(value("tostring((pcall(nox.sql, 'SELECT ?')))"), "false");
  EXPECT_THAT(run("nox.sql('SELECT ?', {})"), HasSubstr("text expected, got table"));
}

TEST_F(Subroutines, EndSqlThatTakesTooLong) {
  const test::InterruptSoon soon(session());
  EXPECT_THAT(run("pcall(nox.sql, 'WITH RECURSIVE N(I) AS (SELECT 1 UNION ALL SELECT I + 1 FROM N) "
                  "SELECT COUNT(*) FROM N') nox.open('F'):write('AFTER', '')"),
              testing::EndsWith("interrupted"));
  EXPECT_EQ(agent().newSession()->data().exists("F", "AFTER"), DataAccess::NotDone);
}

// --- commands -----------------------------------------------------------------------------------

TEST_F(Subroutines, ExecuteCommands) {
  EXPECT_EQ(run("local output, code = nox.execute('CREATE-FILE G') args[1] = code"), "0");
  EXPECT_TRUE(session().store().hasFile("G"));
  EXPECT_THAT(value("(nox.execute('LISTF'))"), HasSubstr("G"));
}

TEST_F(Subroutines, CatchCommandsThatFail) {
  EXPECT_THAT(run("nox.execute('NO SUCH COMMAND')"), HasSubstr("Failed to execute command"));
  EXPECT_EQ(value("tostring((pcall(nox.execute, 'LIST NO.SUCH')))"), "false");
}

TEST_F(Subroutines, ExecuteOtherSubroutines) {
  store("SUB", "nox.print('from below') nox.common.seen = args[1]");
  EXPECT_EQ(value("(nox.execute('RUN SUB word'))"), "from below");
  EXPECT_EQ(namedCommon(session(), "seen"), "word");
}

TEST_F(Subroutines, SeeThatAnotherOneAborted) {
  store("SUB", "nox.abort()");
  EXPECT_EQ(value("select(2, nox.execute('RUN SUB')) ~= 0 and 'aborted' or 'done'"), "aborted");
}

TEST_F(Subroutines, CallOneAnother32Deep) {
  store("DEEP",
        "nox.common.depth = tonumber(args[1]) "
        "nox.execute('RUN DEEP ' .. (math.tointeger(tonumber(args[1])) + 1))");
  EXPECT_THAT(run("nox.execute('RUN DEEP 2')"), HasSubstr("more than 32 deep"));
  EXPECT_EQ(namedCommon(session(), "depth"), "32");
}

TEST_F(Subroutines, HaveTheirMemoryTogether) {
  store("GREEDY", "local s = ('x'):rep(20000000)");
  EXPECT_THAT(run("local s = ('y'):rep(30000000) nox.execute('RUN GREEDY')"),
              HasSubstr("64 MiB of memory"));
  EXPECT_EQ(run("nox.execute('RUN GREEDY') nox.execute('RUN GREEDY') args[1] = 'one by one'"),
            "one by one");
}

TEST_F(Subroutines, HaveTheirOutputCountedAsMemory) {
  store("PRINTS",
        "local line = ('x'):rep(1000000) for i = 1, 7 do nox.print(line) end "
        "nox.execute('RUN PRINTS')");
  EXPECT_THAT(run("nox.execute('RUN PRINTS')"), HasSubstr("64 MiB of memory"));
}

TEST_F(Subroutines, AreAllEndedByAnInterruption) {
  store("LOOP", "while true do end");
  const test::InterruptSoon soon(session());
  EXPECT_THAT(run("while true do pcall(nox.execute, 'RUN LOOP') end"),
              testing::EndsWith("interrupted"));
}

// --- output and prompts -------------------------------------------------------------------------

TEST_F(Subroutines, PrintLines) {
  const auto program = make("nox.print('one') print('two', 3, 2.0, nil, true) nox.print()");
  ASSERT_EQ(program->run(std::nullopt), State::Done);
  EXPECT_EQ(program->takeOutput(), "one\xFEtwo\t3\t2\tnil\ttrue\xFE");
  EXPECT_EQ(program->takeOutput(), "");
}

TEST_F(Subroutines, PrintNoMoreThanAReplyCarries) {
  EXPECT_THAT(run("local line = ('x'):rep(1000000) while true do nox.print(line) end"),
              HasSubstr("more output than a reply can carry"));
}

TEST_F(Subroutines, AskForInput) {
  const auto program = make(
      "nox.print('Name?') local name = nox.input() "
      "nox.print('Password?') local password = nox.input(true) args[1] = name .. '/' .. password",
      {""});
  EXPECT_EQ(program->run(std::nullopt), State::WantsInput);
  EXPECT_EQ(program->takeOutput(), "Name?");
  EXPECT_EQ(program->run("ann"), State::WantsHiddenInput);
  EXPECT_EQ(program->takeOutput(), "Password?");
  EXPECT_EQ(program->run("secret"), State::Done);
  EXPECT_EQ(program->takeOutput(), "");
  EXPECT_THAT(program->arguments(), ElementsAre(Argument("ann/secret")));
}

TEST_F(Subroutines, AskForInputInsideProtectedCallsAndIterators) {
  const auto program = make(
      "local ok, line = pcall(nox.input) "
      "for more in nox.input do if more == 'end' then break end line = line .. more end "
      "args[1] = line",
      {""});
  EXPECT_EQ(program->run(std::nullopt), State::WantsInput);
  EXPECT_EQ(program->run("a"), State::WantsInput);
  EXPECT_EQ(program->run("b"), State::WantsInput);
  EXPECT_EQ(program->run("end"), State::Done);
  EXPECT_THAT(program->arguments(), ElementsAre(Argument("ab")));
}

TEST_F(Subroutines, CannotAskWhereTheyCannotStop) {
  EXPECT_THAT(run("coroutine.wrap(function() nox.input() end)()"), HasSubstr("inside a coroutine"));
  EXPECT_THAT(run("('x'):gsub('x', nox.input)"),
              HasSubstr("inside a function that a library calls"));
  EXPECT_THAT(run("table.sort({2, 1}, function() nox.input() end)"),
              HasSubstr("inside a function that a library calls"));
}

TEST_F(Subroutines, ThatMayNotPromptCannotAsk) {
  store("ASKS", "nox.input()");
  for (const char* source :
       {"nox.input()", "nox.execute('RUN ASKS')", "nox.execute('CLEAR-FILE F')"}) {
    try {
      make(source, {}, /*mayPrompt=*/false)->run(std::nullopt);
      FAIL() << source;
    } catch (const Failure& failure) {
      EXPECT_THAT(describe(failure),
                  AllOf(StartsWith("IE/003:"), HasSubstr("input is not possible")));
    }
  }
  EXPECT_EQ(session().data().exists("NOX.SUBS", "ASKS"), DataAccess::Done);
}

TEST_F(Subroutines, PassThePromptsOfTheirCommandsOn) {
  store("INNER", "nox.print('inner asks') nox.print('got ' .. nox.input(true)) nox.input()");
  const auto program = make(
      "nox.print('outer') local output = nox.execute('RUN INNER') nox.print('outer again') "
      "args[1] = output",
      {""});
  EXPECT_EQ(program->run(std::nullopt), State::WantsHiddenInput);
  EXPECT_EQ(program->takeOutput(), "outer\xFEinner asks");
  EXPECT_EQ(program->run("secret"), State::WantsInput);
  EXPECT_EQ(program->takeOutput(), "got secret");
  EXPECT_EQ(program->run("more"), State::Done);
  EXPECT_EQ(program->takeOutput(), "outer again");
  EXPECT_THAT(program->arguments(), ElementsAre(Argument("inner asks\xFEgot secret")));
}

TEST_F(Subroutines, AnswerConfirmationsOfTheirCommands) {
  write("A", "");
  const auto program = make("args[1] = (nox.execute('CLEAR-FILE F'))", {""});
  EXPECT_EQ(program->run(std::nullopt), State::WantsInput);
  EXPECT_NE(program->takeOutput(), "");
  EXPECT_EQ(read("A"), "");
  EXPECT_EQ(program->run("Y"), State::Done);
  EXPECT_EQ(read("A"), "-");
}

TEST_F(Subroutines, HaveTheDepthOfTheirPromptsCounted) {
  // Resumed, a program is as deep as it was.
  store("DEEP",
        "nox.input() "
        "nox.execute('RUN DEEP ' .. (math.tointeger(tonumber(args[1])) + 1))");
  const auto program = make("nox.execute('RUN DEEP 2')");
  std::string outcome;
  int prompts = 0;
  try {
    for (State state = program->run(std::nullopt); state == State::WantsInput; ++prompts) {
      state = program->run("");
    }
  } catch (const Failure& failure) {
    outcome = describe(failure);
  }
  EXPECT_EQ(prompts, 30);
  EXPECT_THAT(outcome, HasSubstr("more than 32 deep"));
}

TEST_F(Subroutines, ThatWaitMayBeDropped) {
  store("INNER", "local t = {} for i = 1, 1000 do t[i] = {i} end nox.input()");
  write("A", "");
  auto program = make("for id in nox.open('F'):select() do nox.execute('RUN INNER') end");
  ASSERT_EQ(program->run(std::nullopt), State::WantsInput);
  program.reset();
  EXPECT_EQ(value("'fine'"), "fine");
}

}  // namespace
}  // namespace nox::agent
