// A file of customers with its dictionary, in an agent of the test's own process.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/agent/support/agent_in_process.h"
#include "tests/agent/support/command_calls.h"

namespace nox::agent::test {

/// Customers: name, age, city, birthday, phones (with places as subvalues), balance.
class CommandsTest : public ::testing::Test {
protected:
  CommandsTest() {
    makeFile("CUSTOMERS", {
                              {"1", "Smith^42^Oslo^5845^22 11\\office]99 00^12345"},
                              {"2", "Jones^7^Bergen^18628^^-5"},
                              {"3", "Ågren^101^Oslo^^40 40^0"},
                              {"10", "Smith^42^^4000^^7"},
                          });
    makeFile("DICT CUSTOMERS", {
                                   {"NAME", "D^1^^Name^8L^S"},
                                   {"AGE", "D^2^^Age^4R^S"},
                                   {"CITY", "D^3^^City^8L^S"},
                                   {"BORN", "D^4^D^Born^11L^S"},
                                   {"PHONE", "D^5^^Phone^12L^M"},
                                   {"BALANCE", "D^6^MD2,^Balance^10R^S"},
                                   {"INITIAL", "I^nox.ext(record, 1):sub(1, 1)^^I^1L^S"},
                                   {"NEXT", "I^tonumber(nox.ext(record, 2)) + 1^^Next^4R^S"},
                               });
  }

  /// Records are typed with "^", "]" and "\" for their marks.
  void makeFile(const std::string& file,
                const std::vector<std::pair<std::string, std::string>>& records) {
    EXPECT_EQ(ann.begin(), "OK");  // one synchronisation of the disk for all
    const std::string data = file.substr(file.rfind(' ') + 1);
    if (ann.open(data.c_str()) != "OK") {
      EXPECT_EQ(execute(ann, "CREATE-FILE " + data).error, "");
    }
    for (const auto& [id, record] : records) put(file, id, record);
    EXPECT_EQ(ann.commit(), "OK");
  }
  void put(const std::string& file, const std::string& id, const std::string& record) {
    EXPECT_EQ(ann.write(file.c_str(), id.c_str(), marked(record)), "0") << file << " " << id;
  }

  /// The output of a command, or its error.
  std::string run(const std::string& command) { return execute(ann, command).text(); }
  /// The keys that a SELECT leaves, or its error.
  std::string keys(const std::string& command) {
    const CommandReply reply = execute(ann, command);
    if (!reply.error.empty()) return reply.error;
    const std::size_t at = reply.list.find(':');
    execute(ann, "CLEARSELECT");
    return at + 2 > reply.list.size() ? "" : reply.list.substr(at + 2);
  }

  AgentInProcess agent;
  ClientInProcess ann{agent};
};

}  // namespace nox::agent::test
