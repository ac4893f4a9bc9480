// Queries and their rows, asked of noxd itself.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/agent/support/client.h"
#include "tests/agent/support/command_calls.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// Cities, in a noxd whose frames are small.
class WireQueries : public testing::Test {
protected:
  static constexpr std::size_t kFrame = 65'536;

  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->set("server.max_frame", std::to_string(kFrame));
    noxd->start();
    Client client(noxd->plainPort());
    execute(client.logIn(), "CREATE-FILE CITIES");
    client.write("DICT CITIES", "NAME", marked("D^1^^Name^10L"));
    client.write("DICT CITIES", "PEOPLE", marked("D^2^MD0,^People^8R"));
    client.write("DICT CITIES", "TAGS", marked("D^3^MCU^Tags^8L^M"));
    client.write("CITIES", "osl", marked("Oslo^700000^capital]port"));
    client.write("CITIES", "bgo", marked("Bergen^290000^port"));
    client.write("CITIES", "trd", marked("Trondheim^210000^"));
  }
  static void TearDownTestSuite() { noxd.reset(); }

  WireQueries() : ann(noxd->plainPort()), bob(noxd->plainPort()) {
    ann.logIn();
    bob.logIn();
  }

  static std::unique_ptr<NoxdProcess> noxd;
  Client ann;
  Client bob;
};
std::unique_ptr<NoxdProcess> WireQueries::noxd;

TEST_F(WireQueries, AQueryAnswersWithHeadingAndKeysAndIsFetchedByItsId) {
  const QueryReply opened = query(ann, "SORT CITIES BY-DSND PEOPLE NAME PEOPLE TAGS");
  EXPECT_EQ(opened.error, "");
  EXPECT_EQ(opened.heading, "@ID^Name^People^Tags");
  EXPECT_EQ(opened.list, "1: osl bgo trd");
  RowsReply reply = fetchRows(ann, opened.id, 2);
  EXPECT_EQ(reply.status, 0);
  EXPECT_THAT(reply.rows, ElementsAre("osl^Oslo^700,000^CAPITAL]PORT", "bgo^Bergen^290,000^PORT"));
  EXPECT_THAT(reply.types, Each(0));
  reply = fetchRows(ann, opened.id, 2);
  EXPECT_EQ(reply.status, 1);
  EXPECT_THAT(reply.rows, ElementsAre("trd^Trondheim^210,000^"));
  reply = fetchRows(ann, opened.id, 2);
  EXPECT_EQ(reply.status, 1);
  EXPECT_THAT(reply.rows, IsEmpty());
}

TEST_F(WireQueries, SelectsAreQueriesToo) {
  EXPECT_EQ(query(ann, "SELECT CITIES WITH TAGS = PORT").list, "1:") << "values are as stored";
  EXPECT_EQ(query(ann, "SSELECT CITIES WITH PEOPLE < 300,000").list, "2: bgo trd");
}

TEST_F(WireQueries, AListThatComesWithAQueryIsUsed) {
  noxp::remote::SelectListProt list = listOf({"trd", "osl"});
  EXPECT_EQ(query(ann, "LIST CITIES", &list, 1).list, "1: trd osl");
  EXPECT_EQ(query(ann, "LIST CITIES", &list, 0).list, "2: bgo osl trd");
}

TEST_F(WireQueries, WhatIsNoQueryIsAnError) {
  EXPECT_EQ(query(ann, "COUNT CITIES").error, "IE/011: a query is a LIST, SORT, SELECT or SSELECT");
  EXPECT_EQ(query(ann, "LIST NOWHERE").error, "IE/011: there is no file \"NOWHERE\"");
  EXPECT_EQ(query(ann, "LIST CITIES MAYOR").error,
            "IE/011: \"MAYOR\" at character 13: there is no such item in the dictionary");
}

TEST_F(WireQueries, AQueryOfAnotherSessionIsUnknown) {
  const int id = query(ann, "LIST CITIES").id;
  EXPECT_THAT(fetchRows(bob, id, 10).error, StartsWith("26/000: "));
  EXPECT_THAT(fetchRows(ann, id + 1, 10).error, StartsWith("26/000: "));
}

TEST_F(WireQueries, RowsAreThoseOfOneMomentAndFitTheirFrames) {
  ASSERT_EQ(execute(ann, "CREATE-FILE MANY").error, "");
  ASSERT_EQ(ann.write("DICT MANY", "TEXT", marked("D^1")), "0");
  ASSERT_EQ(ann.begin(), "OK");
  const std::string text(700, 'x');
  constexpr int kRecords = 1'000;
  for (int i = 0; i < kRecords; ++i) {
    ann.write("MANY", std::to_string(10'000 + i).c_str(), text);
  }
  ASSERT_EQ(ann.commit(), "OK");

  const QueryReply opened = query(ann, "LIST MANY TEXT");
  ASSERT_EQ(opened.error, "");
  RowsReply reply = fetchRows(ann, opened.id, 10);
  EXPECT_EQ(reply.rows.size(), 10u);
  ASSERT_EQ(execute(bob, "CLEAR-FILE MANY (Y").error, "");
  int rows = 10;
  while (reply.status == 0) {
    reply = fetchRows(ann, opened.id, kRecords);
    ASSERT_EQ(reply.error, "");
    EXPECT_LT(reply.rows.size() * text.size(), kFrame);
    for (const std::string& row : reply.rows) {
      ASSERT_EQ(row, std::to_string(10'000 + rows++) + "^" + text);
    }
  }
  EXPECT_EQ(rows, kRecords);
  EXPECT_EQ(execute(ann, "COUNT MANY").output, "0 records counted");
}

TEST_F(WireQueries, QueriesEndWithTheAccount) {
  const int id = query(ann, "LIST CITIES").id;
  noxp::remote::SwitchAccountRequestProt change(NoxdProcess::kUser, "MAIN", NoxdProcess::kPassword);
  const auto reply = ann.askFor<noxp::remote::SwitchAccountResponseProt>(change);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->getStatus(), 0);
  EXPECT_THAT(fetchRows(ann, id, 10).error, StartsWith("26/000: "));
}

}  // namespace
}  // namespace nox::agent::test
