// Many requests at once, each with an outcome of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "nox/client/batch.h"
#include "nox/client/statement.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using noxp::remote::ToviResponseProt;
using test::Environment;
using test::Peer;
using test::PeerConnection;
using testing::ElementsAre;
using testing::IsEmpty;

class Batches : public test::RecordedSession {};

TEST_F(Batches, GiveEachRequestItsOutcome) {
  Batch batch(connection_);
  EXPECT_EQ(batch.write("F", "1", Record{"a"}), 0u);
  EXPECT_EQ(batch.writeNew("F", "2", Record{"b"}), 1u);
  EXPECT_EQ(batch.read("F", "3"), 2u);
  EXPECT_EQ(batch.read("F", "4", Lock::Update, Wait::No), 3u);
  EXPECT_EQ(batch.remove("F", "5"), 4u);
  EXPECT_EQ(batch.exists("F", "6"), 5u);
  EXPECT_EQ(batch.release("F", "7"), 6u);
  EXPECT_EQ(batch.size(), 7u);
  EXPECT_GT(batch.bytes(), 7u * 20);

  reply<ToviResponseProt>(0, nullptr, nullptr);
  reply<ToviResponseProt>(1, nullptr, nullptr);
  reply<ToviResponseProt>(0, new NOXPBlob("record"), nullptr);
  reply<ToviResponseProt>(2, nullptr, nullptr);
  reply<ErrorResponseProt>(SQLExtError("42", "000", "not allowed"));
  reply<ToviResponseProt>(1, nullptr, nullptr);
  const std::vector<Batch::Result> results = batch.run();

  ASSERT_EQ(results.size(), 7u);
  EXPECT_TRUE(results[0].ok());
  EXPECT_EQ(results[1].status, Status::NotDone);
  EXPECT_FALSE(results[1].error);
  EXPECT_EQ(results[2].record, Record{"record"});
  EXPECT_EQ(results[3].status, Status::Locked);
  ASSERT_TRUE(results[4].error);
  EXPECT_EQ(results[4].error->sqlState(), "42000");
  EXPECT_EQ(results[4].error->outcome(), Outcome::Rejected);
  EXPECT_FALSE(results[4].ok());
  EXPECT_EQ(results[5].status, Status::NotDone);
  EXPECT_TRUE(results[6].ok());
  EXPECT_THAT(asked(), ElementsAre("Write 0 F/1=a", "Write 2 F/2=b", "Read 0 F/3", "Read 6 F/4",
                                   "Delete F/5", "Exists F/6", "Release 0 F/7"));
}

TEST_F(Batches, AreEmptyAfterTheyRan) {
  Batch batch(connection_);
  reply<ToviResponseProt>(0, nullptr, nullptr);
  batch.remove("F", "1");
  batch.run();
  EXPECT_EQ(batch.size(), 0u);
  EXPECT_EQ(batch.bytes(), 0u);
  EXPECT_THAT(batch.run(), IsEmpty());
  EXPECT_EQ(asked().size(), 1u);
}

TEST_F(Batches, DropWhatTheyHaveGathered) {
  Batch batch(connection_);
  batch.remove("F", "1");
  batch.clear();
  EXPECT_THAT(batch.run(), IsEmpty());
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(Batches, TakeNothingThatCannotTravel) {
  Batch batch(connection_);
  EXPECT_THROW(batch.remove("F", std::string_view("a\0b", 3)), Error);
  EXPECT_EQ(batch.size(), 0u);
}

TEST_F(Batches, PassOverAnswersThatNobodyWaitedFor) {
  { File closing = connection_.file("F"); }
  Batch batch(connection_);
  batch.exists("F", "1");
  reply<ToviResponseProt>(1, nullptr, nullptr);
  const std::vector<Batch::Result> results = batch.run();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_FALSE(results[0].error);
}

TEST_F(Batches, RunStatementsWithValuesOfTheirOwn) {
  reply<noxp::sql::SQLOKResponseProt>(3);
  Statement insert = connection_.prepare("INSERT INTO T VALUES (?)");
  noxp::sql::ResultSetMetaDataProt data;
  data.setClassVersion(2);
  data.addParameter(new noxp::sql::ColumnMetaDataProt);
  replyBytes(PeerConnection::frameOf(noxp::sql::SQLRSMDResponseProt(3, &data)));
  Batch batch(connection_);
  EXPECT_EQ(batch.update(insert, {"a"}), 0u);
  EXPECT_EQ(batch.update(insert, {"b"}), 1u);
  EXPECT_THROW(batch.update(insert, {"c", "d"}), Error);
  EXPECT_EQ(batch.size(), 2u);
  reply<noxp::sql::SQLOKResponseProt>(3);
  reply<noxp::sql::SQLUpdateResponseProt>(3, 1);
  reply<noxp::sql::SQLOKResponseProt>(3);
  reply<noxp::sql::SQLErrorResponseProt>(3, SQLExtError("23", "000", "duplicate"));
  const std::vector<Batch::Result> results = batch.run();
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0].changes, 1);
  ASSERT_TRUE(results[1].error);
  EXPECT_EQ(results[1].error->sqlState(), "23000");
  EXPECT_THAT(asked(), ElementsAre("Compile INSERT INTO T VALUES (?)", "MetaData 3", "Bind 3 12:a",
                                   "Execute 3", "Bind 3 12:b", "Execute 3"));
}

