// A connection belongs to the process that opened it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "nox/client/pool.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using test::Environment;
using test::Peer;
using test::PeerConnection;

/// Runs `action` in a forked child: whether it returned true.
bool holdsInChild(const std::function<bool()>& action) {
  const pid_t child = ::fork();
  if (child == 0) {
    bool holds = false;
    try {
      holds = action();
    } catch (...) {
      holds = false;
    }
    ::_exit(holds ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class Fork : public testing::Test {
protected:
  const Environment empty_;
  Peer peer_{test::serving([](PeerConnection& client, Serializable& request) {
    if (dynamic_cast<noxp::remote::DateTimeRequestProt*>(&request)) {
      client.send(noxp::remote::DateTimeResponseProt(7, 8));
    } else {
      client.send(OKResponseProt());
    }
  })};
};

TEST_F(Fork, MakesTheConnectionUnusableInTheChild) {
  Connection connection = Connection::open(peer_.uri());
  EXPECT_TRUE(holdsInChild([&] {
    if (connection.isUsable()) return false;
    try {
      connection.dateTime();
      return false;
    } catch (const Error& error) {
      return error.sqlState() == sqlstate::kUnusable && error.outcome() == Outcome::NotSent &&
             error.message() == "the connection is unusable: it belongs to the parent process";
    }
  }));
  EXPECT_EQ(connection.dateTime().day, 7) << "in the parent nothing has changed";
}

TEST_F(Fork, LeavesTheParentsSessionAloneWhenTheChildLetsGo) {
  auto connection = std::make_unique<Connection>(Connection::open(peer_.uri()));
  auto file = std::make_unique<File>(connection->file("F"));
  auto work = std::make_unique<Transaction>(connection->begin());
  EXPECT_TRUE(holdsInChild([&] {
    connection->cancel();
    work.reset();
    file.reset();
    connection.reset();
    return true;
  }));
  EXPECT_TRUE(connection->isUsable());
  work->commit();
  EXPECT_EQ(connection->dateTime().day, 7);
}

TEST_F(Fork, LetsTheChildOpenItsOwn) {
  Connection connection = Connection::open(peer_.uri());
  EXPECT_TRUE(holdsInChild([&] {
    Connection own = Connection::open(peer_.uri());
    return own.dateTime().day == 7;
  }));
}

TEST_F(Fork, MakesAPoolOpenNewConnectionsInTheChild) {
  Pool pool(peer_.uri());
  { const Pool::Lease warm = pool.acquire(); }
  EXPECT_TRUE(holdsInChild([&] { return pool.acquire()->dateTime().day == 7; }));
  EXPECT_EQ(pool.acquire()->dateTime().day, 7);
  EXPECT_EQ(pool.statistics().opened, 1u);
}

}  // namespace
}  // namespace nox::client
