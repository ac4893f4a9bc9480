// Subroutines as noxd runs them: 209, and 9 and 10 of SQL.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/agent/support/command_calls.h"
#include "tests/agent/wire/shared_noxd.h"

namespace nox::agent::test {
namespace {

using namespace noxp::sql;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class WireSubroutines : public SharedNoxd {
protected:
  static void SetUpTestSuite() {
    SharedNoxd::SetUpTestSuite();
    execute(ann(), "CREATE-FILE NOX.SUBS");
  }
  static void subroutine(const char* name, const std::string& lua) {
    EXPECT_EQ(ann().write("NOX.SUBS", name, lua), "0");
  }
  /// What the script leaves in its first parameter, or its error.
  static std::string value(const std::string& lua) {
    subroutine("VALUE", lua);
    const SubroutineReply reply = call(ann(), "VALUE", std::vector<Parameter>{{std::nullopt, 1}});
    if (!reply.error.empty()) return reply.error;
    return reply.parameters.empty() ? "none" : reply.parameters.front().first.value_or("null");
  }
  static int load(const char* name) {
    LoadSubroutineRequestProt request(new NOXPString(name));
    const auto reply = ann().askFor<SQLOKResponseProt>(request);
    return reply ? reply->getStatementId() : 0;
  }
};

TEST_F(WireSubroutines, SeeTheCallersCommonsAndLeaveTheirs) {
  EXPECT_EQ(value("nox.common.MINE = 'kept' args[1] = nox.common['@USER']"), "ann");
  EXPECT_EQ(ann().common("MINE"), "kept");
  EXPECT_EQ(bob().common("MINE"), "");
}

TEST_F(WireSubroutines, ReachNothingOfTheSystem) {
  EXPECT_EQ(value("args[1] = tostring(io) .. tostring(os) .. tostring(package) .. tostring(debug) "
                  ".. tostring(require) .. tostring(dofile) .. tostring(loadfile)"),
            "nilnilnilnilnilnilnil");
  EXPECT_THAT(value("\x1BLua"), HasSubstr("attempt to load a binary"));
}

TEST_F(WireSubroutines, ThatAreGreedyEndAndTheAgentServesOn) {
  EXPECT_THAT(value("local t = {} while true do t[#t + 1] = ('x'):rep(1000) .. #t end"),
              EndsWith("it needs more than 64 MiB of memory"));
  EXPECT_THAT(value("local s = ('a'):rep(100000) nox.common.n = s:find('.-.-.-b', 1, true)"),
              "null");
  EXPECT_EQ(value("args[1] = 'next'"), "next");
}

TEST_F(WireSubroutines, ThatTakeTooLongEndInThePatternThatTheyMatch) {
  ann().set("STATEMENT_TIMEOUT", "1");
  EXPECT_THAT(value("local s = ('a'):rep(100000) s:find('.-.-.-.-.-b')"),
              HasSubstr("longer than STATEMENT_TIMEOUT allows"));
  ann().set("STATEMENT_TIMEOUT", "60");
}

TEST_F(WireSubroutines, NestOnTheStackOfAConnection) {
  // Each level takes what one program can take of the native stack, and calls the next.
  subroutine("NEST",
             "local n = tonumber(args[1]) nox.common.level = n "
             "local function deep(i) if i == 0 then nox.execute('RUN NEST ' .. (n + 1)) "
             "else ('x'):gsub('x', function() deep(i - 1) end) end end "
             "deep(150)");
  const std::string error = execute(ann(), "RUN NEST 1").error;
  EXPECT_THAT(error, HasSubstr("deep"));
  EXPECT_NE(ann().common("level"), "1");
  subroutine("DEEP", "nox.common.level = args[1] nox.execute('RUN DEEP ' .. args[1] + 1)");
  EXPECT_THAT(execute(ann(), "RUN DEEP 1").error, HasSubstr("more than 32 deep"));
  EXPECT_EQ(ann().common("level"), "32");
}

TEST_F(WireSubroutines, LeaveNoMoreThanAReplyHolds) {
  EXPECT_THAT(value("args[1] = ('x'):rep(17000000)"), StartsWith("IE/003"));
  EXPECT_EQ(value("args[1] = #('x'):rep(17000000)"), "17000000");
}

// 9 and 10.

TEST_F(WireSubroutines, AreLoadedAndCalledThroughSql) {
  subroutine("ADD", "args[1] = args[1] + args[2]");
  const int id = load("ADD");
  auto parameters = std::make_unique<noxp::ACEBinaryFormatParameterListProt>(2);
  parameters->setString(0, "40", 4);
  parameters->setString(1, "2", 4);
  CallSubroutineRequestProt request(id, parameters.release());
  const auto reply = ann().askFor<SQLParamsResponseProt>(request);
  ASSERT_TRUE(reply);
  const NOXPBlob* const sum = reply->getParameterList()->getPtr(0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(sum->getBuf()), sum->length()), "42");
}

TEST_F(WireSubroutines, MayNotAskInACallThroughSql) {
  subroutine("ASKS", "nox.input()");
  subroutine("CALLS", "nox.execute('RUN ASKS')");
  for (const char* name : {"ASKS", "CALLS"}) {
    CallSubroutineRequestProt request(load(name), nullptr);
    const auto reply = ann().ask(request);
    EXPECT_EQ(errorOf(*reply), "IE/003") << name;
    EXPECT_THAT(messageOf(*reply), HasSubstr("input is not possible")) << name;
  }
}

TEST_F(WireSubroutines, ThatAreMissingOrWrongAreNotLoaded) {
  subroutine("WRONG", "this is no Lua");
  for (const char* name : {"NO.SUCH", "WRONG"}) {
    LoadSubroutineRequestProt request(new NOXPString(name));
    EXPECT_EQ(errorOf(*ann().ask(request)), "IE/004") << name;
  }
}

}  // namespace
}  // namespace nox::agent::test
