// One connection in the test's own process: clients from elsewhere, and handlers that go wrong.
#include "agent/server/connection.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/session/reply.h"
#include "agent/store/sqlite/sqlite_store.h"
#include "tests/agent/server/scripted_transport.h"
#include "tests/agent/support/agent_in_process.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using nox::test::frameOf;
using noxp::common::EchoRequestProt;
using noxp::common::EchoResponseProt;

const Peer kNear{"127.0.0.1", 4711, true};
const Peer kFar{"192.0.2.7", 4711, false};

std::string login() {
  return frameOf(noxp::AuthenticationRequestProt(new AccountUserCredentialsProt("ann", "", "x")));
}

std::string echo() { return frameOf(EchoRequestProt(3)); }

/// A plain reply to an echo.
void answer(Reply& reply) { reply.send(EchoResponseProt(new NOXPBlob("abc", 3))); }

class ConnectionTest : public testing::Test {
protected:
  /// What a client reads that sends `input`, with `later` after a pause, and then closes.
  std::string serve(const std::string& input, const Peer& peer = kNear, bool tls = false,
                    const std::string& later = {}) {
    if (!agent) agent = std::make_unique<AgentInProcess>(change);
    agent->agent().users.add("ann", "x");
    agent->agent().users.grant("ann", "MAIN", Right::Admin);
    ServerState state(agent->agent(), dispatcher);
    auto transport = std::make_unique<ScriptedTransport>();
    ScriptedTransport& client = *transport;
    client.bytes(input);
    if (!later.empty()) client.tick().bytes(later);
    Connection connection(state, std::move(transport), peer, tls);
    connection.serve();
    sends = client.sends();
    return client.sent();
  }

  /// The same after a login, as what the replies are: "OK", "echo", or an error.
  std::vector<std::string> repliesTo(const std::string& input, const Peer& peer = kNear,
                                     bool tls = false, const std::string& later = {}) {
    const std::string sent = serve(input, peer, tls, later);
    ClientObjectFactory factory;
    MemoryBufferInputStream in(sent.data(), sent.size());
    std::vector<std::string> replies;
    for (std::size_t at = 0; at < sent.size();) {
      const std::unique_ptr<Serializable> reply(BinaryReader(&factory, &in).readRootObject());
      at += reply->getPacketSize() + 4;
      const std::string error = errorOf(*reply);
      texts.push_back(messageOf(*reply));
      if (!error.empty()) {
        replies.push_back(error);
      } else {
        replies.emplace_back(dynamic_cast<EchoResponseProt*>(reply.get()) ? "echo" : "OK");
      }
    }
    return replies;
  }

  /// Lets echoes be answered so.
  void onEcho(void (*handler)(Session&, EchoRequestProt&, Reply&), bool isSql = false) {
    dispatcher.on("Echo", handler).isSql = isSql;
  }

  using Replies = std::vector<std::string>;

  AgentInProcess::Change change;
  std::unique_ptr<AgentInProcess> agent;
  Dispatcher dispatcher;
  std::vector<std::string> texts;  // the messages of the last replies
  int sends = 0;                   // in how many pieces they came
};

TEST_F(ConnectionTest, TakesNoPasswordInPlainTextFromElsewhere) {
  EXPECT_EQ(repliesTo(login(), kFar), Replies{"28/000"});
  EXPECT_NE(texts[0].find("over TLS alone"), std::string::npos);
}

TEST_F(ConnectionTest, TakesPasswordsOverTlsFromElsewhere) {
  EXPECT_EQ(repliesTo(login(), kFar, true), Replies{"OK"});
}

TEST_F(ConnectionTest, TakesPasswordsInPlainTextWhereItIsToldTo) {
  change = [](ConfigurationValues& values) { values.plainLoginEverywhere = true; };
  EXPECT_EQ(repliesTo(login(), kFar), Replies{"OK"});
}

TEST_F(ConnectionTest, ShowsItsPagesToThisMachineAlone) {
  const std::string request = "GET /healthz HTTP/1.1\r\n\r\n";
  EXPECT_EQ(serve(request, kNear).substr(0, 12), "HTTP/1.1 200");
  EXPECT_EQ(serve(request, kFar).substr(0, 12), "HTTP/1.1 403");
  EXPECT_EQ(serve(request, kFar, true).substr(0, 12), "HTTP/1.1 403");
}

TEST_F(ConnectionTest, ShowsItsPagesEverywhereWhereItIsToldTo) {
  change = [](ConfigurationValues& values) { values.httpEverywhere = true; };
  EXPECT_EQ(serve("GET /healthz HTTP/1.1\r\n\r\n", kFar).substr(0, 12), "HTTP/1.1 200");
}

