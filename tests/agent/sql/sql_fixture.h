// A client of SQL in the test's own process.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/agent/support/agent_in_process.h"
#include "tests/agent/support/sql_calls.h"

namespace nox::agent::test {

class SqlTest : public ::testing::Test {
protected:
  explicit SqlTest(const AgentInProcess::Change& change = {}) : agent_(change) {}

  AgentInProcess agent_;
  ClientInProcess ann_{agent_};
  SqlCalls sql_{ann_};
};

/// The attributes of a record.
inline std::string record(std::initializer_list<std::string> attributes) {
  std::string text;
  for (const std::string& attribute : attributes) {
    if (&attribute != attributes.begin()) text += '\xFE';
    text += attribute;
  }
  return text;
}

/// The values of an attribute.
inline std::string values(std::initializer_list<std::string> all) {
  std::string text;
  for (const std::string& value : all) {
    if (&value != all.begin()) text += '\xFD';
    text += value;
  }
  return text;
}

}  // namespace nox::agent::test
