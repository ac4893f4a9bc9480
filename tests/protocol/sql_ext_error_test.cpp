#include "nox/protocol/sql_ext_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nox/core/exceptions.h"
#include "tests/protocol/protocol_classes.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using test::bytes;
using test::caught;
using test::expectSurvivesDamage;
using test::fieldsOf;
using test::frameOf;
using test::readMessage;
using ::testing::ElementsAre;

std::string stateOf(const SQLExtError& error) {
  return error.getSqlState().sqlClass + "/" + error.getSqlState().sqlSubClass;
}

TEST(SqlExtError, IsNoErrorByDefault) {
  SQLExtError error;
  EXPECT_EQ(stateOf(error), "00/000");
  EXPECT_EQ(error.getMsg(), "No error.");
  EXPECT_EQ(error.getSqlState().getMsg(), "Unknown SQLSTATE");
}

TEST(SqlExtError, TakesTheMessageOfItsCodeFromTheCatalogue) {
  EXPECT_EQ(SQLExtError("22", "012").getMsg(), "Division by zero");
  EXPECT_EQ(SQLExtError(std::string("0A"), std::string("001")).getMsg(),
            "Multiple-server transaction");
  EXPECT_EQ(SQLExtError(SQLSTATE("01", "00B")).getMsg(), "Default value too long for system view");
  EXPECT_EQ(SQLExtError("99", "999").getMsg(), "Unknown SQLSTATE");
}

TEST(SqlExtError, TakesAMessageOfTheCallersWithEveryFormOfCode) {
  std::string sqlClass = "08";
  std::string sqlSubClass = "001";
  std::string msg = "m";
  SQLSTATE state(sqlClass, sqlSubClass);
  for (SQLExtError error : {SQLExtError("08", "001", "m"), SQLExtError("08", "001", msg),
                            SQLExtError(sqlClass, sqlSubClass, msg), SQLExtError(state, "m"),
                            SQLExtError(state, msg)}) {
    EXPECT_EQ(stateOf(error), "08/001");
    EXPECT_EQ(error.getMsg(), "m");
  }
}

TEST(SqlExtError, CountsAMessageAloneAsAnErrorOfTheDatabase) {
  std::string msg = "broken";
  for (SQLExtError error : {SQLExtError("broken"), SQLExtError(msg)}) {
    EXPECT_EQ(stateOf(error), "QX/000");
    EXPECT_EQ(error.getMsg(), "broken");
  }
}

TEST(SqlExtError, TurnsMarksInItsMessageIntoTabs) {
  std::string msg =
      "A\xFE"
      "B\xFD"
      "C\xFC"
      "D\xFB";
  EXPECT_EQ(SQLExtError("IE", "000", msg).getMsg(), "A\tB\tC\tD\xFB");
  EXPECT_EQ(msg,
            "A\xFE"
            "B\xFD"
            "C\xFC"
            "D\xFB");
  EXPECT_EQ(SQLExtError("\xFE").getMsg(), "\t");
  EXPECT_EQ(SQLExtError(SQLSTATE("IE", "000"), "\xFD\xFD").getMsg(), "\t\t");
}

TEST(SqlExtError, SaysUnknownWhenItsMessageIsEmpty) {
  SQLExtError error("IE", "000", "");
  EXPECT_EQ(error.getMsg(), "Unknown internal error");
  EXPECT_THAT(fieldsOf(error),
              ElementsAre("text sqlClass=IE", "text sqlSubClass=000", "text msg="));
}

TEST(SqlExtError, TakesNullTextsAsEmpty) {
  SQLExtError error("22", "012");
  error.setMsg(nullptr);
  EXPECT_EQ(error.getMsg(), "Unknown internal error");
  EXPECT_EQ(stateOf(SQLExtError(nullptr, nullptr)), "/");
  EXPECT_EQ(SQLExtError("22", "012", static_cast<const char*>(nullptr)).getMsg(),
            "Unknown internal error");
}

