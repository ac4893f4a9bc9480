// Expressions of dictionaries: one value for each record.
#include <gmock/gmock.h>

#include <string>

#include "agent/failure.h"
#include "agent/scripting/subroutine.h"
#include "tests/agent/scripting/scripts.h"

namespace nox::agent {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Expressions : public test::Scripts {
protected:
  std::string evaluate(std::string_view expression, std::string_view id = "ID",
                       std::string_view record =
                           "one\xFEtwo\xFDtwice\xFE"
                           "3") {
    try {
      return makeExpression(session(), expression)->evaluate(id, record);
    } catch (const Failure& failure) {
      return describe(failure);
    }
  }
};

TEST_F(Expressions, SeeTheIdAndTheRecord) {
  EXPECT_EQ(evaluate("id .. '=' .. #record"), "ID=15");
  EXPECT_EQ(evaluate("nox.ext(record, 2, 2)"), "twice");
  EXPECT_EQ(evaluate("nox.dcount(record)"), "3");
  EXPECT_EQ(evaluate("nox.oconv(nox.ext(record, 1), 'MCU')"), "ONE");
}

TEST_F(Expressions, HaveAnyBytes) {
  const std::string bytes("\0\xFE\xFF", 3);
  EXPECT_EQ(evaluate("record", "ID", bytes), bytes);
}

TEST_F(Expressions, GiveNumbersAsDecimalText) {
  EXPECT_EQ(evaluate("6 / 2"), "3");
  EXPECT_EQ(evaluate("1 / 8"), "0.125");
  EXPECT_EQ(evaluate("7 // 2"), "3");
  EXPECT_EQ(evaluate("nox.ext(record, 3) * 2"), "6");
  EXPECT_EQ(evaluate("2^70"), "1180591620717411303424");
  EXPECT_THAT(evaluate("1 / 0"), HasSubstr("neither text nor a number"));
}

TEST_F(Expressions, GiveNothingForNilAndNumbersForTruth) {
  EXPECT_EQ(evaluate("nil"), "");
  EXPECT_EQ(evaluate("id == 'ID'"), "1");
  EXPECT_EQ(evaluate("id ~= 'ID'"), "0");
}

TEST_F(Expressions, AreCompiledOnceAndUsedForManyRecords) {
  const auto expression = makeExpression(session(), "id .. nox.ext(record, 1)");
  for (int i = 0; i < 1000; ++i) {
    const std::string number = std::to_string(i);
    ASSERT_EQ(expression->evaluate("r", number), "r" + number);
  }
}

TEST_F(Expressions, MayEndWithAComment) { EXPECT_EQ(evaluate("id -- the id"), "ID"); }

TEST_F(Expressions, ThatCannotBeCompiledAreRefused) {
  EXPECT_THAT(evaluate("id +"), StartsWith("IE/011: expression:1:"));
  EXPECT_THAT(evaluate("\x1BLua"), StartsWith("IE/011: "));
}

TEST_F(Expressions, FailWithTheErrorsText) {
  EXPECT_THAT(evaluate("id + {}"), StartsWith("IE/011: expression:1: attempt to add"));
  EXPECT_THAT(evaluate("error({})"), StartsWith("IE/011: an error that is no text"));
  EXPECT_THAT(evaluate("{}"), StartsWith("IE/011: its value is neither text nor a number"));
  EXPECT_THAT(evaluate("nox.ext()"), HasSubstr("text expected, got no value"));
  EXPECT_THAT(evaluate("nox.oconv(id, 'NO SUCH CODE')"), StartsWith("IE/011: "));
}

TEST_F(Expressions, GoOnAfterARecordThatFailed) {
  const auto expression = makeExpression(session(), "record + 1");
  EXPECT_EQ(expression->evaluate("A", "1"), "2");
  EXPECT_THROW(expression->evaluate("B", "no number"), Failure);
  EXPECT_EQ(expression->evaluate("C", "2"), "3");
}

TEST_F(Expressions, ReachNothingButTexts) {
  for (const char* name : {"open", "sql", "execute", "input", "print", "common", "abort"}) {
    EXPECT_EQ(evaluate("nox." + std::string(name) + " == nil"), "1") << name;
  }
  EXPECT_EQ(evaluate("print == nil"), "1");
}

TEST_F(Expressions, EndWhereTheyTakeTooManySteps) {
  EXPECT_EQ(evaluate("(function() while true do end end)()"), "IE/011: it takes too many steps");
  // The steps are each record's own.
  const auto expression =
      makeExpression(session(), "(function() for i = 1, 100000 do end return id end)()");
  for (int i = 0; i < 30; ++i) ASSERT_EQ(expression->evaluate("x", ""), "x");
}

TEST_F(Expressions, EndWhereTheyTakeTooMuchMemory) {
  EXPECT_EQ(evaluate("('x'):rep(60000000)"), "IE/011: it needs more than 64 MiB of memory");
}

TEST_F(Expressions, EndWithTheirRequest) {
  const auto expression = makeExpression(session(), "(function() for i = 1, 1000 do end end)()");
  session().interrupt();
  EXPECT_THROW(expression->evaluate("A", ""), Failure);
}

}  // namespace
}  // namespace nox::agent
