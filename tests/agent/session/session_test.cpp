// A session as a whole: what ends it from outside.
#include "agent/session/session.h"

#include <gtest/gtest.h>

#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {
namespace {

class InterruptedSession : public ::testing::Test {
protected:
  InterruptedSession() {
    ann.session().store().createFile("F");
    ann.write("F", "A", "alpha");
  }

  AgentInProcess agent;
  ClientInProcess ann{agent};
};

TEST_F(InterruptedSession, EndsTheRequestThatItReadsBeforeItNoticed) {
  ann.session().interrupt();
  EXPECT_EQ(ann.read("F", "A"), "IE/008");
  EXPECT_EQ(ann.write("F", "A", "beta"), "IE/009");
}

}  // namespace
}  // namespace nox::agent::test
