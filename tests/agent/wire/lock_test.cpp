// Locks between sessions of noxd: 225, the modes of 201 and 202, waiting, and rings.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <sstream>
#include <string>
#include <thread>

#include "tests/agent/wire/shared_noxd.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

class WireLocks : public SharedNoxd {
protected:
  /// What monitoring says about the locks of the test's file.
  std::string locks(Client& client) const {
    noxp::remote::MonitoringRequestProt request("locks " + std::string(file()));
    const auto reply = client.askFor<noxp::remote::MonitoringResponseProt>(request);
    return reply ? reply->getResponse() : std::string();
  }
  /// Returns when somebody waits for each of so many records of the test's file.
  void waitUntilWaitedFor(std::ptrdiff_t records) const {
    const auto watcher = newClient();
    const auto deadline = steady_clock::now() + seconds(30);
    const auto waitedFor = [&] {
      std::ptrdiff_t found = 0;
      std::istringstream lines(locks(*watcher));
      for (std::string line; std::getline(lines, line);) {
        const std::string last = line.substr(line.rfind('\t') + 1);
        if (last != "0" && last != "waiting") ++found;
      }
      return found;
    };
    while (waitedFor() < records) {
      ASSERT_LT(steady_clock::now(), deadline) << locks(*watcher);
      std::this_thread::yield();
    }
  }
};

TEST_F(WireLocks, ManyShareOrOneUpdates) {
  ann().write(file(), "K", "x");
  EXPECT_EQ(ann().read(file(), "K", kShared), "0 'x'");
  EXPECT_EQ(bob().read(file(), "K", kShared), "0 'x'");
  EXPECT_EQ(bob().read(file(), "K", kUpdate), "2") << "not beside another";
  EXPECT_EQ(ann().release(0, file(), "K"), "OK");
  EXPECT_EQ(bob().read(file(), "K", kUpdate), "0 'x'") << "alone it may";
  EXPECT_EQ(ann().read(file(), "K", kShared), "2");
}

TEST_F(WireLocks, AMissingRecordIsLockedAndOneOfTwoCreatesIt) {
  EXPECT_EQ(ann().read(file(), "K", kUpdate), "1");
  EXPECT_EQ(bob().read(file(), "K", kUpdate), "2");
  EXPECT_EQ(ann().write(file(), "K", "ann's"), "0");
  EXPECT_EQ(bob().read(file(), "K", kUpdate), "0 'ann's'");
}

TEST_F(WireLocks, APlainReadNeverWaits) {
  letWait(bob());
  ann().write(file(), "K", "x");
  ann().read(file(), "K", kUpdate);
  EXPECT_EQ(bob().read(file(), "K"), "0 'x'");
  EXPECT_EQ(bob().exists(file(), "K"), "0");
}

TEST_F(WireLocks, WhoAddsFourDoesNotWait) {
  letWait(bob());
  ann().read(file(), "K", kUpdate);
  EXPECT_EQ(bob().read(file(), "K", kUpdate | kDoNotWait), "2");
  EXPECT_EQ(bob().read(file(), "K", kShared | kDoNotWait), "2");
  EXPECT_EQ(bob().read(file(), "K", kDoNotWait), "1");
}

TEST_F(WireLocks, WritingInMode0ReleasesAndInMode1Keeps) {
  ann().read(file(), "K", kUpdate);
  EXPECT_EQ(ann().write(file(), "K", "1", kKeep), "0");
  EXPECT_EQ(bob().write(file(), "K", "2"), "2");
  EXPECT_EQ(ann().write(file(), "K", "3"), "0");
  EXPECT_EQ(bob().write(file(), "K", "4"), "0");
  EXPECT_EQ(bob().write(file(), "K", "5"), "0");
}

TEST_F(WireLocks, DeletingReleases) {
  ann().write(file(), "K", "x");
  ann().read(file(), "K", kUpdate);
  EXPECT_EQ(ann().remove(file(), "K"), "0");
  EXPECT_EQ(bob().write(file(), "K", "x"), "0");
}