TEST_F(ConnectionTest, SendsTheRepliesToBriefRequestsThatCameTogetherInOnePiece) {
  onEcho([](Session&, EchoRequestProt&, Reply& reply) { answer(reply); });
  EXPECT_EQ(repliesTo(login() + echo() + echo() + echo()), (Replies{"OK", "echo", "echo", "echo"}));
  EXPECT_EQ(sends, 4);
  dispatcher
      .on<EchoRequestProt>("Echo", [](Session&, EchoRequestProt&, Reply& reply) { answer(reply); })
      .brief = Dispatcher::Entry::Brief::Yes;
  EXPECT_EQ(repliesTo(login() + echo() + echo() + echo()), (Replies{"OK", "echo", "echo", "echo"}));
  EXPECT_EQ(sends, 2);
  // What waits for the client keeps nothing back.
  EXPECT_EQ(
      repliesTo(login() + echo() + echo() + echo().substr(0, 6), kNear, false, echo().substr(6)),
      (Replies{"OK", "echo", "echo", "echo"}));
  EXPECT_EQ(sends, 3);
}

TEST_F(ConnectionTest, SendsWhatItGatheredBeforeARequestWaits) {
  static int calls = 0;
  calls = 0;
  dispatcher
      .on<EchoRequestProt>("Echo",
                           [](Session& session, EchoRequestProt&, Reply& reply) {
                             if (++calls == 2) session.beforeWait();
                             answer(reply);
                           })
      .brief = Dispatcher::Entry::Brief::Yes;
  EXPECT_EQ(repliesTo(login() + echo() + echo() + echo()), (Replies{"OK", "echo", "echo", "echo"}));
  EXPECT_EQ(sends, 3);
}

TEST_F(ConnectionTest, SendsWhatItGatheredBeforeARequestThatIsNotBrief) {
  using noxp::remote::DateTimeRequestProt;
  dispatcher
      .on<EchoRequestProt>("Echo", [](Session&, EchoRequestProt&, Reply& reply) { answer(reply); })
      .brief = Dispatcher::Entry::Brief::Yes;
  dispatcher.on<DateTimeRequestProt>(
      "DateTime", [](Session&, DateTimeRequestProt&, Reply& reply) { answer(reply); });
  EXPECT_EQ(repliesTo(login() + echo() + frameOf(DateTimeRequestProt()) + echo()),
            (Replies{"OK", "echo", "echo", "echo"}));
  EXPECT_EQ(sends, 4);
}

TEST_F(ConnectionTest, ShowsOthersWhatARequestHasChangedBeforeItsReplyIsSent) {
  static std::string shown;
  shown.clear();
  onEcho([](Session& session, EchoRequestProt&, Reply& reply) {
    session.settings().clientName = "night batch";
    answer(reply);
    shown = session.agent().sessions.list().at(0).clientName;
  });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "echo"}));
  EXPECT_EQ(shown, "night batch");
}

TEST_F(ConnectionTest, AnswersAHandlerThatFails) {
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw Failure("22", "003", "the reason"); });
  EXPECT_EQ(repliesTo(login() + echo() + echo()), (Replies{"OK", "22/003", "22/003"}));
  EXPECT_NE(texts[1].find(": the reason"), std::string::npos);
}

TEST_F(ConnectionTest, KeepsTheParticularsOfItsOwnFaultsToItself) {
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw std::runtime_error("a secret"); });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "IE/000"}));
  EXPECT_EQ(texts[1].find("secret"), std::string::npos);
}

TEST_F(ConnectionTest, AnswersWhenMemoryRanOut) {
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw std::bad_alloc(); });
  EXPECT_EQ(repliesTo(login() + echo() + echo()), (Replies{"OK", "IE/000", "IE/000"}));
}

TEST_F(ConnectionTest, AnswersWhatTheLibraryThrows) {
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw new UnknownType(7); });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "IE/000"}));
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw new LAST; });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "IE/000"}));
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw SQLExtError("24", "000"); });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "24/000"}));
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw 42; });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "IE/000"}));
}

TEST_F(ConnectionTest, AnswersWhatTheStoreThrows) {
  onEcho([](Session&, EchoRequestProt&, Reply&) {
    throw StoreError(StoreError::Kind::Busy, "somebody writes");
  });
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "IE/024"}));
}

