// noxd is killed at random moments while clients write; what they were told is what must be there.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "tests/agent/endurance/settings.h"
#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

constexpr int kWriters = 3;
constexpr int kReadUpdateNow = 2 + 4;

/// What a client of the agent knows about one thing that it changes: the last value that was
/// acknowledged, and one that was under way when the connection broke.
struct Known {
  int acknowledged = 0;
  int attempted = 0;

  bool allows(int found) const { return found == acknowledged || found == attempted; }
};

/// The number in "0 '17'"; 0 for a record that is not there, -1 for anything else.
int numberIn(const std::string& answer) {
  if (answer == "1") return 0;
  if (answer.compare(0, 3, "0 '") != 0) return -1;
  return std::atoi(answer.c_str() + 3);
}

class Crash : public ::testing::Test {
protected:
  using Work = std::function<void(Client&)>;

  Crash() {
    noxd_.withTls().set("session.lock_wait", "0").start();
    EXPECT_NE(connect()->run("CREATE-FILE F"), "IE/011");
  }

  std::unique_ptr<Client> connect() {
    // Over TLS, so that the certificate is used that was there last.
    auto client =
        std::make_unique<Client>(noxd_.tlsPort(), ClientTls{noxd_.tlsAuthority(), "", "", 0});
    client->logIn();
    return client;
  }

  /// Repeats `work` on a connection of its own until that breaks.
  static void repeat(Client& client, const Work& work) {
    try {
      for (;;) work(client);
    } catch (const std::runtime_error&) {  // the agent was killed
    }
  }

  // Single records, each durable when it is acknowledged.
  void writeRecords(Client& client, int writer) {
    const int record = ++turn_[static_cast<std::size_t>(writer)] % 5;
    Known& known = records_[{writer, record}];
    known.attempted = known.acknowledged + 1;
    const std::string id = "R" + std::to_string(writer) + "." + std::to_string(record);
    if (client.write("F", id.c_str(), std::to_string(known.attempted)) == "0") {
      known.acknowledged = known.attempted;
    }
  }

  // Two records that are only ever changed together.
  void writePairs(Client& client) {
    pair_.attempted = pair_.acknowledged + 1;
    const std::string value = std::to_string(pair_.attempted);
    if (client.begin() != "OK") return;
    const bool written =
        client.write("F", "T1", value) == "0" && client.write("F", "T2", value) == "0";
    if (written && client.commit() == "OK") pair_.acknowledged = pair_.attempted;
  }

  // Branches: prepared ones survive, with their locks, until they are committed.
  void prepareBranches(Client& client) {
    const int number = ++branch_;
    const std::string id = "B" + std::to_string(number);
    const std::string record = "X" + std::to_string(number % 7);
    if (client.xaStart(id.c_str()) != "OK") return;
    const bool written = client.write("F", record.c_str(), std::to_string(number)) == "0";
    if (client.xaEnd(id.c_str()) != "OK") return;
    if (!written) {  // its record is locked by a branch of a round before
      client.xaRollback(id.c_str());
      return;
    }
    preparing_ = number;
    if (client.xaPrepare(id.c_str()) != "OK") return;
    prepared_.insert(number);
    preparing_ = 0;
    if (number % 3 == 0) return;  // stays
    committing_ = number;
    if (client.xaCommit(id.c_str()) == "OK") {
      prepared_.erase(number);
      branchRecords_[number % 7] = number;
      committing_ = 0;
    }
  }

