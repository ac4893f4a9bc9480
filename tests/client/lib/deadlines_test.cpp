// One deadline for connecting, one for each request, and none that starts again with a byte.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using std::chrono::milliseconds;
using test::Environment;
using test::Peer;
using test::PeerConnection;

constexpr milliseconds kPace{150};

// What a deadline may be overrun by, on a machine that does other things, too.
constexpr milliseconds kTolerance{2000};

/// Runs `action`, which must fail within its deadline and the tolerance.
Error failsWithin(milliseconds deadline, const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  try {
    action();
  } catch (const Error& error) {
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took + milliseconds(5), deadline) << "given up too early";
    EXPECT_LT(took, deadline + kTolerance);
    return error;
  }
  ADD_FAILURE() << "nothing was thrown";
  return Error("00000", "", Outcome::Unknown);
}

class Deadlines : public testing::Test {
protected:
  const Environment empty_;
};

TEST_F(Deadlines, EndAnAnswerThatComesByteByByte) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.sendSlowly(PeerConnection::frameOf(noxp::remote::DateTimeResponseProt(1, 2)), kPace);
  });
  Connection connection = Connection::open(peer.uri("request_timeout=700ms"));
  const Error error = failsWithin(milliseconds(700), [&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kTimeout);
  EXPECT_EQ(error.outcome(), Outcome::Unknown);
  EXPECT_FALSE(connection.isUsable());
}

TEST_F(Deadlines, EndALoginThatIsAnsweredByteByByte) {
  Peer peer([](PeerConnection& client) {
    client.receive();
    client.sendSlowly(PeerConnection::frameOf(OKResponseProt()), kPace);
  });
  const Error error =
      failsWithin(milliseconds(700), [&] { Connection::open(peer.uri("connect_timeout=700ms")); });
  EXPECT_EQ(error.sqlState(), sqlstate::kConnectTimeout);
  EXPECT_EQ(error.outcome(), Outcome::NotSent);
}

TEST_F(Deadlines, EndAHugeAnswerThatTricklesIn) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    // A head that promises 8 MiB, and a body that comes for ever.
    std::string bytes("\x00\x80\x00\x00[L", 6);
    bytes.append(10'000, 'x');
    client.sendSlowly(bytes, milliseconds(20));
  });
  Connection connection = Connection::open(peer.uri("request_timeout=500ms"));
  const Error error = failsWithin(milliseconds(500), [&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kTimeout);
}

TEST_F(Deadlines, EndASilence) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.waitForClient();
  });
  Connection connection = Connection::open(peer.uri());
  connection.setRequestTimeout(milliseconds(300));
  const Error error = failsWithin(milliseconds(300), [&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kTimeout);
  EXPECT_EQ(error.message(), "no answer in time");
  EXPECT_EQ(error.outcome(), Outcome::Unknown);
}

TEST_F(Deadlines, EndARequestThatNobodyTakes) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.waitForEnd();
  });
  Connection connection = Connection::open(peer.uri("request_timeout=500ms"));
  const std::string large(64u * 1024 * 1024, 'x');
  const Error error = failsWithin(milliseconds(500), [&] { connection.echo(large); });
  EXPECT_EQ(error.sqlState(), sqlstate::kTimeout);
  EXPECT_EQ(error.message(), "the request could not be sent in time");
  EXPECT_EQ(error.outcome(), Outcome::Unknown);
}

TEST_F(Deadlines, EndARequestThatIsTakenLittleByLittle) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receiveSlowly(100'000, milliseconds(10));
  });
  Connection connection = Connection::open(peer.uri("request_timeout=500ms"));
  const std::string large(64u * 1024 * 1024, 'x');
  const Error error = failsWithin(milliseconds(500), [&] { connection.echo(large); });
  EXPECT_EQ(error.sqlState(), sqlstate::kTimeout);
  EXPECT_EQ(error.outcome(), Outcome::Unknown);
}

TEST_F(Deadlines, EndAConnectionThatIsNeverMade) {
  const test::BlackHole hole;
  const Error error = failsWithin(milliseconds(500), [&] {
    Connection::open("nox://ann@127.0.0.1:" + std::to_string(hole.port()) +
                     "?tls=off&connect_timeout=500ms");
  });
  EXPECT_EQ(error.sqlState(), sqlstate::kConnectTimeout);
  EXPECT_EQ(error.outcome(), Outcome::NotSent);
  EXPECT_EQ(error.message(),
            "cannot connect to 127.0.0.1:" + std::to_string(hole.port()) + ": no answer in time");
}

TEST_F(Deadlines, EndALoginThatIsNeverAnswered) {
  Peer peer([](PeerConnection& client) {
    client.receive();
    client.waitForClient();
  });
  const Error error =
      failsWithin(milliseconds(300), [&] { Connection::open(peer.uri("connect_timeout=300ms")); });
  EXPECT_EQ(error.sqlState(), sqlstate::kConnectTimeout);
}

TEST_F(Deadlines, EndAHandshakeThatIsNeverAnswered) {
  Peer peer([](PeerConnection& client) { client.waitForEnd(); });
  const Error error = failsWithin(milliseconds(300), [&] {
    Connection::open("nox://ann@127.0.0.1:" + std::to_string(peer.port()) +
                     "?connect_timeout=300ms");
  });
  EXPECT_EQ(error.sqlState(), sqlstate::kConnectTimeout);
  EXPECT_NE(error.message().find("no TLS handshake in time"), std::string::npos) << error.message();
}

