// How many clients there may be, and what each of them costs.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/agent/support/sanitized.h"
#include "tests/agent/wire/waiting.h"

namespace nox::agent::test {
namespace {

using Clients = std::vector<std::unique_ptr<Client>>;

TEST(Connections, AreRefusedBeyondTheLimitWithAReason) {
  NoxdProcess noxd;
  noxd.set("server.max_connections", "2").start();
  Client first(noxd.plainPort());
  Client second(noxd.plainPort());
  first.logIn();
  Client third(noxd.plainPort());
  noxp::AuthenticationRequestProt login(new AccountUserCredentialsProt("ann", "", "x"));
  const auto reply = third.ask(login);
  EXPECT_EQ(errorOf(*reply), "08/004");
  EXPECT_NE(messageOf(*reply).find("as many clients as it may"), std::string::npos);
  EXPECT_TRUE(third.isClosed());
  EXPECT_TRUE(first.echoes());
  EXPECT_TRUE(second.logIn().echoes());
}

TEST(Connections, AreRefusedOverTlsWithAReason) {
  NoxdProcess noxd;
  noxd.withTls().set("server.max_connections", "1").start();
  Client first(noxd.plainPort());
  first.logIn();
  Client second(noxd.tlsPort(), ClientTls{});
  EXPECT_EQ(second.logIn("ann", "x"), "08/004");
  EXPECT_TRUE(second.isClosed());
}

TEST(Connections, AreToldOfTheLimitAlsoWhenTheySayNothing) {
  NoxdProcess noxd;
  noxd.set("server.max_connections", "1").start();
  Client first(noxd.plainPort());
  first.logIn();
  Client second(noxd.plainPort());
  EXPECT_EQ(errorOf(*second.receive()), "08/004");
}

TEST(Connections, LeaveAPlaceWhenTheyEnd) {
  NoxdProcess noxd;
  noxd.set("server.max_connections", "1").start();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(comesTrue([&] {
      Client client(noxd.plainPort());
      return client.logIn(NoxdProcess::kUser, NoxdProcess::kPassword) == "OK";
    }));
  }
}

TEST(Connections, LeaveTheAgentVisibleAtItsLimit) {
  NoxdProcess noxd;
  noxd.set("server.max_connections", "1").start();
  Client first(noxd.plainPort());
  first.logIn();
  Client observer(noxd.plainPort());
  observer.sendBytes("GET /healthz HTTP/1.1\r\n\r\n");
  EXPECT_EQ(observer.receiveAll().substr(0, 12), "HTTP/1.1 200");
}

TEST(Connections, AreRefusedInCrowdsWithoutHoldingAnybodyUp) {
  NoxdProcess noxd;
  noxd.set("server.max_connections", "1").start();
  Client first(noxd.plainPort());
  first.logIn();
  Clients crowd;
  for (int i = 0; i < 100; ++i) crowd.push_back(std::make_unique<Client>(noxd.plainPort()));
  EXPECT_TRUE(first.echoes());
  for (auto& client : crowd) {
    const auto reply = client->receive();
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(errorOf(*reply), "08/004");
  }
  EXPECT_TRUE(comesTrue([&] { return noxd.threads() < 20; }));
}

TEST(Connections, MayHaveDescriptorsAbove1024) {
  constexpr rlim_t kNeeded = 1400;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < kNeeded) GTEST_SKIP() << "the system allows too few descriptors";
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  NoxdProcess noxd;
  noxd.set("server.max_connections", "2000").set("server.login_timeout", "600").start();
  Clients clients;
  for (int i = 0; i < 1100; ++i) clients.push_back(std::make_unique<Client>(noxd.plainPort()));
  EXPECT_TRUE(clients.back()->logIn().echoes());
  EXPECT_GT(noxd.descriptors(), 1100);
  const int threads = noxd.threads();
  clients.clear();
  EXPECT_TRUE(comesTrue([&] { return noxd.threads() < threads - 1050; }));
  EXPECT_TRUE(comesTrue([&] { return noxd.descriptors() < 100; }));
}

TEST(Connections, WaitWhileThereAreNoDescriptors) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer itself needs descriptors to look at objects";
  NoxdProcess noxd;
  noxd.withDescriptors(48).set("server.login_timeout", "600").start();
  Clients clients;
  for (int i = 0; i < 60; ++i) clients.push_back(std::make_unique<Client>(noxd.plainPort()));
  noxd.waitForLog("clients cannot be served");
  for (int i = 0; i < 40; ++i) clients[static_cast<std::size_t>(i)].reset();
  EXPECT_TRUE(clients.back()->logIn().echoes());
  // It paused between its attempts: a spinning agent would have said so hundreds of times.
  const std::string log = noxd.log();
  int lines = 0;
  for (std::size_t at = log.find("cannot be served"); at != std::string::npos;
       at = log.find("cannot be served", at + 1)) {
    ++lines;
  }
  EXPECT_LE(lines, 5);
}

TEST(Connections, CostLittleAtRest) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer keeps what is freed";
  constexpr int kMany = 30;
  NoxdProcess noxd;
  noxd.start();
  const auto connected = [&] {
    auto client = std::make_unique<Client>(noxd.plainPort());
    client->logIn();
    // A large exchange, whose blocks are not to stay.
    EXPECT_TRUE(client->echoes(1'000'000));
    return client;
  };
  Clients first;
  for (int i = 0; i < 3; ++i) first.push_back(connected());
  ASSERT_TRUE(comesTrue([&] { return !first[0]->hasInput(std::chrono::milliseconds(700)); }));
  const long before = noxd.memoryKiB();
  Clients clients;
  for (int i = 0; i < kMany; ++i) clients.push_back(connected());
  // Memory is given back when a client has been at rest for a moment.
  constexpr long kEach = 256;  // KiB, stack and all
  EXPECT_TRUE(comesTrue([&] { return noxd.memoryKiB() - before < kMany * kEach; }))
      << (noxd.memoryKiB() - before) / kMany << " KiB each";
}

TEST(Connections, AreShownToAdministrators) {
  NoxdProcess noxd;
  noxd.withTls().start();
  Client client(noxd.tlsPort(), ClientTls{});
  client.logIn();
  const std::string sessions = client.monitor("sessions");
  EXPECT_NE(sessions.find("\t127.0.0.1:"), std::string::npos) << sessions;
  EXPECT_NE(sessions.find("\tann\t"), std::string::npos) << sessions;
  EXPECT_NE(sessions.find("\trunning\t"), std::string::npos) << sessions;
}

TEST(Connections, AnswerInOrderWhatIsPipelined) {
  NoxdProcess noxd;
  noxd.start();
  Client client(noxd.plainPort());
  client.logIn();
  MemoryBufferOutStream frames;
  BinaryWriter writer(&frames);
  for (std::uint64_t n = 0; n < 2000; ++n) {
    noxp::common::EchoRequestProt request(n);
    writer.writeRoot(request);
  }
  ASSERT_TRUE(client.sendBytes(frames.str()));
  for (std::size_t n = 0; n < 2000; ++n) {
    const auto reply = client.receive();
    const auto* const echo = dynamic_cast<noxp::common::EchoResponseProt*>(reply.get());
    ASSERT_NE(echo, nullptr) << n;
    ASSERT_EQ(echo->getBuffer() ? echo->getBuffer()->length() : 0, n);
  }
}

}  // namespace
}  // namespace nox::agent::test
