// What is known about a request that failed, and what becomes of its connection.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using test::Environment;
using test::Peer;
using test::PeerConnection;

/// The error of an action; fails the test where there is none.
Error errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error;
  }
  ADD_FAILURE() << "nothing was thrown";
  return Error("00000", "", Outcome::Unknown);
}

class Outcomes : public testing::Test {
protected:
  const Environment empty_;
};

TEST_F(Outcomes, AreRejectedWhereTheServerSaysSo) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.refuse("IE", "008", "Cannot read: PERSON is gone (Status = 0x1f)");
  }));
  Connection connection = Connection::open(peer.uri());
  const Error error = errorOf([&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), "IE008");
  EXPECT_EQ(error.sqlClass(), "IE");
  EXPECT_EQ(error.message(), "Cannot read: PERSON is gone (Status = 0x1f)");
  EXPECT_STREQ(error.what(), "IE008: Cannot read: PERSON is gone (Status = 0x1f)");
  EXPECT_EQ(error.outcome(), Outcome::Rejected);
  EXPECT_EQ(error.status(), 0x1f);
}

TEST_F(Outcomes, LeaveTheConnectionUsableWhereTheServerRefused) {
  bool refused = false;
  Peer peer(test::serving([&refused](PeerConnection& client, Serializable&) {
    if (!std::exchange(refused, true)) {
      client.refuse("IE", "011", "no");
    } else {
      client.send(noxp::remote::DateTimeResponseProt(7, 8));
    }
  }));
  Connection connection = Connection::open(peer.uri());
  EXPECT_THROW(connection.dateTime(), Error);
  EXPECT_TRUE(connection.isUsable());
  EXPECT_EQ(connection.dateTime().day, 7);
}

TEST_F(Outcomes, TakeErrorsOfTheSqlServiceAsWell) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    SQLExtError error("42", "S02", "no such table");
    noxp::sql::SQLErrorResponseProt reply(3, error);
    client.send(reply);
  }));
  Connection connection = Connection::open(peer.uri());
  const Error error = errorOf([&] { connection.update("DELETE FROM NONE"); });
  EXPECT_EQ(error.sqlState(), "42S02");
  EXPECT_EQ(error.outcome(), Outcome::Rejected);
  EXPECT_FALSE(error.status());
}

TEST_F(Outcomes, ReadAnErrorWhateverItsCodeIsMadeOf) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.refuse("TOO LONG", "", "(Status = 0x");
  }));
  Connection connection = Connection::open(peer.uri());
  const Error error = errorOf([&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), "TO???");
  EXPECT_FALSE(error.status());
}

TEST_F(Outcomes, ReadNegativeStatusesAsTheyAreMeant) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.refuse("25", "000", "not now (Status = 0xfffffffa)");
  }));
  Connection connection = Connection::open(peer.uri());
  EXPECT_EQ(errorOf([&] { connection.dateTime(); }).status(), -6);
}

TEST_F(Outcomes, AreUnknownWhereTheConnectionEndsBeforeTheAnswer) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
  });
  Connection connection = Connection::open(peer.uri());
  const Error error = errorOf([&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kConnectionLost);
  EXPECT_EQ(error.outcome(), Outcome::Unknown);
  EXPECT_EQ(error.message(), "the server closed the connection");
}

TEST_F(Outcomes, AreUnknownWhereTheConnectionIsReset) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.reset();
  });
  Connection connection = Connection::open(peer.uri());
  EXPECT_EQ(errorOf([&] { connection.dateTime(); }).outcome(), Outcome::Unknown);
}

TEST_F(Outcomes, MakeTheConnectionSayWhyItIsUnusable) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
  });
  Connection connection = Connection::open(peer.uri());
  EXPECT_THROW(connection.dateTime(), Error);
  EXPECT_FALSE(connection.isUsable());
  EXPECT_EQ(connection.unusableReason(), "the server closed the connection");
  const Error error = errorOf([&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kUnusable);
  EXPECT_EQ(error.outcome(), Outcome::NotSent);
  EXPECT_EQ(error.message(), "the connection is unusable: the server closed the connection");
}

