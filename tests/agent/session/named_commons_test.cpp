#include "agent/session/named_commons.h"

#include <gtest/gtest.h>

#include <string>

#include "agent/conversions/conversions.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {
namespace {

class NamedCommons : public ::testing::Test {
protected:
  AgentInProcess agent;
  ClientInProcess ann{agent};
};

TEST_F(NamedCommons, SayWhoWorksWhere) {
  EXPECT_EQ(ann.common("@USER"), "ann");
  EXPECT_EQ(ann.common("@ACCOUNT"), "MAIN");
  EXPECT_EQ(ann.common("@SESSION"), std::to_string(ann.session().id()));
}

TEST_F(NamedCommons, SayTheDayAndTheTimeInTheSessionsZone) {
  ann.session().settings().timezone = "Asia/Tokyo";
  const int before = now("Asia/Tokyo").day;
  const int day = std::stoi(ann.common("@DATE"));
  EXPECT_GE(day, before);
  EXPECT_LE(day, now("Asia/Tokyo").day);
  const int second = std::stoi(ann.common("@TIME"));
  EXPECT_GE(second, 0);
  EXPECT_LT(second, 24 * 60 * 60);
}

TEST_F(NamedCommons, SayTheCodeOfTheLastCommand) {
  EXPECT_EQ(ann.common("@LAST"), "0");
  ann.session().setLastCommandCode(201);
  EXPECT_EQ(ann.common("@LAST"), "201");
}

TEST_F(NamedCommons, ShowWhatSubroutinesSet) {
  ann.session().commons()["COLOUR"] = std::string("red\xFE\0blue", 9);
  EXPECT_EQ(ann.common("COLOUR"), std::string("red\xFE\0blue", 9));
}

TEST_F(NamedCommons, AreEmptyWhereNothingWasSet) {
  EXPECT_EQ(ann.common("NEVER"), "");
  EXPECT_EQ(ann.common(""), "");
  EXPECT_EQ(ann.common("@user"), "");
}

}  // namespace
}  // namespace nox::agent::test