TEST_F(WireLocks, ReleasingARecordAFileOrEverything) {
  const auto lockThree = [&] {
    ann().read(file(), "A", kUpdate);
    ann().read(file(), "B", kUpdate);
    ann().read(dict().c_str(), "C", kUpdate);
  };
  const auto isFree = [&](const char* name, const char* id) {
    const bool free = bob().read(name, id, kUpdate | kDoNotWait) == "1";
    bob().release(2);
    return free;
  };
  lockThree();
  EXPECT_EQ(ann().release(0, file(), "A"), "OK");
  EXPECT_TRUE(isFree(file(), "A"));
  EXPECT_FALSE(isFree(file(), "B"));
  EXPECT_EQ(ann().release(1, file()), "OK");
  EXPECT_TRUE(isFree(file(), "B"));
  EXPECT_FALSE(isFree(dict().c_str(), "C"));
  EXPECT_EQ(ann().release(2), "OK");
  EXPECT_TRUE(isFree(dict().c_str(), "C"));
}

TEST_F(WireLocks, ReleasingNothingIsFine) {
  EXPECT_EQ(ann().release(0, file(), "K"), "OK");
  EXPECT_EQ(ann().release(0, "NONE", "K"), "OK");
  EXPECT_EQ(ann().release(1, "NONE"), "OK");
  EXPECT_EQ(ann().release(2), "OK");
}

TEST_F(WireLocks, OtherModesOfReleasingAreRefused) {
  ann().read(file(), "K", kUpdate);
  for (const int mode : {-1, 3, 4}) EXPECT_EQ(ann().release(mode, file(), "K"), "22/003") << mode;
  EXPECT_EQ(bob().read(file(), "K", kUpdate), "2");
}

TEST_F(WireLocks, AWaitEndsWithTheLock) {
  letWait(bob());
  ann().read(file(), "K", kUpdate);
  auto answer = std::async(std::launch::async, [&] { return bob().read(file(), "K", kUpdate); });
  waitUntilWaitedFor(1);
  EXPECT_EQ(ann().write(file(), "K", "written meanwhile"), "0");
  EXPECT_EQ(answer.get(), "0 'written meanwhile'");
}

TEST_F(WireLocks, RepliesToRequestsInFrontOfOneThatWaitsDoNotWait) {
  letWait(bob());
  ann().read(file(), "K", kUpdate);
  ASSERT_EQ(bob().begin(), "OK");
  ASSERT_EQ(bob().write(file(), "1", "a"), "0");
  std::string requests;
  for (const char* const id : {"2", "3", "K", "4"}) {
    requests += nox::test::frameOf(noxp::remote::WriteRecordRequestProt(0, file(), id, "b"));
  }
  bob().sendBytes(requests);
  const auto status = [&] {
    const auto reply = bob().receive();
    const auto* const tovi = dynamic_cast<noxp::remote::ToviResponseProt*>(reply.get());
    return tovi != nullptr ? tovi->getStatus() : -1;
  };
  EXPECT_EQ(status(), 0);
  EXPECT_EQ(status(), 0);
  EXPECT_FALSE(bob().hasInput(std::chrono::milliseconds(100)));
  EXPECT_EQ(ann().release(2), "OK");
  EXPECT_EQ(status(), 0);
  EXPECT_EQ(status(), 0);
  EXPECT_EQ(bob().commit(), "OK");
  EXPECT_EQ(ann().read(file(), "4"), "0 'b'");
}

TEST_F(WireLocks, AWaitEndsAfterLockWait) {
  EXPECT_EQ(bob().set("LOCK_WAIT", "1"), "OK");
  ann().read(file(), "K", kUpdate);
  const auto begin = steady_clock::now();
  EXPECT_EQ(bob().write(file(), "K", "x"), "2");
  EXPECT_GE(steady_clock::now() - begin, seconds(1));
  EXPECT_LT(steady_clock::now() - begin, seconds(20));
}

