// How noxd ends: drained, stopped, killed; and how it ends single sessions.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/agent/wire/waiting.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using noxp::remote::ReadRecordRequestProt;
using noxp::remote::RemoteExecuteRequestProt;

constexpr int kUpdateLock = 2;

class Ending : public testing::Test {
protected:
  Ending() { noxd.set("session.lock_wait", "60"); }

  void start() {
    noxd.start();
    watcher = std::make_unique<Client>(noxd.plainPort());
    watcher->logIn();
    ASSERT_EQ(watcher->run("CREATE-FILE F"), "File F created");
  }

  /// Waits until another session than the watcher is at work.
  void waitUntilOneRuns() {
    ASSERT_TRUE(comesTrue([&] {
      const std::string sessions = watcher->monitor("sessions");
      const std::size_t first = sessions.find("\trunning\t");
      return first != std::string::npos &&
             sessions.find("\trunning\t", first + 1) != std::string::npos;
    }));
  }

  /// A client whose request runs until it is stopped.
  std::unique_ptr<Client> runEndlessly() {
    EXPECT_EQ(watcher->run("CREATE-FILE NOX.SUBS"), "File NOX.SUBS created");
    EXPECT_EQ(watcher->write("NOX.SUBS", "FOREVER", "while true do end"), "0");
    auto client = std::make_unique<Client>(noxd.plainPort());
    client->logIn();
    NOXPBlob line("RUN FOREVER");
    client->send(RemoteExecuteRequestProt(&line));
    waitUntilOneRuns();
    return client;
  }

  NoxdProcess noxd;
  std::unique_ptr<Client> watcher;
};

TEST_F(Ending, ByDrainClosesConnectionsAtRest) {
  start();
  Client stranger(noxd.plainPort());
  EXPECT_EQ(noxd.stop(), 0);
  EXPECT_TRUE(watcher->isClosed());
  EXPECT_TRUE(stranger.isClosed());
}

TEST_F(Ending, ByDrainLetsARunningRequestFinish) {
  start();
  ASSERT_EQ(watcher->write("F", "1", "one"), "0");
  ASSERT_EQ(watcher->read("F", "1", kUpdateLock), "0 'one'");
  Client waiter(noxd.plainPort());
  waiter.logIn();
  waiter.send(ReadRecordRequestProt(kUpdateLock, "F", "1"));
  waitUntilOneRuns();
  // The watcher's connection is at rest and ends, and its lock with it.
  noxd.signal(SIGTERM);
  const auto reply = waiter.receive();
  ASSERT_NE(reply, nullptr);
  const auto* const record = dynamic_cast<noxp::remote::ToviResponseProt*>(reply.get());
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->getStatus(), 0);
  EXPECT_TRUE(waiter.isClosed());
  EXPECT_EQ(noxd.wait(), 0);
}

TEST_F(Ending, ByDrainHasATimeOut) {
  noxd.set("server.drain_timeout", "1");
  start();
  const auto client = runEndlessly();
  EXPECT_EQ(noxd.stop(), 0);
}

TEST_F(Ending, ByDrainServesNobodyElseAndSaysSo) {
  start();
  const auto running = runEndlessly();
  noxd.signal(SIGTERM);
  noxd.waitForLog("draining");
  Client late(noxd.plainPort());
  EXPECT_EQ(late.logIn(NoxdProcess::kUser, NoxdProcess::kPassword), "08/004");
  EXPECT_TRUE(late.isClosed());
  Client observer(noxd.plainPort());
  observer.sendBytes("GET /readyz HTTP/1.1\r\n\r\n");
  EXPECT_EQ(observer.receiveAll().substr(0, 12), "HTTP/1.1 503");
  noxd.signal(SIGINT);
  EXPECT_EQ(noxd.wait(), 0);
}

TEST_F(Ending, ByStopEndsWhatRuns) {
  start();
  const auto client = runEndlessly();
  noxd.signal(SIGINT);
  EXPECT_EQ(noxd.wait(), 0);
}

TEST_F(Ending, ByStopEndsAWaitForALock) {
  start();
  ASSERT_EQ(watcher->read("F", "1", kUpdateLock), "1");
  Client waiter(noxd.plainPort());
  waiter.logIn();
  waiter.send(ReadRecordRequestProt(kUpdateLock, "F", "1"));
  waitUntilOneRuns();
  noxd.signal(SIGINT);
  EXPECT_EQ(noxd.wait(), 0);
}

TEST_F(Ending, ByStopRollsBackAndKeepsWhatWasCommitted) {
  start();
  ASSERT_EQ(watcher->write("F", "1", "one"), "0");
  ASSERT_EQ(watcher->begin(), "OK");
  ASSERT_EQ(watcher->write("F", "2", "two"), "0");
  noxd.signal(SIGINT);
  EXPECT_EQ(noxd.wait(), 0);
  noxd.start();
  Client client(noxd.plainPort());
  client.logIn();
  EXPECT_EQ(client.read("F", "1"), "0 'one'");
  EXPECT_EQ(client.read("F", "2"), "1");
}

