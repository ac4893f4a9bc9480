// Many clients mix everything for a long time: no error, and nothing that grows.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/agent/endurance/settings.h"
#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

using Clock = std::chrono::steady_clock;

/// One client's mixture. Each step ends what it begins.
class Mixture {
public:
  Mixture(Client& client, int number) : client_(client), own_("C" + std::to_string(number)) {}

  /// Empty, or what went wrong.
  std::string step(int i) {
    const std::string value = std::to_string(i);
    switch (i % 8) {
      case 0:
        return expect("write", client_.write("F", own_.c_str(), value), "0");
      case 1:
        client_.write("F", own_.c_str(), value);
        return expect("read", client_.read("F", own_.c_str()), "0 '" + value + "'");
      case 2:
        return client_.echoes(1000) ? "" : "echo";
      case 3:
        return sql();
      case 4:
        return list();
      case 5:
        return transaction(value);
      case 6:
        return expect("count", client_.run(("COUNT F '" + own_ + "'").c_str()).substr(0, 1), "1");
      default:
        return query();
    }
  }

private:
  static std::string expect(const char* what, const std::string& found,
                            const std::string& expected) {
    return found == expected ? "" : std::string(what) + ": " + found;
  }

  std::string sql() {
    noxp::sql::CompileAndExecuteRequestProt select(
        new NOXPString(("SELECT ID FROM F WHERE ID = '" + own_ + "'").c_str()));
    const auto rows = client_.askFor<noxp::sql::SQLResultResponseProt>(select);
    if (!rows) return "sql";
    noxp::sql::ReleaseStatementRequestProt release(rows->getStatementId());
    return client_.askFor<noxp::sql::SQLOKResponseProt>(release) ? "" : "release";
  }

  std::string list() {
    noxp::remote::SelectFileRequestProt select("F");
    select.setClassVersion(1);
    const auto selected = client_.askFor<noxp::remote::ToviResponseProt>(select);
    if (!selected || !selected->getSelectList()) return "select";
    const int id = static_cast<noxp::remote::SelectListProt*>(selected->getSelectList())->getId();
    client_.fetch(id, 1, 50, true);
    return expect("close", client_.closeList(id), "OK");
  }

  std::string transaction(const std::string& value) {
    if (client_.begin() != "OK") return "begin";
    client_.read("F", own_.c_str(), 2);
    const std::string written = client_.write("F", own_.c_str(), value);
    // Another client may write for longer than this one waits.
    if (written != "0") return expect("rollback", client_.rollback(), "OK");
    return expect("commit", client_.commit(), "OK");
  }

  std::string query() {
    noxp::remote::StatementExecuteQueryRequestProt ask(
        "LIST F", Borrowed<noxp::remote::SelectListProt>(nullptr));
    ask.setClassVersion(1);
    const auto begun = client_.askFor<noxp::remote::ToviResponseProt>(ask);
    if (!begun || !begun->getSelectList()) return "query";
    const int id = static_cast<noxp::remote::SelectListProt*>(begun->getSelectList())->getId();
    for (;;) {
      noxp::remote::StatementFetchRequestProt fetch(id, 200);
      const auto rows = client_.askFor<noxp::remote::StatementFetchResponseProt>(fetch);
      if (!rows) return "fetch";
      if (rows->getStatus() == 1) return "";
    }
  }

  Client& client_;
  const std::string own_;
};

constexpr char kDatabase[] = "MAIN.db";

TEST(Soak, ManyClientsLeaveNothingBehind) {
  const int clients = setting("NOX_SOAK_CLIENTS", 24);
  const std::chrono::seconds duration(setting("NOX_SOAK_SECONDS", 4));
  // The address sanitizer keeps what was freed for a while; it must not look like growth.
  const char* const options = std::getenv("ASAN_OPTIONS");
  setenv("ASAN_OPTIONS", (std::string(options ? options : "") + ":quarantine_size_mb=8").c_str(),
         1);
  NoxdProcess noxd;
  noxd.set("server.max_connections", "512").set("session.lock_wait", "30");
  noxd.set("log.level", "\"warning\"").set("log.access", "false").start();
  {
    Client first(noxd.plainPort());
    first.logIn();
    first.run("CREATE-FILE F");
    for (int i = 0; i < clients; ++i) first.write("F", ("C" + std::to_string(i)).c_str(), "0");
  }

  long memoryAfterWarming = 0;
  int descriptorsBefore = 0;
  int threadsBefore = 0;
  std::atomic<std::uint64_t> steps{0};
  // The first time warms what is kept: pools, caches, arenas of the allocator.
  for (int time = 0; time < 2; ++time) {
    std::vector<std::string> failures(static_cast<std::size_t>(clients));
    // One login after the other: checking a password takes long on purpose, and whoever would wait
    // for it beyond the deadline of a login is refused.
    std::vector<std::unique_ptr<Client>> connected;
    for (int i = 0; i < clients; ++i) {
      connected.push_back(std::make_unique<Client>(noxd.plainPort()));
      connected.back()->logIn();
    }
    std::vector<std::thread> threads;
    const auto end = Clock::now() + duration / (time == 0 ? 4 : 1);
    for (int i = 0; i < clients; ++i) {
      threads.emplace_back([&, i] {
        std::string& failure = failures[static_cast<std::size_t>(i)];
        try {
          Mixture mixture(*connected[static_cast<std::size_t>(i)], i);
          for (int step = i; failure.empty() && Clock::now() < end; ++step) {
            failure = mixture.step(step);
            ++steps;
          }
        } catch (const std::exception& error) {
          failure = error.what();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    connected.clear();
    for (const std::string& failure : failures) EXPECT_EQ(failure, "");

    // Connections end a moment after their clients.
    Client watcher(noxd.plainPort());
    watcher.logIn();
    const auto patience = Clock::now() + std::chrono::seconds(30);
    while (noxd.threads() > 16 && Clock::now() < patience) static_cast<void>(watcher.echoes());
    if (time == 0) {
      memoryAfterWarming = noxd.memoryKiB();
      descriptorsBefore = noxd.descriptors(kDatabase);
      threadsBefore = noxd.threads();
    }
  }
  EXPECT_GT(steps, static_cast<std::uint64_t>(clients));
  {
    Client watcher(noxd.plainPort());
    watcher.logIn();
    EXPECT_LE(noxd.threads(), threadsBefore + 2);
    // The store keeps a few of its connections for the next clients, of a database and its log.
    constexpr int kPooled = 8;
    EXPECT_LE(noxd.descriptors(kDatabase), descriptorsBefore + kPooled);
    // SQLite closes no descriptor of a database on which the process holds a lock, but gives it to
    // the next connection: there are as many as were in use at once.
    constexpr int kOfTheStore = 4;  // for writing, branches, checks
    EXPECT_LE(noxd.descriptors() - noxd.descriptors(kDatabase), clients + kPooled + kOfTheStore);
    constexpr long kNoise = 32L * 1024;  // KiB: what allocators keep, under sanitizers too
    EXPECT_LE(noxd.memoryKiB(), memoryAfterWarming + memoryAfterWarming / 2 + kNoise);
  }
  EXPECT_EQ(noxd.stop(), 0) << noxd.log();
}

}  // namespace
}  // namespace nox::agent::test
