// What the trace file and the observer show, and what they never show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "nox/client/batch.h"
#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"
#include "tests/client/support/scratch.h"

namespace nox::client {
namespace {

using noxp::remote::ToviResponseProt;
using test::Environment;
using test::Peer;
using test::PeerConnection;
using test::Scratch;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kSecret = "Sesame-open";

std::string hexOf(const std::string& text) {
  std::ostringstream hex;
  hex << std::hex;
  for (const char c : text) hex << (static_cast<unsigned>(c) >> 4 & 0xF) << (c & 0xF);
  return hex.str();
}

std::vector<std::string> linesOf(const std::string& file) {
  std::istringstream in(test::contentOf(file));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class Trace : public testing::Test {
protected:
  Options options(bool payload) {
    Options made = Options::fromUri(peer_.uri());
    made.password = kSecret;
    made.traceFile = file_;
    made.tracePayload = payload;
    return made;
  }
  /// Logs in and reads a record.
  void talk(const Options& with) {
    Connection connection = Connection::open(with);
    EXPECT_TRUE(connection.file("F").read("some id"));
  }

  const Environment empty_;
  const Scratch scratch_;
  const std::string file_ = scratch_.file("trace");
  Peer peer_{test::serving([](PeerConnection& client, Serializable& request) {
    if (request.getType() == TypeCode::ReadRecordRequest) {
      client.send(ToviResponseProt(0, new NOXPBlob("some record"), nullptr));
    } else if (request.getType() == TypeCode::SwitchAccountRequest) {
      client.send(noxp::remote::SwitchAccountResponseProt(0));
    } else {
      client.send(OKResponseProt());
    }
  })};
};

TEST_F(Trace, HasALinePerFrame) {
  talk(options(false));
  const std::vector<std::string> lines = linesOf(file_);
  const std::regex pattern(
      R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \d+\.\d+ ([<>]) (\w+) type=(\d+) bytes=(\d+) payload=\*\*\*)");
  std::vector<std::string> seen;
  for (const std::string& line : lines) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, pattern)) << line;
    seen.push_back(match[1].str() + match[2].str() + match[3].str());
    EXPECT_GT(std::stoi(match[4].str()), 10);
  }
  EXPECT_THAT(seen, testing::ElementsAre(">Authentication15", "<OK503", ">OpenFile205", "<OK503",
                                         ">ReadRecord201", "<Tovi301", ">CloseFile206"));
}

TEST_F(Trace, MasksWhatFramesSay) {
  talk(options(false));
  const std::string all = test::contentOf(file_);
  for (const char* const text : {"some id", "some record", kSecret, "ann"}) {
    EXPECT_THAT(all, Not(HasSubstr(text)));
    EXPECT_THAT(all, Not(HasSubstr(hexOf(text))));
  }
}

TEST_F(Trace, ShowsWhatFramesSayWhereItIsAsked) {
  talk(options(true));
  const std::string all = test::contentOf(file_);
  EXPECT_THAT(all, HasSubstr(hexOf("some id")));
  EXPECT_THAT(all, HasSubstr(hexOf("some record")));
  EXPECT_THAT(all, HasSubstr("payload=5b4c49")) << "a body from its '[' on";
}

TEST_F(Trace, NeverShowsAPassword) {
  {
    Connection connection = Connection::open(options(true));
    EXPECT_TRUE(connection.switchAccount("ann", "OTHER", kSecret));
  }
  const std::string all = test::contentOf(file_);
  EXPECT_THAT(all, Not(HasSubstr(kSecret)));
  EXPECT_THAT(all, Not(HasSubstr(hexOf(kSecret))));
  EXPECT_THAT(all, HasSubstr("SwitchAccount type=224"));
}

TEST_F(Trace, NeverShowsAHiddenAnswer) {
  Peer asking(test::serving([](PeerConnection& client, Serializable& request) {
    NOXPBlob prompt("Password?");
    NOXPBlob none("");
    if (request.getType() == TypeCode::RemoteExecuteRequest) {
      client.send(noxp::InputOutputResponseProt(2, &prompt));
    } else {
      client.send(noxp::remote::ExecuteResponseProt(&none, &none, nullptr));
    }
  }));
  Options traced = options(true);
  traced.hosts[0].port = asking.port();
  {
    Connection connection = Connection::open(traced);
    Conversation talk = connection.converse("LOGTO");
    talk.answer(kSecret);
  }
  const std::string all = test::contentOf(file_);
  EXPECT_THAT(all, HasSubstr("RemoteInput type=210"));
  EXPECT_THAT(all, Not(HasSubstr(hexOf(kSecret))));
}

