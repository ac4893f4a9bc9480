#include "client/command/prompt/completion.h"

#include <gmock/gmock.h>

namespace nox::command {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class KnownNames : public NameSource {
public:
  std::vector<std::string> files() override { return {"ORDERS", "OTHERS", "PEOPLE"}; }
  std::vector<std::string> items(const std::string& file) override {
    return file == "ORDERS" ? std::vector<std::string>{"TOTAL", "TAX"} : std::vector<std::string>{};
  }
  std::vector<std::string> tables() override { return {"ORDERS", "ledger"}; }
  std::vector<std::string> columns(const std::string& table) override {
    return table == "ledger" ? std::vector<std::string>{"amount", "account"}
                             : std::vector<std::string>{};
  }
};

Completion of(std::string_view text, std::string_view behind = {}) {
  KnownNames names;
  return complete(text, behind, names);
}

TEST(Completion, OfALineIsAVerb) {
  EXPECT_THAT(of("CREATE-").candidates, ElementsAre("CREATE-FILE"));
  EXPECT_THAT(of("sel").candidates, ElementsAre("SELECT"));
  EXPECT_THAT(of("\\be").candidates, ElementsAre("\\begin", "\\bench"));
  EXPECT_THAT(of("\\q").candidates, ElementsAre("\\q"));
}

TEST(Completion, BehindAVerbOfTheCommandLanguageIsAFile) {
  const Completion completion = of("LIST O");
  EXPECT_EQ(completion.begin, 5u);
  EXPECT_THAT(completion.candidates, ElementsAre("ORDERS", "OTHERS"));
  EXPECT_THAT(of("LIST D").candidates, ElementsAre("DICT"));
  EXPECT_THAT(of("LIST DICT P").candidates, ElementsAre("PEOPLE"));
  EXPECT_THAT(of("DELETE-FILE P").candidates, ElementsAre("PEOPLE"));
}

TEST(Completion, BehindAFileIsAnItemOrAClause) {
  EXPECT_THAT(of("LIST ORDERS T").candidates, ElementsAre("TAX", "TOTAL"));
  EXPECT_THAT(of("LIST ORDERS WITH to").candidates, ElementsAre("TOTAL"));
  EXPECT_THAT(of("COUNT ORDERS W").candidates, ElementsAre("WITH"));
  EXPECT_THAT(of("COUNT ORDERS HDR").candidates, IsEmpty());
}

TEST(Completion, InSqlIsATableBehindFromAndAColumnElsewhere) {
  EXPECT_THAT(of("SELECT * FROM l").candidates, ElementsAre("ledger"));
  EXPECT_THAT(of("UPDATE le").candidates, ElementsAre("ledger"));
  const Completion column = of("SELECT x FROM ledger WHERE (a");
  EXPECT_EQ(column.begin, 28u);
  EXPECT_THAT(column.candidates, ElementsAre("AND", "AS", "account", "amount"));
}

TEST(Completion, InSqlKnowsATableInAnyCase) {
  EXPECT_THAT(of("SELECT x FROM LEDGER WHERE acc").candidates, ElementsAre("account"));
  EXPECT_THAT(of("select x from Ledger where am").candidates, ElementsAre("amount"));
}

TEST(Completion, InSqlIsAColumnOfATableThatIsNamedBehind) {
  EXPECT_THAT(of("SELECT ac", " FROM ledger;").candidates, ElementsAre("account"));
  const Completion second = of("SELECT account,am", " from ledger");
  EXPECT_EQ(second.begin, 15u);
  EXPECT_THAT(second.candidates, ElementsAre("amount"));
}

TEST(Completion, BehindSelectIsAClauseOfWhatItIs) {
  EXPECT_THAT(of("SELECT ORDERS BY-").candidates, ElementsAre("BY-DSND"));
  EXPECT_THAT(of("SELECT O").candidates, ElementsAre("ORDERS", "OTHERS"));
  EXPECT_THAT(of("SELECT amount F").candidates, ElementsAre("FROM"));
}

TEST(Completion, BehindADictionaryIsAnItemThatAllOfThemHave) {
  EXPECT_THAT(of("LIST DICT ORDERS H").candidates, ElementsAre("HDR-SUPP", "HEADING"));
  EXPECT_THAT(of("COUNT DICT ORDERS WITH T").candidates, ElementsAre("TYPE"));
}

TEST(Completion, BehindFormatIsAFormat) {
  EXPECT_THAT(of("\\format t").candidates, ElementsAre("table", "tsv"));
  EXPECT_THAT(of("\\format table t").candidates, IsEmpty());
}

TEST(Completion, OfAnOptionIsTakenFromTheTable) {
  EXPECT_THAT(of("\\read ORDERS --lo").candidates, ElementsAre("--lock"));
  EXPECT_THAT(of("\\read --lock s").candidates, ElementsAre("shared"));
  EXPECT_THAT(of("\\xa c").candidates, ElementsAre("commit"));
  EXPECT_THAT(of("\\read P").candidates, ElementsAre("PEOPLE"));
}

TEST(Completion, OfNonsenseIsNothing) {
  EXPECT_THAT(of("XYZZY foo").candidates, IsEmpty());
  EXPECT_THAT(of("\\nonsense x").candidates, IsEmpty());
  EXPECT_THAT(of("").candidates, Not(IsEmpty()));
}

TEST(CommonBegin, IsWhatAllShare) {
  EXPECT_EQ(commonBegin({"ORDERS", "ORDINAL", "OR"}), "OR");
  EXPECT_EQ(commonBegin({"A"}), "A");
  EXPECT_EQ(commonBegin({"A", "B"}), "");
  EXPECT_EQ(commonBegin({}), "");
}

}  // namespace
}  // namespace nox::command