  /// One round: clients write, the agent dies, and is started again.
  void crashWhileWriting(std::chrono::milliseconds after) {
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < kWriters + 2; ++i) clients.push_back(connect());
    std::vector<std::thread> threads;
    for (int i = 0; i < kWriters; ++i) {
      Client& client = *clients[static_cast<std::size_t>(i)];
      threads.emplace_back(
          [this, &client, i] { repeat(client, [this, i](Client& c) { writeRecords(c, i); }); });
    }
    threads.emplace_back([&] { repeat(*clients[kWriters], [this](Client& c) { writePairs(c); }); });
    threads.emplace_back(
        [&] { repeat(*clients[kWriters + 1], [this](Client& c) { prepareBranches(c); }); });
    std::this_thread::sleep_for(after);  // the moment is what is random
    noxd_.kill();
    for (std::thread& thread : threads) thread.join();
    noxd_.start();
  }

  void expectNothingLost() {
    const std::unique_ptr<Client> client = connect();
    for (auto& [key, known] : records_) {
      const std::string id = "R" + std::to_string(key.first) + "." + std::to_string(key.second);
      const int found = numberIn(client->read("F", id.c_str()));
      EXPECT_TRUE(known.allows(found)) << id << " is " << found << ", was acknowledged as "
                                       << known.acknowledged << ", last tried " << known.attempted;
      known.acknowledged = found;
    }
    const int first = numberIn(client->read("F", "T1"));
    const int second = numberIn(client->read("F", "T2"));
    EXPECT_EQ(first, second) << "half a transaction";
    EXPECT_TRUE(pair_.allows(first)) << first << ", was acknowledged as " << pair_.acknowledged;
    pair_.acknowledged = first;

    expectBranchesAsKnown(*client);
  }

  void expectBranchesAsKnown(Client& client) {
    const std::string listed = client.monitor("xa list");
    const auto isListed = [&](int number) {
      return listed.find("B" + std::to_string(number) + "\t") != std::string::npos;
    };
    // One that was being prepared may be there; one that was being committed may be gone.
    if (preparing_ != 0 && isListed(preparing_)) prepared_.insert(preparing_);
    if (committing_ != 0 && !isListed(committing_)) {
      prepared_.erase(committing_);
      branchRecords_[committing_ % 7] = committing_;
    }
    preparing_ = 0;
    committing_ = 0;
    std::set<int> still = prepared_;
    for (const int number : prepared_) {
      EXPECT_TRUE(isListed(number)) << "branch " << number << " was prepared and is gone";
      const std::string record = "X" + std::to_string(number % 7);
      EXPECT_EQ(client.read("F", record.c_str(), kReadUpdateNow), "2")
          << record << " is not locked by branch " << number;
    }
    // Half of them are ended by somebody else, so that records become free again.
    for (const int number : prepared_) {
      if (random_() % 2 == 0) continue;
      const std::string id = "B" + std::to_string(number);
      if (random_() % 2 == 0) {
        EXPECT_EQ(client.xaCommit(id.c_str()), "OK");
        branchRecords_[number % 7] = number;
      } else {
        EXPECT_EQ(client.xaRollback(id.c_str()), "OK");
      }
      still.erase(number);
    }
    prepared_ = still;
    for (const auto& [record, number] : branchRecords_) {
      EXPECT_EQ(numberIn(client.read("F", ("X" + std::to_string(record)).c_str())), number);
    }
  }

  NoxdProcess noxd_;
  std::mt19937 random_{20261121};
  std::array<int, kWriters> turn_{};
  std::map<std::pair<int, int>, Known> records_ = [] {
    std::map<std::pair<int, int>, Known> records;  // made before threads share it
    for (int writer = 0; writer < kWriters; ++writer) {
      for (int record = 0; record < 5; ++record) records[{writer, record}];
    }
    return records;
  }();
  Known pair_;
  int branch_ = 0;
  int preparing_ = 0;
  int committing_ = 0;
  std::set<int> prepared_;
  std::map<int, int> branchRecords_;
};

TEST_F(Crash, LosesNothingThatWasAcknowledgedAndKeepsNothingInPart) {
  const int rounds = setting("NOX_CRASH_ROUNDS", 20);
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    if (round % 5 == 4) {  // another certificate, from now on
      noxd_.withTls();
      noxd_.reload();
    }
    crashWhileWriting(std::chrono::milliseconds(5 + random_() % 120));
    expectNothingLost();
  }
  int written = pair_.acknowledged;
  for (const auto& [key, known] : records_) written += known.acknowledged;
  EXPECT_GT(written, rounds) << "hardly anything was written: this has shown nothing";
  EXPECT_GT(branch_, rounds);
  const Finished verified =
      (noxd_.stop(), noxd_.run({"verify", "--data-dir", noxd_.dataDirectory()}));
  EXPECT_EQ(verified.status, 0) << verified.output;
}

}  // namespace
}  // namespace nox::agent::test