TEST_F(ConnectionTest, AnswersForAHandlerThatForgot) {
  onEcho([](Session&, EchoRequestProt&, Reply&) {});
  EXPECT_EQ(repliesTo(login() + echo()), (Replies{"OK", "IE/000"}));
}

TEST_F(ConnectionTest, SendsOneReplyWhereAHandlerSendsTwo) {
  onEcho([](Session&, EchoRequestProt&, Reply& reply) {
    answer(reply);
    answer(reply);
  });
  EXPECT_EQ(repliesTo(login() + echo() + echo()), (Replies{"OK", "echo", "echo"}));
}

TEST_F(ConnectionTest, SendsOneReplyWhereAHandlerFailsBehindIt) {
  onEcho([](Session&, EchoRequestProt&, Reply& reply) {
    answer(reply);
    throw Failure("22", "003", "too late");
  });
  EXPECT_EQ(repliesTo(login() + echo() + echo()), (Replies{"OK", "echo", "echo"}));
}

TEST_F(ConnectionTest, SendsAnErrorForAReplyThatFitsIntoNoFrame) {
  change = [](ConfigurationValues& values) { values.maxFrame = 64 * 1024; };
  onEcho([](Session&, EchoRequestProt&, Reply& reply) {
    const std::string large(100'000, 'x');
    reply.send(EchoResponseProt(new NOXPBlob(large.data(), large.size())));
  });
  EXPECT_EQ(repliesTo(login() + echo() + echo()), (Replies{"OK", "IE/000", "IE/000"}));
}

TEST_F(ConnectionTest, SendsTheErrorsOfSqlInTheirOwnReply) {
  onEcho([](Session&, EchoRequestProt&, Reply&) { throw Failure("42", "000", "no"); }, true);
  const std::string sent = serve(login() + echo());
  ClientObjectFactory factory;
  MemoryBufferInputStream in(sent.data(), sent.size());
  BinaryReader reader(&factory, &in);
  const std::unique_ptr<Serializable> loggedIn(reader.readRootObject());
  const std::unique_ptr<Serializable> reply(reader.readRootObject());
  const auto* const error = dynamic_cast<noxp::sql::SQLErrorResponseProt*>(reply.get());
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getStatementId(), 0);
}

TEST_F(ConnectionTest, RefusesWhatNobodyHandles) {
  EXPECT_EQ(repliesTo(login() + echo() + echo() + echo() + echo()),
            (Replies{"OK", "0A/000", "0A/000", "0A/000"}));
}

TEST_F(ConnectionTest, CompressesRepliesAsTheSessionWishes) {
  onEcho([](Session& session, EchoRequestProt&, Reply& reply) {
    session.settings().compressThreshold = 1000;
    const std::string text(2000, 'x');
    reply.send(EchoResponseProt(new NOXPBlob(text.data(), text.size())));
  });
  const std::string plain = serve(login() + echo());
  EXPECT_EQ(plain.find("GZIP"), std::string::npos);
  const std::string both = serve(login() + echo() + echo());
  EXPECT_NE(both.find("[GZIP"), std::string::npos);
}

TEST_F(ConnectionTest, KeepsNoSnapshotOfTheStoreWhileItsClientRests) {
  onEcho([](Session& session, EchoRequestProt&, Reply&) {
    auto& store = dynamic_cast<SqliteStore&>(session.agent().stores.open("MAIN"));
    const std::size_t kept = store.connections().snapshots();
    const FilePart file{"F", Part::Data};
    if (!session.store().hasFile(file.file)) session.store().createFile(file.file);
    session.store().exists(file, "1");
    throw Failure("IE", "000", "kept " + std::to_string(kept));
  });
  repliesTo(login() + echo() + echo(), kNear, false, echo());
  ASSERT_EQ(texts.size(), 4u);
  EXPECT_NE(texts[1].find("kept 0"), std::string::npos);
  EXPECT_NE(texts[2].find("kept 1"), std::string::npos);
  EXPECT_NE(texts[3].find("kept 0"), std::string::npos);
}

TEST_F(ConnectionTest, ToldWhyItIsNotServedSaysSo) {
  agent = std::make_unique<AgentInProcess>();
  ServerState state(agent->agent(), dispatcher);
  auto transport = std::make_unique<ScriptedTransport>();
  ScriptedTransport& client = *transport;
  Connection connection(state, std::move(transport), kNear, false);
  connection.dismiss("too many");
  ClientObjectFactory factory;
  const auto reply = nox::test::readAs<ErrorResponseProt>(client.sent(), factory);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(errorOf(*reply), "08/004");
}

}  // namespace
}  // namespace nox::agent::test
