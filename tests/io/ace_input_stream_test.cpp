#include "nox/io/ace_input_stream.h"

#include <ace/SOCK_Stream.h>
#include <ace/SSL/SSL_SOCK_Stream.h>
#include <ace/Time_Value.h>
#include <fcntl.h>
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "nox/core/serializable.h"
#include "tests/support/caught.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"
#include "tests/support/sockets.h"

namespace nox::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string read(InputStream& stream, int n) {
  std::string data(static_cast<std::size_t>(n), '?');
  EXPECT_EQ(stream.readMax(data.data(), n), n);
  return data;
}

/// Runs with SIGPIPE at its default, which ends the process.
template <class Pair>
class ACEInputStreamOn : public ::testing::Test {
protected:
  Disposition sigpipe_{SIGPIPE, SIG_DFL};
  Pair pair_;
  ACEInputStream stream_{&pair_.client()};
};

using Connections = ::testing::Types<PlainPair, TlsPair>;
TYPED_TEST_SUITE(ACEInputStreamOn, Connections);

TYPED_TEST(ACEInputStreamOn, ReadsExactlyWhatIsAskedFor) {
  sendAll(this->pair_.server(), "abcdef");
  EXPECT_EQ(read(this->stream_, 1), "a");
  EXPECT_EQ(read(this->stream_, 3), "bcd");
  EXPECT_EQ(read(this->stream_, 2), "ef");
}

TYPED_TEST(ACEInputStreamOn, WaitsForASlowPeer) {
  const std::string message(5000, 'm');
  std::thread peer([&] {
    for (const char c : message) sendAll(this->pair_.server(), {&c, 1});
  });
  EXPECT_EQ(read(this->stream_, 5000), message);
  peer.join();
}

TYPED_TEST(ACEInputStreamOn, ReadsAMessageLargerThanTheSocketBuffers) {
  std::string message(4 << 20, '\0');
  for (std::size_t i = 0; i < message.size(); ++i) message[i] = static_cast<char>(i * 31 >> 3);
  std::thread peer([&] { sendAll(this->pair_.server(), message); });
  EXPECT_TRUE(read(this->stream_, 4 << 20) == message);
  peer.join();
}

TYPED_TEST(ACEInputStreamOn, EndsInLastWhenThePeerCloses) {
  char data[4];
  this->pair_.closeServer();
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readMax(data, 4); }));
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readMax(data, 4); }));
}

TYPED_TEST(ACEInputStreamOn, EndsInLastWhenThePeerClosesTooEarly) {
  char data[4];
  sendAll(this->pair_.server(), "abc");
  this->pair_.closeServer();
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readMax(data, 4); }));
}

TYPED_TEST(ACEInputStreamOn, IsNotMisledByAnEarlierTimeout) {
  char data[4];
  this->pair_.closeServer();
  errno = ETIME;
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readMax(data, 4); }));
}

TYPED_TEST(ACEInputStreamOn, ReadsNothingWithoutTouchingTheSocket) {
  char data = '?';
  this->pair_.closeServer();
  EXPECT_EQ(this->stream_.readMax(&data, 0), 0);
  EXPECT_EQ(data, '?');
}

TYPED_TEST(ACEInputStreamOn, EndsInLastForANegativeCount) {
  char data[4];
  sendAll(this->pair_.server(), "abcd");
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readMax(data, -1); }));
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readMax(data, -1, 0); }));
  EXPECT_EQ(read(this->stream_, 4), "abcd");
}

TYPED_TEST(ACEInputStreamOn, LogsWhatWasAskedForAndWhatCame) {
  char data[4];
  const LogCapture log;
  caught<LAST>([&] { this->stream_.readMax(data, -7); });
  this->pair_.closeServer();
  caught<LAST>([&] { this->stream_.readMax(data, 4); });
  if (kLoggerOutput) {
    EXPECT_THAT(log.texts(nox::debug), ElementsAre("InputStream::readMax: bufSize = -7, n = 0",
                                                   "InputStream::readMax: bufSize = 4, n = 0"));
  } else {
    EXPECT_THAT(log.records(), IsEmpty());
  }
}