TEST_F(Trace, IsTurnedOnByTheEnvironment) {
  const Environment environment(Environment::Variables{{"NOX_TRACE", file_}});
  talk(Options::fromUri(peer_.uri()));
  EXPECT_FALSE(linesOf(file_).empty());
}

TEST_F(Trace, IsAppendedToAFileOfItsOwner) {
  talk(options(false));
  const std::size_t once = linesOf(file_).size();
  talk(options(false));
  EXPECT_EQ(linesOf(file_).size(), 2 * once);
  struct stat status {};
  ASSERT_EQ(::stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(Trace, FailsWhereItsFileCannotBeOpened) {
  Options traced = options(false);
  traced.traceFile = scratch_.file("none/trace");
  try {
    Connection::open(traced);
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
    EXPECT_THAT(error.message(), HasSubstr("cannot be opened: No such file or directory"));
  }
}

TEST_F(Trace, ShowsTheFramesOfABatch) {
  {
    Connection connection = Connection::open(options(true));
    Batch batch(connection);
    batch.read("F", "first");
    batch.read("F", "second");
    batch.run();
  }
  const std::string all = test::contentOf(file_);
  EXPECT_THAT(all, HasSubstr(hexOf("first")));
  EXPECT_THAT(all, HasSubstr(hexOf("second")));
  EXPECT_THAT(all, HasSubstr(hexOf("some record")));
}

// --- observers -----------------------------------------------------------------------------------

struct Seen {
  std::string request;
  int type;
  std::uint64_t sent;
  std::uint64_t received;
  std::string state;
  Outcome outcome;
};

class Observers : public testing::Test {
protected:
  Options options(const Peer& peer) {
    Options made = Options::fromUri(peer.uri());
    made.observer = [this](const Exchange& exchange) {
      EXPECT_GE(exchange.duration.count(), 0);
      seen_.push_back({std::string(exchange.request), exchange.type, exchange.bytesSent,
                       exchange.bytesReceived, std::string(exchange.sqlState), exchange.outcome});
    };
    return made;
  }

  const Environment empty_;
  std::vector<Seen> seen_;
};

TEST_F(Observers, AreToldOfEachRequest) {
  ToviResponseProt answer(0, new NOXPBlob("some record"), nullptr);
  const std::string frame = PeerConnection::frameOf(answer);
  Peer peer(test::serving([&](PeerConnection& client, Serializable& request) {
    if (request.getType() == TypeCode::ReadRecordRequest) {
      client.sendBytes(frame);
    } else {
      client.send(OKResponseProt());
    }
  }));
  Connection connection = Connection::open(options(peer));
  File file = connection.file("F");
  EXPECT_TRUE(file.read("1"));
  ASSERT_EQ(seen_.size(), 3u);
  EXPECT_EQ(seen_[0].request, "Authentication");
  EXPECT_EQ(seen_[2].request, "ReadRecord");
  EXPECT_EQ(seen_[2].type, 201);
  EXPECT_EQ(seen_[2].received, frame.size());
  EXPECT_EQ(seen_[2].sent,
            PeerConnection::frameOf(noxp::remote::ReadRecordRequestProt(0, "F", "1")).size());
  EXPECT_EQ(seen_[2].state, "");
}

TEST_F(Observers, AreToldOfFailures) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.refuse("IE", "008", "no");
    client.receive();
  });
  Connection connection = Connection::open(options(peer));
  for (int i = 0; i < 3; ++i) EXPECT_THROW(connection.dateTime(), Error);
  ASSERT_EQ(seen_.size(), 4u);
  EXPECT_EQ(seen_[1].state, "IE008");
  EXPECT_EQ(seen_[1].outcome, Outcome::Rejected);
  EXPECT_GT(seen_[1].received, 0u);
  EXPECT_EQ(seen_[2].state, sqlstate::kConnectionLost);
  EXPECT_EQ(seen_[2].outcome, Outcome::Unknown);
  EXPECT_EQ(seen_[3].state, sqlstate::kUnusable);
  EXPECT_EQ(seen_[3].sent, 0u);
}