TEST_F(Ending, BySigkillKeepsWhatWasAcknowledged) {
  start();
  ASSERT_EQ(watcher->write("F", "1", "one"), "0");
  noxd.kill();
  noxd.start();
  Client client(noxd.plainPort());
  client.logIn();
  EXPECT_EQ(client.read("F", "1"), "0 'one'");
}

TEST_F(Ending, OfASessionCanBeOrderedByAnAdministrator) {
  start();
  const auto client = runEndlessly();
  // The second session of the agent's life.
  EXPECT_EQ(watcher->monitor("kill 2").find("error"), std::string::npos);
  client->receiveAll();
  EXPECT_TRUE(comesTrue(
      [&] { return watcher->monitor("status").find("sessions\t1") != std::string::npos; }));
}

TEST_F(Ending, OfAClientEndsWhatItHasRunning) {
  noxd.set("session.statement_timeout", "0");
  start();
  const auto client = runEndlessly();
  client->close();
  EXPECT_TRUE(comesTrue(
      [&] { return watcher->monitor("status").find("sessions\t1") != std::string::npos; }));
  EXPECT_NE(noxd.log().find("session 2: the client has gone"), std::string::npos);
}

TEST_F(Ending, OfAClientEndsItsWaitForALock) {
  start();
  ASSERT_EQ(watcher->read("F", "1", kUpdateLock), "1");
  Client waiter(noxd.plainPort());
  waiter.logIn();
  ASSERT_EQ(waiter.read("F", "2", kUpdateLock), "1");
  waiter.send(ReadRecordRequestProt(kUpdateLock, "F", "1"));
  waitUntilOneRuns();
  waiter.close();
  Client next(noxd.plainPort());
  next.logIn();
  EXPECT_EQ(next.read("F", "2", kUpdateLock), "1");  // waits until it is free
}

TEST_F(Ending, IsNotForAClientThatWaitsForItsAnswer) {
  start();
  ASSERT_EQ(watcher->read("F", "1", kUpdateLock), "1");
  Client waiter(noxd.plainPort());
  waiter.logIn();
  waiter.send(ReadRecordRequestProt(kUpdateLock, "F", "1"));
  std::this_thread::sleep_for(std::chrono::seconds(3));  // it has been looked at twice
  ASSERT_EQ(watcher->write("F", "1", "one"), "0");       // and releases it
  const auto reply = waiter.receive();
  const auto* const record = dynamic_cast<noxp::remote::ToviResponseProt*>(reply.get());
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->getStatus(), 0);
}

TEST_F(Ending, OfAClientReleasesItsLocks) {
  start();
  Client other(noxd.plainPort());
  other.logIn();
  ASSERT_EQ(other.read("F", "1", kUpdateLock), "1");
  other.close();
  EXPECT_EQ(watcher->read("F", "1", kUpdateLock), "1");  // waits until it is free
}

TEST_F(Ending, OfAPromptAndATransactionComesWhileTheClientIsIdle) {
  noxd.set("session.transaction_idle", "1");
  start();
  Client other(noxd.plainPort());
  other.logIn();
  ASSERT_EQ(other.begin(), "OK");
  ASSERT_EQ(other.write("F", "1", "one"), "0");
  // Waits for the lock of a client that says nothing more.
  EXPECT_EQ(watcher->read("F", "1", kUpdateLock), "1");
  EXPECT_EQ(other.read("F", "1"), "40/000");
  EXPECT_EQ(other.read("F", "2"), "1");
}

TEST(Starting, FailsWhereThePortIsTaken) {
  NoxdProcess first;
  first.start();
  NoxdProcess second;
  second.set("server.listen", "\"127.0.0.1:" + std::to_string(first.plainPort()) + "\"");
  const Finished finished = second.startToFail();
  EXPECT_EQ(finished.status, 69);
  EXPECT_NE(finished.output.find("cannot listen on 127.0.0.1:" + std::to_string(first.plainPort())),
            std::string::npos)
      << finished.output;
}

TEST(Starting, IgnoresClientsThatVanish) {
  // A reply to a closed connection raises no signal.
  NoxdProcess noxd;
  noxd.start();
  const std::string echo = nox::test::frameOf(noxp::common::EchoRequestProt(100'000));
  for (int i = 0; i < 3; ++i) {
    Client client(noxd.plainPort());
    client.logIn();
    const linger reset{1, 0};
    setsockopt(client.descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    client.sendBytes(echo + echo + echo);
    client.close();
  }
  Client next(noxd.plainPort());
  EXPECT_TRUE(next.logIn().echoes());
  EXPECT_TRUE(noxd.isRunning());
}

}  // namespace
}  // namespace nox::agent::test
