// Patterns are matched by code of the agent's own. The language's own functions are the measure:
// both run the same script over many patterns, and must say the same.
#include "agent/scripting/patterns.h"

#include <gtest/gtest.h>

#include <lua.hpp>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "agent/scripting/subroutine.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent {
namespace {

/// Everything that patterns are used for, as one text. Errors are compared as such: their texts are
/// each one's own.
constexpr char kScript[] = R"lua(
  local function show(ok, ...)
    if not ok then return "error" end
    local values = table.pack(...)
    for i = 1, values.n do values[i] = tostring(values[i]) end
    return table.concat(values, "|")
  end
  local function collect(subject, pattern)
    local found = {}
    for a, b in string.gmatch(subject, pattern) do
      found[#found + 1] = tostring(a) .. "," .. tostring(b)
    end
    return table.concat(found, ";")
  end
  local function all(subject, pattern)
    return table.concat({
      show(pcall(string.find, subject, pattern)),
      show(pcall(string.find, subject, pattern, 2)),
      show(pcall(string.find, subject, pattern, -2)),
      show(pcall(string.match, subject, pattern)),
      show(pcall(collect, subject, pattern)),
      show(pcall(string.gsub, subject, pattern, "<%0%1>")),
      show(pcall(string.gsub, subject, pattern, {a = "A", ab = 12, b = false})),
      show(pcall(string.gsub, subject, pattern, function(x) return x == "b" and "B" end, 2)),
    }, "\n")
  end
)lua";

/// The language as it comes.
class PlainLua {
public:
  PlainLua() : state_(luaL_newstate(), lua_close) {
    luaL_openlibs(state_.get());
    const std::string text = std::string(kScript) + " return all";
    EXPECT_EQ(luaL_dostring(state_.get(), text.c_str()), LUA_OK);
  }

