// What a script that means harm cannot do: reach the system, take more memory or time than it may,
// or go on after it was told to end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/agent/scripting/scripts.h"

namespace nox::agent {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class Sandbox : public test::Scripts {
protected:
  /// Runs a script that would go on for ever, and interrupts it.
  std::string runInterrupted(std::string_view source) {
    const auto begin = std::chrono::steady_clock::now();
    std::string outcome;
    {
      const test::InterruptSoon soon(session());
      outcome = run(source);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    return outcome;
  }
};

// --- what is not there --------------------------------------------------------------------------

TEST_F(Sandbox, HasNothingThatReachesTheSystem) {
  for (const char* name : {"io", "os", "package", "debug", "require", "dofile", "loadfile",
                           "loadstring", "collectgarbage", "warn", "string.dump"}) {
    EXPECT_EQ(value("tostring(" + std::string(name) + ")"), "nil") << name;
  }
}

TEST_F(Sandbox, HasTheRestOfTheLanguage) {
  for (const char* name : {"assert",
                           "error",
                           "getmetatable",
                           "ipairs",
                           "load",
                           "next",
                           "pairs",
                           "pcall",
                           "print",
                           "rawequal",
                           "rawget",
                           "rawlen",
                           "rawset",
                           "select",
                           "setmetatable",
                           "tonumber",
                           "tostring",
                           "type",
                           "xpcall",
                           "string.format",
                           "string.find",
                           "string.gsub",
                           "string.gmatch",
                           "string.match",
                           "string.rep",
                           "string.pack",
                           "string.unpack",
                           "table.concat",
                           "table.insert",
                           "table.remove",
                           "table.sort",
                           "table.move",
                           "table.pack",
                           "table.unpack",
                           "math.floor",
                           "utf8.char",
                           "coroutine.create",
                           "coroutine.resume",
                           "coroutine.yield",
                           "coroutine.wrap",
                           "coroutine.status",
                           "coroutine.close"}) {
    EXPECT_EQ(value("type(" + std::string(name) + ")"), "function") << name;
  }
}

TEST_F(Sandbox, LoadsTextAlone) {
  // What a compiled function begins with, whatever the mode says.
  EXPECT_THAT(value(R"(select(2, load("\27Lua", "x", "b")))"),
              HasSubstr("attempt to load a binary"));
  EXPECT_THAT(value(R"(select(2, load("\27Lua")))"), HasSubstr("attempt to load a binary"));
  EXPECT_EQ(value(R"(load("return 1 + 1")())"), "2");
  EXPECT_EQ(value(R"(load("return x", "name", "t", {x = 5})())"), "5");
  EXPECT_THAT(value(R"(select(2, load("return +", "=name")))"), StartsWith("name:1:"));
  EXPECT_THAT(run("load(function() return 'x = 1 ' end)"), StartsWith("IE/003:"));
}

TEST_F(Sandbox, CompiledSubroutinesAreRefused) {
  EXPECT_THAT(run("\x1BLua"), HasSubstr("attempt to load a binary"));
}

TEST_F(Sandbox, FinalizersAreRefused) {
  EXPECT_THAT(run("setmetatable({}, {__gc = function() while true do end end})"),
              HasSubstr("finalizers are not possible"));
}

TEST_F(Sandbox, MetatablesOfFilesAreOutOfReach) {
  EXPECT_EQ(value("tostring(getmetatable(nox.open('F')))"), "false");
  EXPECT_EQ(value("tostring(getmetatable(nox.common))"), "false");
  EXPECT_THAT(run("setmetatable(nox.common, {})"),
              HasSubstr("cannot change a protected metatable"));
  EXPECT_THAT(run("nox.open('F').read('not a file', 'ID')"), HasSubstr("bad argument #1 (file"));
  EXPECT_THAT(run("nox.open('F').read(nox.common, 'ID')"), HasSubstr("bad argument #1 (file"));
}

TEST_F(Sandbox, OneScriptsGlobalsAreNotAnothers) {
  run("secret = 'left behind'; string.upper = nil");
  EXPECT_EQ(value("tostring(secret)"), "nil");
  EXPECT_EQ(value("('x'):upper()"), "X");
}

// --- time ---------------------------------------------------------------------------------------

TEST_F(Sandbox, EndsAtTheStatementTimeout) {
  session().settings().statementTimeout = std::chrono::seconds(1);
  session().beginRequest();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run("local a = 1\nwhile true do end"),
            "IE/003: TEST:2: it takes longer than STATEMENT_TIMEOUT allows");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

struct Endless {
  const char* name;
  const char* source;
};

std::string nameOf(const testing::TestParamInfo<Endless>& test) { return test.param.name; }

class EndlessScript : public Sandbox, public testing::WithParamInterface<Endless> {};

TEST_P(EndlessScript, IsInterrupted) {
  EXPECT_THAT(runInterrupted(GetParam().source),
              AllOf(StartsWith("IE/003:"), EndsWith("interrupted")));
}

// Each works for ever, most of them inside one call of a library's function.
const Endless kEndless[] = {
    {"Loop", "while true do end"},
    {"LoopThatCatches", "while true do pcall(function() while true do end end) end"},
    {"ErrorHandler", "xpcall(function() while true do end end, function() while true do end end)"},
    {"ErrorHandlerOfErrorHandler",
     "local function forever() while true do end end "
     "while true do xpcall(function() xpcall(forever, forever) end, forever) end"},
    {"ToBeClosed",
     "local x <close> = setmetatable({}, {__close = function() while true do end end}) "
     "while true do end"},
    {"Coroutine", "coroutine.wrap(function() while true do end end)()"},
    {"CoroutineThatClosesForEver",
     "local closing = {__close = function() while true do end end} "
     "pcall(coroutine.wrap(function() "
     "  local x <close> = setmetatable({}, closing) while true do end end))"},
    {"CoroutineClosedAfterwards",
     "local closing = {__close = function() while true do end end} "
     "local co = coroutine.create(function() "
     "  local x <close> = setmetatable({}, closing) while true do end end) "
     "coroutine.resume(co) coroutine.close(co)"},
    {"ManyCoroutines", "while true do coroutine.wrap(function() end)() end"},
    {"Pattern", "local s = ('a'):rep(100000) s:find('.-.-.-.-.-b')"},
    {"PatternInGmatch", "local s = ('a'):rep(100000) s:gmatch('.-.-.-.-.-b')()"},
    {"PatternInGsub", "local s = ('a'):rep(100000) s:gsub('.-.-.-.-.-b', '')"},
    {"PatternInMatch", "local s = ('a'):rep(100000) s:match('.-.-.-.-.-b')"},
    {"RepeatedNothing", "while true do local s = (''):rep(math.maxinteger) end"},
    {"MoveOfNothing", "while true do pcall(table.move, {}, 1, math.maxinteger - 1, 2) end"},
    {"ConcatOfNothing",
     "local t = setmetatable({}, {__index = table.concat}) "
     "while true do pcall(table.concat, t, '', 1, math.maxinteger) end"},
    {"UnpackOfNothing", "while true do pcall(table.unpack, {}, 1, 900000) end"},
    {"InsertIntoManyThatAreNone",
     "local t = setmetatable({}, {__len = function() return 1 << 60 end}) "
     "while true do pcall(table.insert, t, 1, 0) end"},
    {"RemoveFromManyThatAreNone",
     "local t = setmetatable({}, {__len = function() return 1 << 60 end}) "
     "while true do pcall(table.remove, t, 1) end"},
    {"SortOfManyThatAreNone",
     "local t = setmetatable({}, {__len = function() return (1 << 31) - 2 end}) "
     "while true do pcall(table.sort, t, math.type) end"},
    {"SortOfLongTexts",
     "local s, t = ('x'):rep(2000000), {} for i = 1, 20000 do t[i] = s end table.sort(t)"},
    {"SortWithALibrarysFunction",
     "local s, t = ('x'):rep(2000000), {} for i = 1, 20000 do t[i] = s end "
     "table.sort(t, string.find)"},
    {"GsubWithALibrarysFunction",
     "local s = ('x'):rep(1000000) while true do s:gsub('.', string.len) end"},
    {"PlainSearch",
     "local s = ('a'):rep(10000000) local p = ('a'):rep(5000000) .. 'b' "
     "while true do s:find(p, 1, true) end"},
    {"GarbageAtTheLimit",
     "local t = {} for i = 1, 600000 do t[i] = {i} end while true do local x = {t} end"},
};

INSTANTIATE_TEST_SUITE_P(Sandbox, EndlessScript, testing::ValuesIn(kEndless), nameOf);

TEST_F(Sandbox, CallsOfTheAgentFailOnceTheTimeIsUp) {
  // The script catches its end and tries to write all the same.
  runInterrupted(
      "local f = nox.open('F') "
      "pcall(function() while true do end end) "
      "f:write('LATE', 'x')");
  EXPECT_EQ(agent().newSession()->data().exists("F", "LATE"), DataAccess::NotDone);
}

// --- memory -------------------------------------------------------------------------------------

class GreedyScript : public Sandbox, public testing::WithParamInterface<Endless> {};

TEST_P(GreedyScript, IsEnded) {
  EXPECT_THAT(run(GetParam().source),
              AllOf(StartsWith("IE/003:"), EndsWith("it needs more than 64 MiB of memory")));
  EXPECT_EQ(value("'the next one runs'"), "the next one runs");
}

const Endless kGreedy[] = {
    {"Table", "local t = {} for i = 1, math.huge do t[i] = i end"},
    {"Texts", "local t = {} for i = 1, math.huge do t[i] = ('x'):rep(1000) .. i end"},
    {"OneText", "local s = 'x' while true do s = s .. s end"},
    {"Repetition", "local s = ('x'):rep(60000000)"},
    {"Buffer", "local s = ('x'):rep(1000000) s:gsub('.', ('y'):rep(1000))"},
    {"Concat", "local t = {} for i = 1, 100 do t[i] = ('x'):rep(1000000) end table.concat(t)"},
    {"Format", "local s = ('x'):rep(20000000) local t = string.format('%s%s%s', s, s, s)"},
    {"Pack", "string.pack('c100000000', 'x')"},
    {"Coroutines",
     "local t = {} for i = 1, math.huge do "
     "t[i] = coroutine.create(function() end) coroutine.resume(t[i]) end"},
    {"Closures", "local t = {} for i = 1, math.huge do t[i] = function() return i end end"},
    {"Catching",
     "pcall(function() local t = {} for i = 1, math.huge do t[i] = i end end) args[1] = 1"},
    {"CatchingALibrarysFunction", "pcall(string.rep, 'x', 60000000) args[1] = 1"},
    {"Arguments", "local t = {} for i = 1, 1000000 do t[i] = ('x'):rep(50) .. i end"},
};

INSTANTIATE_TEST_SUITE_P(Sandbox, GreedyScript, testing::ValuesIn(kGreedy), nameOf);

TEST_F(Sandbox, GarbageDoesNotCount) {
  EXPECT_EQ(run("for i = 1, 300 do local s = ('x'):rep(1000000) .. i end args[1] = 'done'"),
            "done");
}

TEST_F(Sandbox, TextsThatAreTooLongAreRefusedBeforeTheyAreMade) {
  EXPECT_THAT(run("local s = ('x'):rep(math.maxinteger)"), HasSubstr("resulting string too large"));
  EXPECT_THAT(run("local s = ('xy'):rep(1 << 62, 'z')"), HasSubstr("resulting string too large"));
}

// --- depth --------------------------------------------------------------------------------------

TEST_F(Sandbox, EndlessRecursionIsAnErrorThatNamesItsPlace) {
  EXPECT_EQ(run("local function f()\n return 1 + f()\nend f()"),
            "IE/003: TEST:2: it needs more than 64 MiB of memory");
}

TEST_F(Sandbox, RecursionThroughALibraryIsAnError) {
  EXPECT_THAT(run("local function f(s) return s:gsub('.', f) end f('x')"),
              HasSubstr("C stack overflow"));
}

TEST_F(Sandbox, DeeplyNestedSourceIsAnError) {
  EXPECT_THAT(run("local x = " + std::string(100'000, '(') + "1" + std::string(100'000, ')')),
              StartsWith("IE/003:"));
}

// --- replaced functions do what they replace ----------------------------------------------------

TEST_F(Sandbox, RepeatsTexts) {
  EXPECT_EQ(value("('ab'):rep(3)"), "ababab");
  EXPECT_EQ(value("('ab'):rep(3, ', ')"), "ab, ab, ab");
  EXPECT_EQ(value("('ab'):rep(1, ', ')"), "ab");
  EXPECT_EQ(value("'<' .. ('ab'):rep(0) .. ('ab'):rep(-5) .. (''):rep(7) .. '>'"), "<>");
  EXPECT_EQ(value("(''):rep(4, '-')"), "---");
  EXPECT_EQ(value("#('abc'):rep(1000, 'de')"), std::to_string(3 * 1000 + 2 * 999));
}

TEST_F(Sandbox, WorksOnTables) {
  EXPECT_EQ(value("table.concat({1, 2, 3}, ', ')"), "1, 2, 3");
  EXPECT_EQ(value("table.concat({1, 2, 3}, ', ', 2)"), "2, 3");
  EXPECT_EQ(value("table.concat({1, 2, 3}, ', ', 2, 2)"), "2");
  EXPECT_EQ(run("local t = {1, 3} table.insert(t, 2, 2) table.insert(t, 4) table.remove(t, 1) "
                "args[1] = table.concat(t)"),
            "234");
  EXPECT_EQ(value("table.concat(table.move({1, 2, 3}, 2, 3, 1), '')"), "233");
  EXPECT_EQ(run("local t = {3, 1, 2} table.sort(t) args[1] = table.concat(t)"), "123");
  EXPECT_EQ(run("local t = {3, 1, 2} table.sort(t, function(a, b) return a > b end) "
                "args[1] = table.concat(t)"),
            "321");
  EXPECT_EQ(value("select('#', table.unpack({1, 2, nil, 4}, 1, 4))"), "4");
}

TEST_F(Sandbox, CatchesErrors) {
  EXPECT_EQ(
      value("tostring(select(2, xpcall(error, function(e) return 'handled ' .. e end, 'x')))"),
      "handled x");
  EXPECT_EQ(value("tostring(select(2, xpcall(function(...) return ... end, print, 'result')))"),
            "result");
  EXPECT_EQ(value("tostring(xpcall(error, print))"), "false");
}

TEST_F(Sandbox, RunsCoroutines) {
  EXPECT_EQ(run("local next = coroutine.wrap(function(a) local b = coroutine.yield(a + 1) "
                "return b * 2 end) args[1] = next(1) .. ' ' .. next(5)"),
            "2 10");
  EXPECT_THAT(run("local f = coroutine.wrap(function() error('inside') end) f()"),
              HasSubstr("inside"));
  EXPECT_EQ(run("local f = coroutine.wrap(function() return 1 end) f() "
                "args[1] = select(2, pcall(f))"),
            "cannot resume dead coroutine");
  EXPECT_EQ(run("local f f = coroutine.wrap(function() return f() end) "
                "args[1] = tostring((pcall(f)))"),
            "false");
  EXPECT_EQ(run("local log = '' local f = coroutine.wrap(function() "
                "  local x <close> = setmetatable({}, {__close = function() log = 'closed' end}) "
                "  error('x') end) pcall(f) args[1] = log"),
            "closed");
  EXPECT_EQ(run("local log = '' local co = coroutine.create(function() "
                "  local x <close> = setmetatable({}, {__close = function() log = 'closed' end}) "
                "  coroutine.yield() end) coroutine.resume(co) coroutine.close(co) args[1] = log"),
            "closed");
}

TEST_F(Sandbox, AProgramCannotYieldToTheAgent) {
  EXPECT_THAT(run("coroutine.yield()"), HasSubstr("outside a coroutine"));
}

}  // namespace
}  // namespace nox::agent