TEST_F(Deadlines, AreNotWaitedForWhereTheConnectionIsRefused) {
  const std::string where = "127.0.0.1:" + std::to_string(test::refusedPort());
  const auto begin = std::chrono::steady_clock::now();
  try {
    Connection::open("nox://ann@" + where + "?tls=off&connect_timeout=1m");
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kCannotConnect);
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
    EXPECT_EQ(error.message(), "cannot connect to " + where + ": Connection refused");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kTolerance);
}

TEST_F(Deadlines, AreSharedByTheHostsThatAreTriedInTurn) {
  const test::BlackHole hole;
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(7, 8));
  }));
  const std::string uri = "nox://ann@127.0.0.1:" + std::to_string(test::refusedPort()) +
                          ",127.0.0.1:" + std::to_string(hole.port()) +
                          ",127.0.0.1:" + std::to_string(peer.port()) +
                          "/MAIN?tls=off&connect_timeout=2s";
  const auto begin = std::chrono::steady_clock::now();
  Connection connection = Connection::open(uri);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(2000));
  EXPECT_EQ(connection.host().port, peer.port());
  EXPECT_EQ(connection.dateTime().day, 7);
}

TEST_F(Deadlines, NameEveryHostThatFailed) {
  const std::string first = "127.0.0.1:" + std::to_string(test::refusedPort());
  const std::string second = "127.0.0.1:" + std::to_string(test::refusedPort());
  try {
    Connection::open("nox://ann@" + first + "," + second + "?tls=off");
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.message(), "cannot connect to " + first + ": Connection refused; " + second +
                                   ": Connection refused");
  }
}

TEST_F(Deadlines, AreNotBlamedWhereTheLastHostRefusesInTime) {
  const test::BlackHole hole;
  const std::string silent = "127.0.0.1:" + std::to_string(hole.port());
  const std::string refusing = "127.0.0.1:" + std::to_string(test::refusedPort());
  try {
    Connection::open("nox://ann@" + silent + "," + refusing + "?tls=off&connect_timeout=600ms");
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kCannotConnect);
    EXPECT_EQ(error.message(), "cannot connect to " + silent +
                                   ": no answer in time, which was its share of the time; " +
                                   refusing + ": Connection refused");
  }
}

TEST_F(Deadlines, AreNotWaitedForWhereANameCannotBe) {
  // A label has at most 63 characters: no name server is asked.
  const std::string name(64, 'x');
  const auto begin = std::chrono::steady_clock::now();
  try {
    Connection::open("nox://ann@" + name + "?tls=off&connect_timeout=1m");
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kCannotConnect);
    EXPECT_EQ(error.message().rfind("cannot connect to " + name + ":7433: ", 0), 0u)
        << error.message();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kTolerance);
}

TEST_F(Deadlines, CoverNamesAsWell) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(7, 8));
  }));
  Connection connection = Connection::open("nox://ann@localhost:" + std::to_string(peer.port()) +
                                           "?tls=off&connect_timeout=20s");
  EXPECT_EQ(connection.host().name, "localhost");
  EXPECT_EQ(connection.dateTime().day, 7);
}

TEST_F(Deadlines, MayBeNone) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.sendSlowly(PeerConnection::frameOf(noxp::remote::DateTimeResponseProt(7, 8)),
                      milliseconds(5));
  });
  Connection connection = Connection::open(peer.uri("request_timeout=0s&connect_timeout=0s"));
  EXPECT_EQ(connection.dateTime().second, 8);
}

TEST_F(Deadlines, AreNoneWhereTheyAreBeyondTheClock) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(7, 8));
  }));
  Options options = Options::fromUri(peer.uri());
  options.connectTimeout = milliseconds::max();
  options.requestTimeout = milliseconds::max();
  Connection connection = Connection::open(options);
  EXPECT_EQ(connection.dateTime().day, 7);
  connection.setRequestTimeout(std::chrono::hours(24 * 365 * 300));
  EXPECT_EQ(connection.dateTime().day, 7);
}

TEST_F(Deadlines, AreNotNegative) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(7, 8));
  }));
  const auto refused = [](const std::function<void()>& action) -> std::string {
    try {
      action();
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
      return error.message();
    }
    return "done";
  };
  Connection connection = Connection::open(peer.uri());
  connection.setRequestTimeout(milliseconds(0));
  EXPECT_EQ(refused([&] { connection.setRequestTimeout(milliseconds(-5)); }),
            "a request's timeout is negative");
  EXPECT_EQ(connection.requestTimeout(), milliseconds(0)) << "as it was";
  EXPECT_EQ(connection.dateTime().day, 7);
  Options options = Options::fromUri(peer.uri());
  options.requestTimeout = milliseconds(-1);
  EXPECT_EQ(refused([&] { Connection::open(options); }), "request_timeout is negative");
  options = Options::fromUri(peer.uri());
  options.connectTimeout = milliseconds(-1);
  EXPECT_EQ(refused([&] { Connection::open(options); }), "connect_timeout is negative");
}

TEST_F(Deadlines, StartAnewWithEachRequest) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.sendSlowly(PeerConnection::frameOf(noxp::remote::DateTimeResponseProt(7, 8)),
                      milliseconds(10));
  }));
  // Three requests take longer together than one may take.
  Connection connection = Connection::open(peer.uri("request_timeout=1500ms"));
  const auto begin = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - begin < milliseconds(1800)) {
    EXPECT_EQ(connection.dateTime().day, 7);
  }
}

}  // namespace
}  // namespace nox::client