TEST_F(Observers, AreToldOfEachRequestOfABatch) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(ToviResponseProt(1, nullptr, nullptr));
  }));
  Connection connection = Connection::open(options(peer));
  Batch batch(connection);
  batch.read("F", "1");
  batch.remove("F", "2");
  batch.run();
  ASSERT_EQ(seen_.size(), 3u);
  EXPECT_EQ(seen_[1].request, "ReadRecord");
  EXPECT_EQ(seen_[2].request, "DeleteRecord");
  EXPECT_GT(seen_[2].sent, 0u);
  EXPECT_GT(seen_[2].received, 0u);
}

TEST_F(Observers, AreToldOfRequestsWhoseAnswersNobodyWaitsFor) {
  const std::uint64_t closing =
      PeerConnection::frameOf(noxp::remote::CloseFileRequestProt("F")).size();
  const std::uint64_t done = PeerConnection::frameOf(OKResponseProt()).size();
  Peer peer(test::serving([](PeerConnection& client, Serializable& request) {
    if (request.getType() == TypeCode::DateTimeRequest) {
      client.send(noxp::remote::DateTimeResponseProt(7, 8));
    } else if (request.getType() == TypeCode::SelectListCloseRequest) {
      client.refuse("IE", "008", "no");
    } else if (request.getType() == TypeCode::SelectFileRequest) {
      NOXPBlob keys("A");
      auto* const list = new noxp::remote::SelectListProt(&keys);
      list->setId(4);
      client.send(ToviResponseProt(0, nullptr, list));
    } else if (request.getType() == TypeCode::ExistsRecordRequest) {
      client.send(ToviResponseProt(1, nullptr, nullptr));
    } else {
      client.send(OKResponseProt());
    }
  }));
  Connection connection = Connection::open(options(peer));
  { File file = connection.file("F"); }
  EXPECT_EQ(seen_.size(), 2u) << "its answer has not been read";
  connection.dateTime();
  ASSERT_EQ(seen_.size(), 4u);
  EXPECT_EQ(seen_[2].request, "CloseFile");
  EXPECT_EQ(seen_[2].sent, closing);
  EXPECT_EQ(seen_[2].received, done);
  EXPECT_EQ(seen_[2].state, "");
  EXPECT_EQ(seen_[3].request, "DateTime");

  // A batch takes such answers, too; this one is a failure.
  File file = connection.file("F");
  seen_.clear();
  { SelectList list = file.select(); }
  Batch batch(connection);
  batch.exists("F", "1");
  batch.run();
  ASSERT_EQ(seen_.size(), 3u);
  EXPECT_EQ(seen_[1].request, "SelectListClose");
  EXPECT_EQ(seen_[1].state, "IE008");
  EXPECT_EQ(seen_[1].outcome, Outcome::Rejected);
  EXPECT_GT(seen_[1].received, 0u);
  EXPECT_EQ(seen_[2].request, "ExistsRecord");

  seen_.clear();
  file.close();
  connection.close();
  ASSERT_EQ(seen_.size(), 1u);
  EXPECT_EQ(seen_[0].sent, closing);
  EXPECT_EQ(seen_[0].received, 0u);
  EXPECT_EQ(seen_[0].state, sqlstate::kConnectionLost);
  EXPECT_EQ(seen_[0].outcome, Outcome::Unknown);
}

TEST_F(Observers, AreToldOfRequestsOfABatchThatIsLost) {
  Peer peer([](PeerConnection& client) {
    client.welcome();
    client.receive();
    client.send(ToviResponseProt(1, nullptr, nullptr));
    client.receive();
  });
  Connection connection = Connection::open(options(peer));
  Batch batch(connection);
  for (int i = 0; i < 3; ++i) batch.remove("F", "1");
  batch.run();
  ASSERT_EQ(seen_.size(), 4u);
  EXPECT_EQ(seen_[1].state, "");
  for (std::size_t i = 2; i < 4; ++i) {
    EXPECT_EQ(seen_[i].request, "DeleteRecord");
    EXPECT_EQ(seen_[i].sent, seen_[1].sent);
    EXPECT_EQ(seen_[i].state, sqlstate::kConnectionLost);
  }
}

TEST_F(Observers, ThatThrowChangeNothing) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(7, 8));
  }));
  Options throwing = Options::fromUri(peer.uri());
  throwing.observer = [](const Exchange&) { throw 1; };
  Connection connection = Connection::open(throwing);
  EXPECT_EQ(connection.dateTime().day, 7);
}

}  // namespace
}  // namespace nox::client
