#include "agent/server/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <string>

#include "tests/agent/support/client.h"

namespace nox::agent::test {
namespace {

AcceptedSocket acceptOne(Listener& listener) {
  pollfd waited{listener.descriptor(), POLLIN, 0};
  poll(&waited, 1, -1);
  return std::move(*listener.accept());
}

int option(int socket, int level, int name) {
  int value = 0;
  socklen_t size = sizeof value;
  getsockopt(socket, level, name, &value, &size);
  return value;
}

TEST(Listener, TakesAPortOfTheSystemsChoice) {
  Listener listener(ListenAddress{"127.0.0.1", 0});
  EXPECT_NE(listener.where().port, 0);
  EXPECT_EQ(listener.where().text(), "127.0.0.1:" + std::to_string(listener.where().port));
}

TEST(Listener, HasNobodyWhereNobodyCame) {
  Listener listener(ListenAddress{"127.0.0.1", 0});
  EXPECT_FALSE(listener.accept());
}

TEST(Listener, SaysWhoHasCome) {
  Listener listener(ListenAddress{"localhost", 0});
  if (listener.where().address != "127.0.0.1") GTEST_SKIP() << "localhost is somewhere else here";
  const Client client(listener.where().port);
  const AcceptedSocket accepted = acceptOne(listener);
  EXPECT_EQ(accepted.peer.address, "127.0.0.1");
  EXPECT_NE(accepted.peer.port, 0);
  EXPECT_TRUE(accepted.peer.loopback);
}

TEST(Listener, TakesIpv4ClientsOnAnIpv6Wildcard) {
  const Descriptor probe(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!probe) GTEST_SKIP() << "no IPv6 here";
  Listener listener(ListenAddress{"::", 0});
  const Client client(listener.where().port);
  const AcceptedSocket accepted = acceptOne(listener);
  EXPECT_EQ(accepted.peer.address, "127.0.0.1");
  EXPECT_TRUE(accepted.peer.loopback);
}

TEST(Listener, SetsItsClientsUp) {
  Listener listener(ListenAddress{"127.0.0.1", 0});
  const Client client(listener.where().port);
  const AcceptedSocket accepted = acceptOne(listener);
  const int socket = accepted.socket.get();
  EXPECT_NE(option(socket, IPPROTO_TCP, TCP_NODELAY), 0);
  EXPECT_NE(option(socket, SOL_SOCKET, SO_KEEPALIVE), 0);
  EXPECT_GT(option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
  EXPECT_NE(fcntl(socket, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(listener.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(Listener, NamesAPortThatIsTaken) {
  const Listener first(ListenAddress{"127.0.0.1", 0});
  try {
    const Listener second(ListenAddress{"127.0.0.1", first.where().port});
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::exception& error) {
    EXPECT_EQ(std::string(error.what()),
              "cannot listen on " + first.where().text() + ": Address already in use");
  }
}

TEST(Listener, NamesAnAddressThatIsNotThisMachines) {
  // 192.0.2.0/24 is set aside for documentation.
  EXPECT_THROW(Listener(ListenAddress{"192.0.2.1", 0}), std::exception);
  EXPECT_THROW(Listener(ListenAddress{"no such host.", 0}), std::exception);
}

TEST(Peer, IsShownWithBracketsWhereItsAddressHasColons) {
  EXPECT_EQ((Peer{"10.0.0.1", 5, false}.text()), "10.0.0.1:5");
  EXPECT_EQ((Peer{"::1", 5, true}.text()), "[::1]:5");
}

}  // namespace
}  // namespace nox::agent::test
