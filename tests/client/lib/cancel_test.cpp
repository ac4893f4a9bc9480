// Ending a request from another thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "nox/client/batch.h"
#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using test::Environment;
using test::Peer;
using test::PeerConnection;

class Cancel : public testing::Test {
protected:
  const Environment empty_;
};

TEST_F(Cancel, WakesARequestThatWaitsInAnotherThreadsConnection) {
  std::atomic<bool> asked{false};
  Peer peer([&asked](PeerConnection& client) {
    client.welcome();
    client.receive();
    asked = true;
    client.waitForClient();
  });
  Connection connection = Connection::open(peer.uri("request_timeout=1m"));
  const Canceller canceller = connection.canceller();
  std::thread other([&] {
    while (!asked) std::this_thread::yield();
    canceller.cancel();
  });
  const auto begin = std::chrono::steady_clock::now();
  try {
    connection.dateTime();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kCancelled);
    EXPECT_EQ(error.outcome(), Outcome::Unknown);
  }
  other.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  EXPECT_FALSE(connection.isUsable());
  EXPECT_EQ(connection.unusableReason(), "it was cancelled");
}

TEST_F(Cancel, EndsAConnectionThatOtherThreadsLetRest) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(1, 2));
  }));
  Connection connection = Connection::open(peer.uri());
  std::thread([&] { connection.cancel(); }).join();
  EXPECT_FALSE(connection.isUsable());
  try {
    connection.dateTime();
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kUnusable);
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
    EXPECT_EQ(error.message(), "the connection is unusable: it was cancelled");
  }
}

TEST_F(Cancel, OutlivesTheConnectionInAllThreads) {
  Peer peer(test::serving([](PeerConnection&, Serializable&) {}));
  for (int round = 0; round < 20; ++round) {
    auto connection = std::make_unique<Connection>(Connection::open(peer.uri()));
    const Canceller canceller = connection->canceller();
    std::thread other([canceller] { canceller.cancel(); });
    connection.reset();
    other.join();
    canceller.cancel();
  }
}

TEST_F(Cancel, EndsABatchThatThreadsWaitFor) {
  std::atomic<bool> asked{false};
  Peer peer([&asked](PeerConnection& client) {
    client.welcome();
    for (int i = 0; i < 3; ++i) {
      client.receive();
      client.send(noxp::remote::ToviResponseProt(0, nullptr, nullptr));
    }
    client.receive();
    asked = true;
    client.waitForEnd();
  });
  Connection connection = Connection::open(peer.uri("request_timeout=1m"));
  Batch batch(connection);
  for (int i = 0; i < 10; ++i) batch.remove("F", std::to_string(i));
  std::thread other([&] {
    while (!asked) std::this_thread::yield();
    connection.cancel();
  });
  const std::vector<Batch::Result> results = batch.run();
  other.join();
  ASSERT_EQ(results.size(), 10u);
  EXPECT_TRUE(results[2].ok());
  ASSERT_TRUE(results[3].error);
  EXPECT_EQ(results[3].error->sqlState(), sqlstate::kCancelled);
}

}  // namespace
}  // namespace nox::client