  std::string run(const std::string& subject, const std::string& pattern) {
    lua_State* const state = state_.get();
    lua_pushvalue(state, 1);
    lua_pushlstring(state, subject.data(), subject.size());
    lua_pushlstring(state, pattern.data(), pattern.size());
    EXPECT_EQ(lua_pcall(state, 2, 1, 0), LUA_OK);
    std::size_t size = 0;
    const char* const text = lua_tolstring(state, -1, &size);
    std::string result(text, size);
    lua_pop(state, 1);
    return result;
  }

private:
  std::unique_ptr<lua_State, void (*)(lua_State*)> state_;
};

class Patterns : public testing::Test {
protected:
  std::string ours(const std::string& subject, const std::string& pattern) {
    return expression_->evaluate(subject, pattern);
  }
  std::string plain(const std::string& subject, const std::string& pattern) {
    return plain_.run(subject, pattern);
  }

private:
  test::AgentInProcess agent_;
  std::unique_ptr<Session> session_ = agent_.newSession();
  std::unique_ptr<Expression> expression_ = makeExpression(
      *session_, "(function() " + std::string(kScript) + " return all(id, record) end)()");
  PlainLua plain_;
};

TEST_F(Patterns, MeanWhatTheyMeanInTheLanguage) {
  const std::vector<std::string> subjects = {"",
                                             "a",
                                             "hello world",
                                             "key = value",
                                             "  padded  ",
                                             "a.b-c[d]",
                                             "THE (quick) fox",
                                             "((x)(y(z)))",
                                             "1,22,,333",
                                             "aaab",
                                             "\xE4\xF6",
                                             std::string("nul\0nul", 7),
                                             "tab\tnewline\n",
                                             "[[]]",
                                             "-$%^",
                                             "abcabcabc"};
  const std::vector<std::string> patterns = {"",
                                             "a",
                                             "^a",
                                             "a$",
                                             "^$",
                                             "l+",
                                             "(l)(l)",
                                             "%w+",
                                             "%W",
                                             "%s*(.-)%s*$",
                                             "(%w+)%s*=%s*(%w+)",
                                             "[^,]*",
                                             "[a-c]+",
                                             "[%a_][%w_]*",
                                             "%b()",
                                             "%f[%w]%w+",
                                             "%f[%W]",
                                             "()",
                                             "()a()",
                                             "(a*(.)%w(%s*))",
                                             "[]]",
                                             "[^]]",
                                             "[a-]",
                                             "[-a]",
                                             "[%-x]",
                                             "%.",
                                             "%%",
                                             ".-b",
                                             "(.)%1",
                                             "(a)(b)(c)%1%2%3",
                                             "x?",
                                             "a?b?c?",
                                             "[\xE0-\xFF]",
                                             "%z",
                                             "%g+",
                                             "%p",
                                             "%c",
                                             "%x+",
                                             "%u+",
                                             "%l+",
                                             "$",
                                             "a$b",
                                             "^^a",
                                             "[",
                                             "[^",
                                             "[]",
                                             "[%",
                                             "%",
                                             "(",
                                             ")",
                                             "(()",
                                             "%b",
                                             "%bx",
                                             "%f",
                                             "%fa",
                                             "%1",
                                             "%0",
                                             "(%1)",
                                             "()%1",
                                             "(a",
                                             "a)",
                                             "*",
                                             "+a",
                                             "[a-%%]",
                                             "[%a-z]",
                                             std::string("\0", 1)};
  for (const std::string& subject : subjects) {
    for (const std::string& pattern : patterns) {
      EXPECT_EQ(ours(subject, pattern), plain(subject, pattern))
          << "subject \"" << subject << "\", pattern \"" << pattern << "\"";
    }
  }
}

TEST_F(Patterns, MeanTheSameWhateverStandsInThem) {
  std::mt19937 random(1);  // the same ones each time
  const auto textOf = [&](const std::vector<std::string>& pieces, unsigned most) {
    std::string text;
    for (unsigned i = random() % (most + 1); i > 0; --i) text += pieces[random() % pieces.size()];
    return text;
  };
  const std::vector<std::string> letters = {"a", "b", "c", "(", ")", " ", "1", "%", "]"};
  const std::vector<std::string> items = {
      "a",  "b",  ".",    "*",    "+",    "-",     "?", "(", ")", "()", "%1", "%2",
      "%a", "%W", "[ab]", "[^a]", "%b()", "%f[a]", "^", "$", "[", "]",  "%",  "[a-c]*"};
  for (int i = 0; i < 4000; ++i) {
    const std::string subject = textOf(letters, 12);
    const std::string pattern = textOf(items, 7);
    ASSERT_EQ(ours(subject, pattern), plain(subject, pattern))
        << "subject \"" << subject << "\", pattern \"" << pattern << "\"";
  }
}

// --- the matcher itself -------------------------------------------------------------------------

bool never(void* /*context*/) { return true; }

/// Ends the match when it has been asked often enough.
bool countdown(void* context) { return --*static_cast<int*>(context) > 0; }

TEST(PatternMatcher, EndsAMatchThatWouldTakeYears) {
  const std::string subject(3000, 'a');
  int ticks = 5;
  PatternMatcher matcher(subject, ".-.-.-.-.-.-b", countdown, &ticks);
  EXPECT_EQ(matcher.matchAt(subject.data()), nullptr);
  EXPECT_TRUE(matcher.stopped());
  EXPECT_EQ(matcher.error(), nullptr);
}

TEST(PatternMatcher, CountsTheLengthOfSets) {
  const std::string subject(100'000, 'a');
  const std::string pattern = "[" + std::string(100'000, 'b') + "]";
  int ticks = 5;
  PatternMatcher matcher(subject, pattern, countdown, &ticks);
  const char* place = subject.data();
  while (!matcher.stopped() && place != subject.data() + subject.size()) matcher.matchAt(place++);
  EXPECT_TRUE(matcher.stopped());
}

TEST(PatternMatcher, CountsTheLengthOfCapturesThatItFindsAgain) {
  const std::string subject(200'000, 'a');
  int ticks = 5;
  PatternMatcher matcher(subject, "(.-)%1b", countdown, &ticks);
  EXPECT_EQ(matcher.matchAt(subject.data()), nullptr);
  EXPECT_TRUE(matcher.stopped());
}

TEST(PatternMatcher, RefusesAPatternThatNestsTooDeep) {
  std::string pattern;
  for (int i = 0; i < 300; ++i) pattern += "a?";
  const std::string other = "b";
  PatternMatcher matcher(other, pattern, never, nullptr);
  EXPECT_EQ(matcher.matchAt(other.data()), other.data());
  EXPECT_EQ(matcher.error(), nullptr) << "items that do not match do not nest";
  const std::string subject(300, 'a');
  PatternMatcher deep(subject, pattern, never, nullptr);
  EXPECT_EQ(deep.matchAt(subject.data()), nullptr);
  EXPECT_STREQ(deep.error(), "pattern too complex");
}

TEST(PatternMatcher, RefusesMoreThan32Captures) {
  std::string pattern;
  for (int i = 0; i < 33; ++i) pattern += "()";
  const std::string subject;
  PatternMatcher matcher(subject, pattern, never, nullptr);
  EXPECT_EQ(matcher.matchAt(subject.data()), nullptr);
  EXPECT_STREQ(matcher.error(), "too many captures");
}

TEST(PatternMatcher, KnowsPlainTextFromAPattern) {
  EXPECT_TRUE(PatternMatcher::isPlain("plain text]"));
  for (const char* pattern : {"a.b", "^a", "a$", "a*", "a+", "a-", "a?", "(a)", "[a]", "%a"}) {
    EXPECT_FALSE(PatternMatcher::isPlain(pattern)) << pattern;
  }
}

}  // namespace
}  // namespace nox::agent
