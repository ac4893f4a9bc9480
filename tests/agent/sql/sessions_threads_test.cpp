// Sessions that use SQL at the same time.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

TEST(SqlThreads, SessionsReadFilesWhileADictionaryChanges) {
  AgentInProcess agent;
  ClientInProcess ann(agent);
  ann.run("CREATE-FILE F");
  ann.write("DICT F", "DAY", record({"D", "1", "DI"}));
  ann.write("F", "a", record({"0", "x"}));

  constexpr int kTimes = 30;
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&agent] {
      ClientInProcess client(agent, Right::Read);
      SqlCalls sql(client);
      sql.compile("SELECT * FROM F WHERE ID = 'a'");
      for (int times = 0; times < kTimes; ++times) {
        const std::string row = sql.execute(1);
        EXPECT_TRUE(row == "1 rows a,1967-12-31" || row == "1 rows a,1967-12-31,x") << row;
      }
    });
  }
  std::thread writer([&agent] {
    ClientInProcess client(agent);
    for (int times = 0; times < kTimes; ++times) {
      client.write("DICT F", "MORE", record({"D", "2"}));
      client.remove("DICT F", "MORE");
    }
  });
  for (std::thread& reader : readers) reader.join();
  writer.join();
}

TEST(SqlThreads, SessionsChangeOneTable) {
  AgentInProcess agent;
  ClientInProcess ann(agent);
  SqlCalls(ann).once("CREATE TABLE counter(n INTEGER)");
  SqlCalls(ann).once("INSERT INTO counter VALUES(0)");

  constexpr int kTimes = 25;
  constexpr int kSessions = 4;
  std::vector<std::thread> sessions;
  for (int i = 0; i < kSessions; ++i) {
    sessions.emplace_back([&agent] {
      ClientInProcess client(agent);
      client.session().store().setWait(std::chrono::seconds(30));
      SqlCalls sql(client);
      sql.compile("UPDATE counter SET n = n + 1");
      for (int times = 0; times < kTimes; ++times) EXPECT_EQ(sql.execute(1), "1 changed 1");
    });
  }
  for (std::thread& session : sessions) session.join();
  EXPECT_EQ(SqlCalls(ann).once("SELECT n FROM counter"),
            "rows " + std::to_string(kSessions * kTimes));
}

}  // namespace
}  // namespace nox::agent::test