TEST_F(WireLocks, WhoWouldCloseARingIsToldAtOnce) {
  const auto cid = newClient();
  for (Client* client : {&ann(), &bob(), cid.get()}) letWait(*client);
  ann().read(file(), "A", kUpdate);
  bob().read(file(), "B", kUpdate);
  cid->read(file(), "C", kUpdate);
  auto anns = std::async(std::launch::async, [&] { return ann().read(file(), "B", kUpdate); });
  auto bobs = std::async(std::launch::async, [&] { return bob().read(file(), "C", kUpdate); });
  waitUntilWaitedFor(2);
  const auto begin = steady_clock::now();
  EXPECT_EQ(cid->read(file(), "A", kUpdate), "40/000");
  EXPECT_LT(steady_clock::now() - begin, seconds(20));
  EXPECT_EQ(cid->release(0, file(), "C"), "OK") << "it still had its lock";
  EXPECT_EQ(bobs.get(), "1");
  bob().release(2);
  EXPECT_EQ(anns.get(), "1");
}

TEST_F(WireLocks, TwoThatShareAndBothWantToUpdateAreARing) {
  letWait(ann());
  letWait(bob());
  ann().read(file(), "K", kShared);
  bob().read(file(), "K", kShared);
  auto anns = std::async(std::launch::async, [&] { return ann().write(file(), "K", "ann's"); });
  waitUntilWaitedFor(1);
  EXPECT_EQ(bob().write(file(), "K", "bob's"), "40/000");
  bob().release(2);
  EXPECT_EQ(anns.get(), "0");
}

TEST_F(WireLocks, WhoseTransactionClosesARingLosesIt) {
  letWait(ann());
  letWait(bob());
  ann().begin();
  ann().write(file(), "A", "uncommitted");
  bob().read(file(), "B", kUpdate);
  auto bobs = std::async(std::launch::async, [&] { return bob().read(file(), "A", kUpdate); });
  waitUntilWaitedFor(1);
  EXPECT_EQ(ann().read(file(), "B", kUpdate), "40/000");
  EXPECT_EQ(bobs.get(), "1") << "nothing of the transaction is left";
  EXPECT_EQ(ann().commit(), "25/000");
}

TEST_F(WireLocks, LocksEndWithTheConnection) {
  letWait(bob());
  auto cid = newClient();
  cid->read(file(), "K", kUpdate);
  auto answer = std::async(std::launch::async, [&] { return bob().read(file(), "K", kUpdate); });
  waitUntilWaitedFor(1);
  cid->close();
  EXPECT_EQ(answer.get(), "1");
}

TEST_F(WireLocks, ASessionThatWaitsAndIsGoneLeavesNoTrace) {
  ann().read(file(), "K", kUpdate);
  auto cid = newClient();
  letWait(*cid);
  cid->send(noxp::remote::ReadRecordRequestProt(kUpdate, file(), "K"));
  waitUntilWaitedFor(1);
  cid->close();
  ann().release(2);
  // Whether the lost session gets the lock for a moment or never: it ends.
  letWait(bob());
  EXPECT_EQ(bob().read(file(), "K", kUpdate), "1");
}

TEST_F(WireLocks, NoUpdateIsLost) {
  constexpr int kRounds = 100;
  letWait(ann());
  letWait(bob());
  ann().write(file(), "COUNT", "0");
  const auto count = [&](Client& client) {
    for (int i = 0; i < kRounds; ++i) {
      const int n = std::stoi(client.read(file(), "COUNT", kUpdate).substr(3));  // 0 'n'
      ASSERT_EQ(client.write(file(), "COUNT", std::to_string(n + 1)), "0");
    }
  };
  std::thread other([&] { count(bob()); });
  count(ann());
  other.join();
  EXPECT_EQ(ann().read(file(), "COUNT"), "0 '" + std::to_string(2 * kRounds) + "'");
}

TEST_F(WireLocks, MonitoringShowsThem) {
  ann().read(file(), "K", kUpdate);
  bob().read(dict().c_str(), "NAME", kShared);
  const std::string shown = locks(ann());
  EXPECT_NE(shown.find(std::string(file()) + "\tK\tupdate\tsession " + ann().common("@SESSION")),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find(dict() + "\tNAME\tshared\tsession " + bob().common("@SESSION")),
            std::string::npos)
      << shown;
}

}  // namespace
}  // namespace nox::agent::test