TYPED_TEST(ACEInputStreamOn, GivesReadersTheEndAsLast) {
  sendAll(this->pair_.server(), "\xFF");
  this->pair_.closeServer();
  EXPECT_EQ(this->stream_.readChar(), 255);
  EXPECT_TRUE(caught<LAST>([&] { this->stream_.readChar(); }));
}

TYPED_TEST(ACEInputStreamOn, LeavesTheSocketOpen) {
  { const ACEInputStream other(&this->pair_.client(), 65536); }
  sendAll(this->pair_.server(), "ab");
  ACEInputStream copy(this->stream_);
  EXPECT_EQ(read(copy, 1), "a");
  copy = this->stream_;
  EXPECT_EQ(read(copy, 1), "b");
}

TYPED_TEST(ACEInputStreamOn, SetsTheReceiveBufferOnlyWhenGiven) {
  auto& socket = this->pair_.client();
  const int before = optionOf(socket, SOL_SOCKET, SO_RCVBUF);
  const ACEInputStream none(&socket, 0);
  EXPECT_EQ(optionOf(socket, SOL_SOCKET, SO_RCVBUF), before);
  EXPECT_EQ(none.getBufferSize(), 0U);
  EXPECT_EQ(this->stream_.getBufferSize(), 0U);

  const LogCapture log;
  const ACEInputStream some(&socket, 4096);
  // The system makes of it what it likes, but less than before.
  EXPECT_LT(optionOf(socket, SOL_SOCKET, SO_RCVBUF), before);
  EXPECT_EQ(some.getBufferSize(), 4096U);
  EXPECT_THAT(log.records(), IsEmpty());
}

template <class Pair>
class ACEInputStreamThreads : public ACEInputStreamOn<Pair> {};
TYPED_TEST_SUITE(ACEInputStreamThreads, Connections);

TYPED_TEST(ACEInputStreamThreads, ReadOnAfterSignals) {
  sendAll(this->pair_.server(), "a");
  std::atomic<bool> done{false};
  std::string data;
  const Disposition counting(SIGUSR1, countSignal);
  std::thread reader([&] {
    try {
      data = read(this->stream_, 3);
    } catch (LAST* last) {
      delete last;
    }
    done = true;
  });
  interrupt(reader, done);
  sendAll(this->pair_.server(), "b");
  interrupt(reader, done);
  sendAll(this->pair_.server(), "c");
  reader.join();
  EXPECT_EQ(data, "abc");
}

using ACEInputStreamOnPlain = ACEInputStreamOn<PlainPair>;
using ACEInputStreamOnTls = ACEInputStreamOn<TlsPair>;

TEST_F(ACEInputStreamOnPlain, ReadsWhatComesWithinTheTime) {
  char data[10];
  sendAll(pair_.server(), "abc");
  EXPECT_EQ(stream_.readMax(data, 10, 1), 3);
  EXPECT_EQ(std::string(data, 3), "abc");
}

TEST_F(ACEInputStreamOnPlain, TakesNoMoreThanAskedForWithinTheTime) {
  char data[2];
  sendAll(pair_.server(), "abc");
  EXPECT_EQ(stream_.readMax(data, 2, 1), 2);
  EXPECT_EQ(stream_.readMax(data, 0, 1), 0);
  EXPECT_EQ(read(stream_, 1), "c");
}

TEST_F(ACEInputStreamOnPlain, EndsInNoneWhenTheTimeRunsOut) {
  char data[4];
  const LogCapture log;
  EXPECT_TRUE(caught<NONE>([&] { stream_.readMax(data, 4, 1); }));
  if (kLoggerOutput) {
    EXPECT_THAT(log.texts(nox::debug),
                ElementsAre("InputStream::readMax: n == -1 && errno == ETIME"));
  }
}

TEST_F(ACEInputStreamOnPlain, TakesANegativeTimeAsNone) {
  char data[4];
  EXPECT_TRUE(caught<NONE>([&] { stream_.readMax(data, 4, -1); }));
  EXPECT_TRUE(caught<NONE>([&] { stream_.readMax(data, 4, 0); }));
}