TEST_F(Batches, TakeNoStatementOfAnotherConnection) {
  // Both servers call their statement 3.
  Peer peer(test::serving(
      [](PeerConnection& client, Serializable&) { client.send(noxp::sql::SQLOKResponseProt(3)); }));
  Connection other = Connection::open(peer.uri());
  Statement foreign = other.prepare("DELETE FROM U");
  reply<noxp::sql::SQLOKResponseProt>(3);
  Statement own = connection_.prepare("DELETE FROM T");
  Batch batch(connection_);
  try {
    batch.update(foreign, {});
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kBadArgument);
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
    EXPECT_EQ(error.message(), "the statement belongs to another connection");
  }
  own.close();
  try {
    batch.update(own, {});
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kUnusable) << "it was closed";
  }
  EXPECT_EQ(batch.size(), 0u);
}

TEST_F(Batches, MakeTheConnectionUnusableWhereAnAnswerIsOfTheWrongKind) {
  Batch batch(connection_);
  batch.exists("F", "1");
  reply<noxp::remote::DateTimeResponseProt>(1, 2);
  const std::vector<Batch::Result> results = batch.run();
  ASSERT_TRUE(results[0].error);
  EXPECT_EQ(results[0].error->outcome(), Outcome::Unknown);
  EXPECT_FALSE(connection_.isUsable());
  EXPECT_THROW(batch.run(), Error);
}

class LostBatches : public testing::Test {
protected:
  const Environment empty_;
};

TEST_F(LostBatches, SayWhatWasAnsweredAndWhatIsUnknown) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    for (int i = 0; i < 3; ++i) {
      client.receive();
      client.send(ToviResponseProt(0, nullptr, nullptr));
    }
    client.receive();
  });
  Connection connection = Connection::open(peer.uri());
  Batch batch(connection);
  for (int i = 0; i < 5; ++i) batch.remove("F", std::to_string(i));
  const std::vector<Batch::Result> results = batch.run();
  ASSERT_EQ(results.size(), 5u);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(results[static_cast<std::size_t>(i)].ok());
  for (std::size_t i = 3; i < 5; ++i) {
    ASSERT_TRUE(results[i].error);
    EXPECT_EQ(results[i].error->outcome(), Outcome::Unknown);
    EXPECT_EQ(results[i].error->sqlState(), sqlstate::kConnectionLost);
  }
  EXPECT_FALSE(connection.isUsable());
}

TEST_F(LostBatches, SayWhatWasNotSent) {
  // The peer takes one request and reads no more; what the system's buffers do not take stays here.
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.send(ToviResponseProt(0, nullptr, nullptr));
    client.reset();
  });
  Connection connection = Connection::open(peer.uri());
  Batch batch(connection);
  const Record large(std::string(1u << 20, 'x'));
  for (int i = 0; i < 64; ++i) batch.write("F", std::to_string(i), large);
  const std::vector<Batch::Result> results = batch.run();
  ASSERT_EQ(results.size(), 64u);
  ASSERT_TRUE(results.back().error);
  EXPECT_EQ(results.back().error->outcome(), Outcome::NotSent);
  EXPECT_EQ(results.back().error->sqlState(), sqlstate::kConnectionLost);
  // First those that were answered, then those in doubt, then those that never left.
  int phase = 0;
  for (const Batch::Result& result : results) {
    const int now = !result.error ? 0 : result.error->outcome() == Outcome::Unknown ? 1 : 2;
    EXPECT_GE(now, phase);
    phase = now;
  }
}

TEST_F(LostBatches, DoNotBlockWhereAnswersAreAsLargeAsRequests) {
  // A server that answers before it takes more: neither side may wait for the other.
  Peer peer(test::serving([](PeerConnection& client, Serializable& request) {
    auto& write = dynamic_cast<noxp::remote::WriteRecordRequestProt&>(request);
    client.send(ToviResponseProt(0, new NOXPBlob(*write.getRecord()), nullptr));
  }));
  Connection connection = Connection::open(peer.uri("request_timeout=60s"));
  Batch batch(connection);
  for (int i = 0; i < 200; ++i) {
    batch.write("F", "1", Record(std::string(200'000, static_cast<char>('a' + i % 26))));
  }
  const std::vector<Batch::Result> results = batch.run();
  ASSERT_EQ(results.size(), 200u);
  for (std::size_t i = 0; i < results.size(); ++i) {
    ASSERT_TRUE(results[i].ok()) << i << ": " << results[i].error->what();
    EXPECT_EQ(results[i].record.bytes().size(), 200'000u);
    EXPECT_EQ(results[i].record.bytes()[0], static_cast<char>('a' + i % 26));
  }
}

TEST_F(LostBatches, EndAtTheDeadlineOfTheRequestThatIsNotAnswered) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.send(ToviResponseProt(0, nullptr, nullptr));
    client.receive();
    client.sendSlowly(PeerConnection::frameOf(ToviResponseProt(0, nullptr, nullptr)),
                      std::chrono::milliseconds(150));
  });
  Connection connection = Connection::open(peer.uri("request_timeout=600ms"));
  Batch batch(connection);
  for (int i = 0; i < 3; ++i) batch.remove("F", std::to_string(i));
  const auto begin = std::chrono::steady_clock::now();
  const std::vector<Batch::Result> results = batch.run();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_TRUE(results[0].ok());
  ASSERT_TRUE(results[1].error);
  EXPECT_EQ(results[1].error->sqlState(), sqlstate::kTimeout);
}

}  // namespace
}  // namespace nox::client