TEST_F(Outcomes, NeverLeadToASecondRequest) {
  std::atomic<int> requests{0};
  Peer peer([&requests](PeerConnection& client) {
    client.welcome();
    if (client.receive()) ++requests;
  });
  {
    Connection connection = Connection::open(peer.uri());
    EXPECT_THROW(connection.dateTime(), Error);
    EXPECT_THROW(connection.dateTime(), Error);
  }
  EXPECT_EQ(requests, 1);
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Outcomes, AreNotSentWhereTheArgumentCannotTravel) {
  std::atomic<int> requests{0};
  Peer peer(test::serving([&requests](PeerConnection& client, Serializable&) {
    ++requests;
    client.send(OKResponseProt());
  }));
  Connection connection = Connection::open(peer.uri());
  const std::string nul("a\0b", 3);
  const std::string longText(65536, 'x');
  for (const std::string& text : {nul, longText}) {
    const Error error = errorOf([&] { connection.file(text); });
    EXPECT_EQ(error.sqlState(), sqlstate::kBadArgument);
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
    EXPECT_EQ(errorOf([&] { connection.prepare(text); }).outcome(), Outcome::NotSent);
    EXPECT_EQ(errorOf([&] { connection.convertOutput(text, "D"); }).outcome(), Outcome::NotSent);
    EXPECT_EQ(errorOf([&] { connection.setProperty("KEY", text); }).outcome(), Outcome::NotSent);
  }
  EXPECT_EQ(errorOf([&] { connection.file(longText); }).message(),
            "the file's name has 65536 bytes; 65535 can travel");
  EXPECT_TRUE(connection.isUsable());
  EXPECT_EQ(requests, 0);
}

TEST_F(Outcomes, AreNotSentOnceTheServerHasClosedAnIdleConnection) {
  Peer peer([](PeerConnection& client) { client.welcome(); });
  Connection connection = Connection::open(peer.uri());
  while (connection.isAlive()) {
  }
  const Error error = errorOf([&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kUnusable);
  EXPECT_EQ(error.outcome(), Outcome::NotSent);
  EXPECT_EQ(connection.unusableReason(), "the server has closed the connection");
}

TEST_F(Outcomes, RepeatWhatTheServerSaidBeforeItClosed) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.refuse("IE", "000", "the server is going down");
  });
  Connection connection = Connection::open(peer.uri());
  while (connection.isAlive()) {
  }
  EXPECT_EQ(connection.unusableReason(), "the server is going down");
}

TEST_F(Outcomes, AreUnknownWhereTheAnswerIsOfAnotherKind) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::SwitchAccountResponseProt(0));
  }));
  Connection connection = Connection::open(peer.uri());
  const Error error = errorOf([&] { connection.dateTime(); });
  EXPECT_EQ(error.sqlState(), sqlstate::kOutOfStep);
  EXPECT_EQ(error.outcome(), Outcome::Unknown);
  EXPECT_EQ(error.message(), "the answer to DateTime is of the wrong kind: SwitchAccount");
  EXPECT_FALSE(connection.isUsable());
}

TEST_F(Outcomes, AreUnknownForAStatusThatHasNoMeaning) {
  Peer peer(test::serving([](PeerConnection& client, Serializable& request) {
    if (dynamic_cast<noxp::remote::OpenFileRequestProt*>(&request)) {
      client.send(OKResponseProt());
    } else {
      client.send(noxp::remote::ToviResponseProt(17, nullptr, nullptr));
    }
  }));
  Connection connection = Connection::open(peer.uri());
  File file = connection.file("F");
  EXPECT_EQ(errorOf([&] { file.exists("1"); }).outcome(), Outcome::Unknown);
  EXPECT_FALSE(connection.isUsable());
}

