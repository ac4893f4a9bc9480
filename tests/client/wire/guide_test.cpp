// The examples of docs/client.md, run on the real noxd. What stands between the arrows is what the
// guide shows, in the same order: tools/check_client_guide.sh compares them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/client/support/scratch.h"
#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using testing::HasSubstr;

class NoxdGuide : public test::NoxdSession {
protected:
  NoxdGuide() : db(ann_) {
    static_cast<void>(test::errorOf([this] { db.execute("CREATE-FILE PERSON"); }));
    static_cast<void>(test::errorOf([this] { db.execute("CREATE-FILE NOX.SUBS"); }));
    File people = db.file("PERSON");
    people.clear();
    people.write("4711", Record{"Smith", "Oslo", "555-1"});
    people.write("4712", Record{"Jones", "Rome"});
    File dictionary = db.file("DICT PERSON");
    dictionary.write("NAME", Record{"D", "1", "", "Name", "15L", "S"});
    dictionary.write("CITY", Record{"D", "2", "", "City", "15L", "S"});
  }

  // As the guide calls them.
  static void print(std::string_view text) { printed() << text << '\n'; }
  static std::ostringstream& printed() {
    static std::ostringstream text;
    return text;
  }
  static std::string ask(const std::string& question, bool hidden) {
    EXPECT_FALSE(question.empty());
    EXPECT_FALSE(hidden);
    return "N";
  }
  static void report(const Error& error) { print(error.what()); }

  Connection& db;
};

TEST_F(NoxdGuide, Connects) {
  const test::Scratch scratch;
  const std::string password = agent::test::NoxdProcess::kPassword;
  const std::string port = std::to_string(noxd().plainPort());
  const test::Environment environment(test::Environment::Variables{
      {"NOX_HOST", "127.0.0.1"},
      {"NOX_PORT", port},
      {"NOX_TLS", "off"},
      {"NOX_PASSWORD_FILE", scratch.write("password", password + "\n")}});
  // >>>
  nox::client::Options options = nox::client::Options::fromUri("nox://ann@/MAIN");
  options.password = password;  // from wherever the program keeps it
  options.requestTimeout = std::chrono::seconds(20);
  nox::client::Connection connection = nox::client::Connection::open(options);
  // <<<
  EXPECT_EQ(connection.common("@USER"), Record{"ann"});
}

TEST_F(NoxdGuide, ReadsAndChangesARecord) {
  // >>>
  nox::client::File people = db.file("PERSON");
  if (std::optional<nox::client::Record> person = people.read("4711")) {
    print((*person)[2]);            // attribute 2: "Oslo"
    (*person)[3][2] = "555-0123";   // the second value of attribute 3
    person->append(3, "555-0199");  // one more behind the last
    for (std::string_view phone : (*person)[3]) print(phone);
    people.write("4711", *person);
  }
  // <<<
  EXPECT_EQ(people.read("4711"), Record::parse("Smith^Oslo^555-1]555-0123]555-0199"));
}

TEST_F(NoxdGuide, BuildsARecord) {
  // >>>
  nox::client::Record record{"Smith", "Oslo"};  // two attributes
  record.insert(2, "Ann").remove(3);            // Smith, Ann
  record.set({4, 2, 1}, 42 > 6 ? "x" : "y");    // what is missing in between comes into being
  print(record.toString());                     // Smith^Ann^^]x
  // <<<
  EXPECT_EQ(record.toString(), "Smith^Ann^^]x");
}

TEST_F(NoxdGuide, MakesARecordOfARange) {
  // >>>
  const std::vector<std::string> lines{"", "tea", "nuts"};
  nox::client::Record order(lines);  // an attribute for each text
  order[1] = 'A';                    // text, a character, a number, another field
  order.append(2.5).append(order[2]);
  if (order[5] == order[2]) std::cout << order[2] << " twice: " << order << '\n';
  // <<<
  EXPECT_EQ(order.toString(), "A^tea^nuts^2.5^tea");
}

TEST_F(NoxdGuide, ChangesARecordUnderALock) {
  // >>>
  nox::client::File people = db.file("PERSON");
  nox::client::ReadResult account =
      people.read("balance", nox::client::Lock::Update, nox::client::Wait::No);
  if (account.status == nox::client::Status::Locked) {
    print("somebody else is at it");
  } else {
    const bool isNew = account.status == nox::client::Status::NotDone;  // locked all the same
    account.record[1] = isNew ? 1 : account.record[1].toInt64() + 1;
    people.write("balance", account.record);  // gives the lock back
  }
  // <<<
  EXPECT_EQ(people.read("balance"), Record{"1"});
}

TEST_F(NoxdGuide, WalksAList) {
  // >>>
  nox::client::SelectList list = db.select("SSELECT PERSON WITH CITY = \"Oslo\"").withRecords();
  for (nox::client::SelectList::Entry& entry : list) {
    if (!entry.hasRecord()) continue;  // deleted since
    nox::client::Record moved = entry.takeRecord();
    moved[2] = "Bergen";
    entry.replace(std::move(moved));  // written with the next page, all of a page or nothing
  }
  // <<<
  EXPECT_EQ(db.file("PERSON").read("4711")->value(2), "Bergen");
  EXPECT_EQ(db.file("PERSON").read("4712")->value(2), "Rome");
}

TEST_F(NoxdGuide, WalksPages) {
  // >>>
  nox::client::SelectList list = db.file("PERSON").select().withRecords().pageSize(200);
  while (list.nextPage()) {
    for (nox::client::SelectList::Entry& entry : list.page()) {
      if (entry.record()[2].empty()) entry.replace(nox::client::Record{"nobody", "nowhere"});
    }
    list.commit();  // now, rather than with the next page
  }
  // <<<
  EXPECT_EQ(db.file("PERSON").read("4712")->value(2), "Rome");
}

