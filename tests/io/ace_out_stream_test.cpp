#include "nox/io/ace_out_stream.h"

#include <ace/SOCK_Stream.h>
#include <ace/SSL/SSL_SOCK_Stream.h>
#include <gmock/gmock.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "nox/io/ace_input_stream.h"
#include "nox/io/buffered_out_stream.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"
#include "tests/support/sockets.h"

namespace nox::test {
namespace {

using ::testing::IsEmpty;

constexpr std::size_t kLarge = 4 << 20;  // more than the sockets hold

std::string largeMessage() {
  std::string message(kLarge, '\0');
  for (std::size_t i = 0; i < message.size(); ++i) message[i] = static_cast<char>(i * 31 >> 3);
  return message;
}

void send(OutStream& stream, const std::string& data) { stream.send(data.data(), data.size()); }

/// Runs with SIGPIPE at its default, which ends the process.
template <class Pair>
class ACEOutStreamOn : public ::testing::Test {
protected:
  Disposition sigpipe_{SIGPIPE, SIG_DFL};
  Pair pair_;
  ACEOutStream stream_{&pair_.client()};
};

using Connections = ::testing::Types<PlainPair, TlsPair>;
TYPED_TEST_SUITE(ACEOutStreamOn, Connections);

TYPED_TEST(ACEOutStreamOn, SendsAllBytesAtOnce) {
  send(this->stream_, "abc");
  EXPECT_EQ(receive(this->pair_.server(), 3), "abc");
  NOXPString text("text");
  NOXPBlob blob("blob", 4);
  this->stream_.send(text);
  this->stream_.send(blob);
  this->stream_.flush();
  EXPECT_EQ(receive(this->pair_.server(), 8), "textblob");
}

TYPED_TEST(ACEOutStreamOn, SendsNothingForNothing) {
  this->stream_.send(nullptr, 0);
  send(this->stream_, "a");
  EXPECT_EQ(receive(this->pair_.server(), 1), "a");
}

TYPED_TEST(ACEOutStreamOn, WaitsForASlowPeer) {
  const std::string message = largeMessage();
  std::thread sender([&] {
    send(this->stream_, message);
    endWriting(this->pair_.client());
  });
  std::string received;
  constexpr std::size_t kPart = 8000;
  while (received.size() < message.size()) {
    const std::size_t left = message.size() - received.size();
    const std::string part = receive(this->pair_.server(), std::min(left, kPart));
    if (part.empty()) break;
    received += part;
  }
  sender.join();
  EXPECT_TRUE(received == message);
}

TYPED_TEST(ACEOutStreamOn, CarriesFramesToAnInputStream) {
  BufferedOutStream frames(&this->stream_, false);
  ACEInputStream peer(&this->pair_.server());
  frames.send("[body]", 6);
  EXPECT_EQ(frames.flushSz(), 10U);
  int length = 0;
  EXPECT_EQ(peer.readInt(length), 4);
  EXPECT_EQ(length, 6);
  EXPECT_EQ(peer.readChar(), '[');
}

TYPED_TEST(ACEOutStreamOn, SurvivesAPeerThatIsGone) {
  const LogCapture quiet;  // the TLS layer has something to say
  endWriting(this->pair_.client());
  send(this->stream_, "lost");
  send(this->stream_, "lost too");
  EXPECT_FALSE(isBlocked(SIGPIPE));
  EXPECT_FALSE(isPending(SIGPIPE));
}

TYPED_TEST(ACEOutStreamOn, SurvivesAPeerThatClosesWhileItSends) {
  const std::string message = largeMessage();
  std::thread peer([&] {
    receive(this->pair_.server(), 10);
    this->pair_.server().ACE_SOCK::close();
  });
  send(this->stream_, message);
  peer.join();
  EXPECT_FALSE(isPending(SIGPIPE));
}

TYPED_TEST(ACEOutStreamOn, LeavesNoSigpipeBehindForAThreadThatBlocksIt) {
  const SigpipeBlocked blocked;
  endWriting(this->pair_.client());
  send(this->stream_, "lost");
  EXPECT_TRUE(isBlocked(SIGPIPE));
  EXPECT_FALSE(isPending(SIGPIPE));
}

TYPED_TEST(ACEOutStreamOn, SetsOnlyTheOptionsThatAreAskedFor) {
  auto& socket = this->pair_.client();
  const int noDelay = optionOf(socket, IPPROTO_TCP, TCP_NODELAY);
  const int sendBuffer = optionOf(socket, SOL_SOCKET, SO_SNDBUF);
  const LogCapture log;
  const ACEOutStream none(&socket, false, 0);
  EXPECT_EQ(optionOf(socket, IPPROTO_TCP, TCP_NODELAY), noDelay);
  EXPECT_EQ(optionOf(socket, SOL_SOCKET, SO_SNDBUF), sendBuffer);
  const ACEOutStream both(&socket, true, 4096);
  EXPECT_EQ(optionOf(socket, IPPROTO_TCP, TCP_NODELAY), 1);
  // The system makes of it what it likes, but less than before.
  EXPECT_LT(optionOf(socket, SOL_SOCKET, SO_SNDBUF), sendBuffer);
  EXPECT_THAT(log.records(), IsEmpty());
}

TYPED_TEST(ACEOutStreamOn, CopiesAndMovesSendToTheSameSocket) {
  ACEOutStream copy(this->stream_);
  send(copy, "a");
  ACEOutStream moved(std::move(copy));
  send(moved, "b");
  ACEOutStream assigned(static_cast<ACE_SOCK_Stream*>(nullptr));
  assigned = this->stream_;
  send(assigned, "c");
  assigned = std::move(moved);
  send(assigned, "d");
  EXPECT_EQ(receive(this->pair_.server(), 4), "abcd");
}

template <class Pair>
class ACEOutStreamThreads : public ACEOutStreamOn<Pair> {};
TYPED_TEST_SUITE(ACEOutStreamThreads, Connections);

TYPED_TEST(ACEOutStreamThreads, SendOnAfterSignals) {
  const std::string message = largeMessage();
  const Disposition counting(SIGUSR1, countSignal);
  std::atomic<bool> done{false};
  std::thread sender([&] {
    send(this->stream_, message);
    endWriting(this->pair_.client());  // a send that gave up leaves nobody waiting
    done = true;
  });
  interrupt(sender, done);
  std::string received = receive(this->pair_.server(), kLarge / 2);
  interrupt(sender, done);
  received += receive(this->pair_.server(), kLarge - received.size());
  sender.join();
  EXPECT_TRUE(received == message);
}

// Masking costs system calls, so a process that ignores SIGPIPE is spared it.
TEST(ACEOutStreamOnTls, DoesNotMaskSigpipeWhereItIsIgnored) {
  TlsPair pair;
  TlsPair other;
  endWriting(pair.client());
  endWriting(other.client());
  const Disposition ignored(SIGPIPE, SIG_IGN);
  ACEOutStream unguarded(&pair.client());
  const Disposition counting(SIGPIPE, countSignal);
  ACEOutStream guarded(&other.client());
  const int before = signalsSeen;
  send(guarded, "lost");
  EXPECT_EQ(signalsSeen, before);
  send(unguarded, "lost");
  EXPECT_EQ(signalsSeen, before + 1);
}

TEST(ACEOutStream, OfNoSocketSendsNothing) {
  ACEOutStream stream(static_cast<ACE_SSL_SOCK_Stream*>(nullptr), true, 4096);
  send(stream, "lost");
  stream.flush();
}

TEST(ACEOutStream, ReportsOptionsThatCannotBeSet) {
  const LogCapture log;
  ACE_SOCK_Stream closed;
  const ACEOutStream stream(&closed, true, 4096);
  ASSERT_EQ(log.records().size(), 2U);
  EXPECT_EQ(log.records()[0].line, "Could not set TCP_NODELAY");
  EXPECT_EQ(log.records()[1].line, "Could not set SO_SNDBUF");
  for (const LogRecord& record : log.records()) {
    EXPECT_EQ(record.priority, nox::error);
    EXPECT_EQ(record.file, "ACEOutStream.cpp");
  }
}

TEST(ACEOutStream, SendsOnAfterAnOptionThatCannotBeSet) {
  int handles[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, handles), 0);  // knows no TCP_NODELAY
  ACE_SOCK_Stream near(handles[0]);
  ACE_SOCK_Stream far(handles[1]);
  const LogCapture log;
  ACEOutStream stream(&near, true, 0);
  EXPECT_EQ(log.output(), "Could not set TCP_NODELAY");
  send(stream, "abc");
  EXPECT_EQ(receive(far, 3), "abc");
  near.close();
  far.close();
}

}  // namespace
}  // namespace nox::test
