// Items: where commands find them, and what becomes of those that are not as they should be.
#include <gmock/gmock.h>

#include <string>

#include "commands_fixture.h"

namespace nox::agent::test {
namespace {

class DictionaryTest : public CommandsTest {};

TEST_F(DictionaryTest, AnUnknownItemIsAnErrorThatNamesIt) {
  EXPECT_EQ(run("LIST CUSTOMERS NAMES"),
            "IE/011: \"NAMES\" at character 16: there is no such item in the dictionary");
  EXPECT_EQ(run("LIST CUSTOMERS name"),
            "IE/011: \"name\" at character 16: there is no such item in the dictionary");
  EXPECT_EQ(run("COUNT CUSTOMERS WITH NAMES = x"),
            "IE/011: \"NAMES\" at character 22: there is no such item in the dictionary");
  EXPECT_EQ(run("SELECT CUSTOMERS BY NAMES"),
            "IE/011: \"NAMES\" at character 21: there is no such item in the dictionary");
}

TEST_F(DictionaryTest, ANameThatIsTooLongForAnIdIsUnknownToo) {
  EXPECT_EQ(run("LIST CUSTOMERS " + std::string(300, 'x')),
            "IE/011: \"" + std::string(60, 'x') +
                "...\" at character 16: there is no such item in the dictionary");
}

TEST_F(DictionaryTest, ARecordThatDefinesNoItemIsAnErrorWithAReason) {
  makeFile("DICT CUSTOMERS", {{"BAD", "D^one"}, {"WORSE", "Q^1"}});
  EXPECT_EQ(run("LIST CUSTOMERS BAD"),
            "IE/011: item \"BAD\": attribute 2 is \"one\" and not the number of an attribute");
  EXPECT_EQ(run("COUNT CUSTOMERS WITH WORSE"),
            "IE/011: item \"WORSE\": attribute 1 is \"Q\" and not D or I");
}

TEST_F(DictionaryTest, AnExpressionThatIsNoneIsAnError) {
  makeFile("DICT CUSTOMERS", {{"BAD", "I^1 +"}});
  EXPECT_THAT(run("LIST CUSTOMERS BAD"), ::testing::StartsWith("IE/011: item \"BAD\": "));
}

TEST_F(DictionaryTest, AnExpressionThatFailsIsAnError) {
  makeFile("DICT CUSTOMERS", {{"BAD", "I^error(\"not today\")"}});
  EXPECT_THAT(run("LIST CUSTOMERS BAD"), ::testing::AllOf(::testing::StartsWith("IE/011: "),
                                                          ::testing::HasSubstr("not today")));
}

TEST_F(DictionaryTest, AnExpressionsAttributesAreItsValues) {
  makeFile("DICT CUSTOMERS", {{"ALL", "I^id .. nox.AM .. id^^^^M"}});
  EXPECT_EQ(run("LIST CUSTOMERS '2' ALL HDR-SUPP"), "2 2\n  2\n\n1 records listed");
}

TEST_F(DictionaryTest, TheIdAlwaysExists) {
  EXPECT_EQ(run("LIST CUSTOMERS '1' @ID HDR-SUPP"), "1\n\n1 records listed");
}

TEST_F(DictionaryTest, ARecordSaysHowTheIdIsShown) {
  makeFile("DICT CUSTOMERS", {{"@ID", "D^0^MD0,^Number^8R^S"}});
  makeFile("CUSTOMERS", {{"1000", "Lee"}});
  EXPECT_EQ(run("LIST CUSTOMERS '1' '1000' NAME"),
            "  Number Name\n"
            "       1 Smith\n"
            "   1,000 Lee\n"
            "\n"
            "2 records listed");
}

TEST_F(DictionaryTest, ARecordThatSaysNothingOfTheIdLeavesItAsItIs) {
  for (const char* const record : {"Q", "D^1^^Name^8L", "I^id", "D^0^Q7"}) {
    makeFile("DICT CUSTOMERS", {{"@ID", record}});
    EXPECT_EQ(run("LIST CUSTOMERS '1'"), "@ID\n1\n\n1 records listed") << record;
  }
}

TEST_F(DictionaryTest, AnItemCalledByAnOperatorsSignIsAnItem) {
  makeFile("DICT CUSTOMERS", {{"PO#", "D^1"}});
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH PO# = Jones"), "2");
}

TEST_F(DictionaryTest, NumberZeroIsTheIdUnderAnotherName) {
  makeFile("DICT CUSTOMERS", {{"KEY", "D^0^^Key^4R"}});
  EXPECT_EQ(keys("SELECT CUSTOMERS WITH KEY > 2 BY-DSND KEY"), "10 3");
}

}  // namespace
}  // namespace nox::agent::test
