// What a connection tells without receiving.
#include "agent/server/transport.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <memory>

namespace nox::agent::test {
namespace {

class PlainTransport : public ::testing::Test {
protected:
  PlainTransport() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
    transport = makePlainTransport(Descriptor(ends[0]));
    peer = Descriptor(ends[1]);
  }
  void SetUp() override { ASSERT_TRUE(peer); }

  std::unique_ptr<Transport> transport;
  Descriptor peer;
};

TEST_F(PlainTransport, IsReadableWhenBytesHaveArrivedUntilTheyAreReceived) {
  EXPECT_FALSE(transport->isReadable());
  ASSERT_EQ(send(peer.get(), "a", 1, 0), 1);
  EXPECT_TRUE(transport->isReadable());
  EXPECT_TRUE(transport->isReadable());
  char byte = 0;
  ASSERT_EQ(transport->receive(&byte, 1), 1);
  EXPECT_EQ(byte, 'a');
  EXPECT_FALSE(transport->isReadable());
}

TEST_F(PlainTransport, IsReadableWhenThePeerHasGone) {
  peer = Descriptor();
  EXPECT_TRUE(transport->isReadable());
  char byte = 0;
  EXPECT_EQ(transport->receive(&byte, 1), Transport::kEnded);
}

}  // namespace
}  // namespace nox::agent::test
