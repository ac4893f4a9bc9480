// The server in the test's own process, with clients in several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/locks/lock_table.h"
#include "agent/server/server.h"
#include "agent/session/session_registry.h"
#include "agent/store/store.h"
#include "agent/users/users.h"
#include "tests/agent/support/agent_in_process.h"
#include "tests/agent/support/certificates.h"
#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

using noxp::remote::ReadRecordRequestProt;
using noxp::remote::SwitchAccountRequestProt;

constexpr const char* kUser = NoxdProcess::kUser;
constexpr const char* kPassword = NoxdProcess::kPassword;
constexpr int kUpdateLock = 2;

class ServerThreads : public testing::Test {
protected:
  ServerThreads() {
    Users& users = agent.agent().users;
    users.add(kUser, kPassword);
    users.grant(kUser, "MAIN", Right::Admin);
    agent.agent().stores.createAccount("OTHER");
    users.grant(kUser, "OTHER", Right::Admin);
    server = std::make_unique<Server>(agent.agent(), agent.dispatcher());
    server->open();
    runner = std::thread([this] { server->run(); });
  }
  ~ServerThreads() override { stop(); }

  void stop() {
    server->stop();
    if (runner.joinable()) runner.join();
  }

  std::unique_ptr<Client> logIn(bool tls = false) {
    auto client = tls ? std::make_unique<Client>(server->tlsPort(), ClientTls{})
                      : std::make_unique<Client>(server->plainPort());
    client->logIn();
    return client;
  }

  /// Waits until so many sessions are there.
  void waitForSessions(std::size_t n) {
    while (agent.agent().sessions.size() != n) std::this_thread::yield();
  }

  static void change(ConfigurationValues& values) {
    static const TempDirectory directory;
    Certificate::authority("Tests").write(directory.file("certificate"), directory.file("key"));
    values.listen.port = 0;
    values.tls.enabled = true;
    values.tls.listen.port = 0;
    values.tls.certificate = directory.file("certificate");
    values.tls.key = directory.file("key");
    values.lockWait = std::chrono::seconds(60);
  }

  AgentInProcess agent{change};
  std::unique_ptr<Server> server;
  std::thread runner;
};

TEST_F(ServerThreads, ServesManyClientsAtOnce) {
  ASSERT_EQ(logIn()->run("CREATE-FILE F"), "File F created");
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([this, i] {
      const auto client = logIn(i % 2 == 0);
      const std::string id = std::to_string(i);
      for (int round = 0; round < 20; ++round) {
        EXPECT_TRUE(client->echoes(static_cast<std::size_t>(round) * 1000));
        EXPECT_EQ(client->write("F", id.c_str(), std::to_string(round)), "0");
        EXPECT_EQ(client->read("F", id.c_str()), "0 '" + std::to_string(round) + "'");
        EXPECT_NE(client->monitor("sessions"), "");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  waitForSessions(0);
}

TEST_F(ServerThreads, DrainsWhileClientsComeAndAsk) {
  std::atomic<int> served{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, &served] {
      try {
        for (;;) {
          const auto client = logIn();
          for (int round = 0; round < 50; ++round) {
            if (client->echoes()) ++served;
          }
        }
      } catch (const std::runtime_error&) {  // no more
      }
    });
  }
  while (served < 200) std::this_thread::yield();
  server->drain();
  runner.join();
  // Nobody waits in a backlog that is served no more.
  server.reset();
  for (std::thread& thread : threads) thread.join();
  server = std::make_unique<Server>(agent.agent(), agent.dispatcher());
  EXPECT_EQ(agent.agent().sessions.size(), 0u);
}

TEST_F(ServerThreads, StopsWhileClientsWaitForLocks) {
  const auto holder = logIn();
  ASSERT_EQ(holder->run("CREATE-FILE F"), "File F created");
  ASSERT_EQ(holder->read("F", "1", kUpdateLock), "1");
  std::vector<std::unique_ptr<Client>> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(logIn());
    waiters.back()->send(ReadRecordRequestProt(kUpdateLock, "F", "1"));
  }
  stop();
  EXPECT_EQ(agent.agent().sessions.size(), 0u);
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(ServerThreads, KillsSessionsThatGoFromAccountToAccount) {
  SessionRegistry& sessions = agent.agent().sessions;
  for (int round = 0; round < 3; ++round) {
    const auto client = logIn();
    std::thread killer([&sessions] {
      for (const SessionInfo& session : sessions.list()) sessions.kill(session.id);
    });
    try {
      for (int i = 0; i < 4; ++i) {
        SwitchAccountRequestProt request(kUser, i % 2 == 0 ? "OTHER" : "MAIN", kPassword);
        client->ask(request);
      }
    } catch (const std::runtime_error&) {  // killed
    }
    killer.join();
    client->close();
    waitForSessions(0);
  }
}

TEST_F(ServerThreads, ReadsItsCertificateAnewWhileClientsCome) {
  std::atomic<bool> done{false};
  std::thread reloading([this, &done] {
    while (!done) server->reload();
  });
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(logIn(true)->echoes());
  done = true;
  reloading.join();
}

}  // namespace
}  // namespace nox::agent::test