TEST_F(Outcomes, AreRejectedForALoginThatIsRefused) {
  Peer peer([](PeerConnection& client) {
    client.receiveA<noxp::AuthenticationRequestProt>();
    client.refuse("28", "000", "the password is wrong");
  });
  Peer other(test::serving([](PeerConnection&, Serializable&) {}));
  const std::string uri = "nox://ann@127.0.0.1:" + std::to_string(peer.port()) +
                          ",127.0.0.1:" + std::to_string(other.port()) + "?tls=off";
  const Error error = errorOf([&] { Connection::open(uri); });
  EXPECT_EQ(error.sqlState(), "28000");
  EXPECT_EQ(error.outcome(), Outcome::Rejected);
  EXPECT_EQ(other.connections(), 0) << "a refused login is not tried elsewhere";
}

TEST_F(Outcomes, AreRejectedWhereTheServerRefusesBeforeTheLogin) {
  Peer peer([](PeerConnection& client) {
    client.refuse("08", "004", "too many connections");
    client.receive();
  });
  const Error error = errorOf([&] { Connection::open(peer.uri()); });
  EXPECT_EQ(error.sqlState(), "08004");
  EXPECT_EQ(error.message(), "too many connections");
}

std::string hostsOf(std::initializer_list<std::uint16_t> ports) {
  std::string uri = "nox://ann@";
  for (const std::uint16_t port : ports) {
    if (uri.back() != '@') uri += ',';
    uri += "127.0.0.1:" + std::to_string(port);
  }
  return uri + "?tls=off";
}

TEST_F(Outcomes, AreThoseOfTheNextHostWhereOneIsFull) {
  for (const bool hearsTheLogin : {false, true}) {
    Peer full([hearsTheLogin](PeerConnection& client) {
      if (hearsTheLogin) client.receive();
      client.refuse("08", "004", "too many connections");
      client.waitForEnd();
    });
    Peer other(test::serving([](PeerConnection&, Serializable&) {}));
    const Connection connection = Connection::open(hostsOf({full.port(), other.port()}));
    EXPECT_EQ(connection.host().port, other.port());
    EXPECT_EQ(full.connections(), 1);
  }
}

TEST_F(Outcomes, AreThoseOfTheLastHostWhereEachIsFullOrGone) {
  Peer full([](PeerConnection& client) {
    client.receive();
    client.refuse("08", "004", "too many connections");
  });
  const std::uint16_t gone = test::refusedPort();
  const std::string atFull = "127.0.0.1:" + std::to_string(full.port());
  const std::string atGone = "127.0.0.1:" + std::to_string(gone);
  const Error refused = errorOf([&] { Connection::open(hostsOf({gone, full.port()})); });
  EXPECT_EQ(refused.sqlState(), "08004");
  EXPECT_EQ(refused.outcome(), Outcome::Rejected);
  EXPECT_EQ(refused.message(), "cannot connect to " + atGone + ": Connection refused; " + atFull +
                                   ": too many connections");
  const Error unreachable = errorOf([&] { Connection::open(hostsOf({full.port(), gone})); });
  EXPECT_EQ(unreachable.sqlState(), sqlstate::kCannotConnect);
  EXPECT_EQ(unreachable.outcome(), Outcome::NotSent);
}

TEST_F(Outcomes, AreNotSentForAClosedConnection) {
  Peer peer(
      test::serving([](PeerConnection& client, Serializable&) { client.send(OKResponseProt()); }));
  Connection connection = Connection::open(peer.uri());
  File file = connection.file("F");
  connection.close();
  EXPECT_FALSE(connection.isUsable());
  EXPECT_EQ(connection.unusableReason(), "it was closed");
  EXPECT_EQ(errorOf([&] { connection.dateTime(); }).outcome(), Outcome::NotSent);
  EXPECT_EQ(errorOf([&] { file.exists("1"); }).sqlState(), sqlstate::kUnusable);
  connection.close();
}

TEST_F(Outcomes, AreCopiedWithTheirErrors) {
  const Error error("IE008", "text", Outcome::Rejected, 5);
  const Error copy = error;
  EXPECT_EQ(copy.sqlState(), "IE008");
  EXPECT_EQ(copy.status(), 5);
  EXPECT_STREQ(nameOf(copy.outcome()), "Rejected");
}

}  // namespace
}  // namespace nox::client