TEST_F(NoxdGuide, RunsCommands) {
  // >>>
  nox::client::CommandResult result = db.execute("LIST PERSON NAME CITY BY NAME");
  std::cout << result.text() << result.items() << " people\n";

  for (const nox::client::Record& row : db.listing("SORT PERSON NAME CITY")) {
    print(row[1]);
  }
  // <<<
  EXPECT_EQ(result.items(), 2);
}

TEST_F(NoxdGuide, AnswersACommand) {
  // >>>
  nox::client::Conversation talk = db.converse("CLEAR-FILE PERSON");
  while (talk.isWaiting()) talk.answer(ask(talk.prompt(), talk.hidden()));
  print(talk.command().text());
  // <<<
  EXPECT_TRUE(db.file("PERSON").exists("4711"));
}

TEST_F(NoxdGuide, CallsASubroutine) {
  db.file("NOX.SUBS").write("TOTAL", Record("args[2] = 2 * args[1]"));
  // >>>
  nox::client::CallResult result = db.call("TOTAL", {21, nullptr});
  if (!result.aborted) print(result.parameters[1].text());  // what it left there
  // <<<
  EXPECT_EQ(result.parameters[1].int64(), 42);
}

TEST_F(NoxdGuide, RunsSql) {
  db.update("DROP TABLE IF EXISTS VISIT");
  db.update("CREATE TABLE VISIT (PERSON TEXT, DAY INTEGER, NOTE TEXT)");
  // >>>
  db.update("INSERT INTO VISIT VALUES (?, ?, ?)", {"4711", 20000, nullptr});
  for (const nox::client::Row& row : db.query("SELECT PERSON, DAY, NOTE FROM VISIT")) {
    print(row["PERSON"].text());
    std::cout << row["DAY"].int64() << ' ' << row["NOTE"].textOr("(none)") << '\n';
  }

  nox::client::Statement insert = db.prepare("INSERT INTO VISIT VALUES (?, ?, ?)");
  for (int day = 1; day <= 3; ++day) insert.update({"4712", day, "again"});
  // <<<
  Rows rows = db.query("SELECT COUNT(*) FROM VISIT");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()[0].int64(), 4);
}

TEST_F(NoxdGuide, CommitsATransaction) {
  // >>>
  {
    nox::client::Transaction work = db.begin();
    nox::client::File people = db.file("PERSON");
    people.write("5000", nox::client::Record{"Garcia", "Lima"});
    people.remove("4712");
    work.commit();  // without it, leaving the block rolls back
  }
  // <<<
  EXPECT_TRUE(db.file("PERSON").exists("5000"));
}

TEST_F(NoxdGuide, DrivesABranch) {
  // >>>
  const nox::client::Xid xid = nox::client::Xid::of(1, "order 17", "noxd");
  nox::client::XaBranch branch = db.startBranch(xid);
  db.file("PERSON").write("5001", nox::client::Record{"Kim", "Seoul"});
  branch.end();
  branch.prepare();  // from here on it survives a crash of the server
  branch.commit();

  for (const nox::client::XaBranchInfo& left : db.recover()) print(left.xid.id);
  // <<<
  EXPECT_TRUE(db.file("PERSON").exists("5001"));
}

TEST_F(NoxdGuide, LoadsInBatches) {
  const std::vector<std::pair<std::string, Record>> rows{{"6000", {"A"}}, {"6001", {"B"}}};
  // >>>
  nox::client::Transaction work = db.begin();  // one synchronisation of the disk for all of them
  nox::client::Batch batch(db);
  for (const auto& [id, record] : rows) batch.write("PERSON", id, record);
  for (const nox::client::Batch::Result& result : batch.run()) {
    if (result.error) report(*result.error);
  }
  work.commit();
  // <<<
  EXPECT_TRUE(db.file("PERSON").exists("6001"));
}

TEST_F(NoxdGuide, TellsOutcomesApart) {
  File people = db.file("PERSON");
  const Record record{"x"};
  // >>>
  try {
    people.write("4711", record);
  } catch (const nox::client::Error& error) {
    switch (error.outcome()) {
      case nox::client::Outcome::NotSent:   // nothing happened: it may be tried again
      case nox::client::Outcome::Rejected:  // the server refused it: error.sqlState() says why
        report(error);
        break;
      case nox::client::Outcome::Unknown:  // it may have been done: look before trying again
        report(error);
        break;
    }
  }
  // <<<
  EXPECT_EQ(people.read("4711"), record);
}

TEST_F(NoxdGuide, SharesAPool) {
  const Options options = NoxdGuide::options();
  // >>>
  nox::client::PoolOptions limits;
  limits.size = 8;
  nox::client::Pool pool(options, limits);
  std::thread worker([&pool] {
    const nox::client::Pool::Lease lease = pool.acquire();
    lease->file("PERSON").read("4711");
  });
  worker.join();
  // <<<
  EXPECT_EQ(pool.statistics().opened, 1u);
}

TEST_F(NoxdGuide, CancelsFromAnotherThread) {
  // >>>
  const nox::client::Canceller canceller = db.canceller();
  std::thread watchdog([canceller] { canceller.cancel(); });
  // <<<
  watchdog.join();
  EXPECT_FALSE(db.isUsable());
}

TEST_F(NoxdGuide, Observes) {
  Options options = NoxdGuide::options();
  // >>>
  std::atomic<std::uint64_t> bytes{0};
  options.observer = [&bytes](const nox::client::Exchange& exchange) {
    bytes += exchange.bytesSent + exchange.bytesReceived;
  };
  // <<<
  Connection::open(options).ping();
  EXPECT_GT(bytes, 0u);
}

}  // namespace
}  // namespace nox::client