TEST(SqlExtError, CanBeGivenItsOwnMessage) {
  SQLExtError error("IE", "000", std::string(100, 'x'));
  error.setMsg(error.getMsg().c_str() + 1);
  EXPECT_EQ(error.getMsg(), std::string(99, 'x'));
}

TEST(SqlExtError, KeepsItsOwnMessageApartFromItsCopies) {
  SQLExtError error("22", "012", "mine");
  SQLExtError copy(error);
  SQLExtError assigned;
  assigned = error;
  assigned = *&assigned;
  error.setMsg("changed");
  EXPECT_EQ(copy.getMsg(), "mine");
  EXPECT_EQ(assigned.getMsg(), "mine");
  EXPECT_EQ(stateOf(assigned), "22/012");
}

TEST(SqlExtError, EditingAnErrorLeavesTheCatalogueAlone) {
  SQLExtError error("22", "012");
  error.getMsg() += " here";
  EXPECT_EQ(error.getMsg(), "Division by zero here");
  EXPECT_EQ(SQLExtError("22", "012").getMsg(), "Division by zero");
}

TEST(SqlExtError, TravelsAsClassSubclassMessage) {
  SQLExtError error("0A", "00B", "m");
  const std::string frame = bytes(
      "00 00 00 20  5B"
      "4C  49 00 00 01 93  49 00 00 00 00"  // type 403, version 0
      "73 00 02 30 41 3B"                   // "sqlClass" 0A
      "73 00 03 30 30 42 3B"                // "sqlSubClass" 00B
      "73 00 01 6D 3B"                      // "msg" m
      "3B  5D");
  EXPECT_BYTES(frameOf(error), frame);

  auto read = readMessage<SQLExtError>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(stateOf(*read), "0A/00B");
  EXPECT_EQ(read->getMsg(), "m");
  EXPECT_BYTES(frameOf(*read), frame);
  expectSurvivesDamage(frame);
}

TEST(SqlExtError, NamesItsFields) {
  SQLExtError error("22", "012", "m");
  EXPECT_THAT(fieldsOf(error),
              ElementsAre("text sqlClass=22", "text sqlSubClass=012", "text msg=m"));
}

TEST(SqlExtError, KeepsMarksInAMessageThatIsRead) {
  // U+00FE and a tab; a mark of the database is no UTF-8 and never arrives as one byte.
  auto read = readMessage<SQLExtError>(
      test::framed(bytes("4C 49 00 00 01 93 49 00 00 00 00 73 00 00 3B 73 00 00 3B"
                         "73 00 03 C3 BE 09 3B 3B")));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->getMsg(), "\xC3\xBE\t");
}

TEST(SqlExtError, ReadsAnEmptyMessageAsUnknown) {
  auto read = readMessage<SQLExtError>(test::framed(
      bytes("4C 49 00 00 01 93 49 00 00 00 00 73 00 00 3B 73 00 00 3B 73 00 00 3B 3B")));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->getMsg(), "Unknown internal error");
}

// Reads two texts and fails at the third.
class BreaksAtMessage : public Reader {
public:
  using Reader::process;
  Archive& process(std::string& value, const char* name) override {
    if (std::string(name) == "msg") throw new UnexpectedChar('x', 's');
    value = "99";
    return *this;
  }
  Archive& process(int&, const char*) override { return *this; }
  Archive& process(Serializable*, const char*) override { return *this; }
};

TEST(SqlExtError, ChangesItsStateOnlyAfterTheMessageWasRead) {
  SQLExtError error("22", "012");
  BreaksAtMessage archive;
  EXPECT_TRUE(caught<UnexpectedChar>([&] { error.serialize(archive, 0); }));
  EXPECT_EQ(stateOf(error), "22/012");
}

TEST(SqlExtError, RefusesANullText) {
  const auto error = caught<UnexpectedChar>([] {
    readMessage<SQLExtError>(
        test::framed(bytes("4C 49 00 00 01 93 49 00 00 00 00 4C 49 00 00 00 01 3B 3B")));
  });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getChar(), 'L');
  EXPECT_EQ(error->getExpectedChar(), 's');
}

}  // namespace
}  // namespace nox