TEST_F(ACEInputStreamOnPlain, ReadsNoneWithinTheTimeAfterThePeerClosed) {
  char data[4];
  pair_.closeServer();
  errno = ETIME;  // a stale one must not pass for a time-out
  EXPECT_EQ(stream_.readMax(data, 4, 1), 0);
}

TEST_F(ACEInputStreamOnPlain, WaitsOnANonBlockingSocketToo) {
  pair_.client().enable(ACE_NONBLOCK);
  auto data = std::async(std::launch::async, [&] { return read(stream_, 2); });
  sendAll(pair_.server(), "a");
  sendAll(pair_.server(), "b");
  EXPECT_EQ(data.get(), "ab");
}

TEST_F(ACEInputStreamOnTls, HasNoTimedRead) {
  char data[4];
  sendAll(pair_.server(), "abcd");
  const LogCapture log;
  EXPECT_TRUE(caught<LAST>([&] { stream_.readMax(data, 4, 1); }));
  if (kLoggerOutput) {
    EXPECT_THAT(log.texts(nox::debug), ElementsAre("InputStream::readMax: bufSize = 4, moved = 0"));
  }
  EXPECT_EQ(read(stream_, 4), "abcd");
}

TEST_F(ACEInputStreamOnTls, EndsInLastWhereANonBlockingSocketHasNothing) {
  char data[4];
  pair_.client().enable(ACE_NONBLOCK);
  EXPECT_TRUE(caught<LAST>([&] { stream_.readMax(data, 4); }));
}

TEST_F(ACEInputStreamOnTls, EndsInLastWhereTheSocketsOwnTimeRunsOut) {
  char data[4];
  timeval limit = {0, 1000};
  pair_.client().set_option(SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  EXPECT_TRUE(caught<LAST>([&] { stream_.readMax(data, 4); }));
}

// A read answers the peer's farewell with its own, which is a write.
TEST_F(ACEInputStreamOnTls, RaisesNoSigpipeAtThePeersFarewell) {
  char data[4];
  pair_.closeServer();
  endWriting(pair_.client());
  EXPECT_TRUE(caught<LAST>([&] { stream_.readMax(data, 4); }));
  EXPECT_FALSE(isBlocked(SIGPIPE));
  EXPECT_FALSE(isPending(SIGPIPE));
}

TEST_F(ACEInputStreamOnTls, LeavesAloneASigpipeThatWasPending) {
  char data[4];
  const SigpipeBlocked blocked;
  pthread_kill(pthread_self(), SIGPIPE);
  pair_.closeServer();
  endWriting(pair_.client());
  EXPECT_TRUE(caught<LAST>([&] { stream_.readMax(data, 4); }));
  EXPECT_TRUE(isBlocked(SIGPIPE));
  EXPECT_TRUE(isPending(SIGPIPE));
}

TEST(ACEInputStream, OfNoSocketEndsInLast) {
  char data[4];
  ACEInputStream stream(static_cast<ACE_SOCK_Stream*>(nullptr), 4096);
  EXPECT_TRUE(caught<LAST>([&] { stream.readMax(data, 4); }));
  EXPECT_TRUE(caught<LAST>([&] { stream.readMax(data, 4, 1); }));
}

TEST(ACEInputStream, OfASocketThatFailedEndsInLast) {
  char data[4];
  ACE_SOCK_Stream closed;
  ACEInputStream stream(&closed);
  EXPECT_TRUE(caught<LAST>([&] { stream.readMax(data, 4); }));
  EXPECT_EQ(stream.readMax(data, 4, 1), 0);
}

TEST(ACEInputStream, ReportsAnOptionThatCannotBeSet) {
  const LogCapture log;
  ACE_SOCK_Stream closed;
  const ACEInputStream stream(&closed, 4096);
  ASSERT_EQ(log.records().size(), 1U);
  EXPECT_EQ(log.records()[0].line, "Could not set SO_RCVBUF");
  EXPECT_EQ(log.records()[0].priority, nox::error);
  EXPECT_EQ(log.records()[0].file, "ACEInputStream.cpp");
}

TEST(ACEInputStream, NamesATimeoutOfTenSeconds) {
  EXPECT_EQ(ACEInputStream::MESSAGE_READ_TIMEOUT, ACE_Time_Value(10, 0));
}

}  // namespace
}  // namespace nox::test
