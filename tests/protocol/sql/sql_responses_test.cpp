#include "nox/protocol/sql/sql_responses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/protocol/sql/statement_double.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using test::bytes;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using ::testing::Contains;
using ::testing::ElementsAre;

TEST(SQLResponse, NamesItsStatement) {
  EXPECT_EQ(SQLResponseProt().getStatementId(), 0);
  expectTravelsAs(SQLResponseProt(5), "4C  49 00 00 00 71  49 00 00 00 00  49 00 00 00 05  3B");
}

TEST(SQLOKResponse, CarriesOKWhichNobodyChecks) {
  SQLOKResponseProt ok(5);
  EXPECT_THAT(fieldsOf(ok), ElementsAre("int statementId=5", "text OK=OK"));
  expectTravelsAs(ok, "4C  49 00 00 00 72  49 00 00 00 00  49 00 00 00 05  73 00 02 4F 4B 3B  3B");
  test::Classes<SQLOKResponseProt> factory;
  const auto read = test::readAs<SQLOKResponseProt>(
      framed(bytes("4C 49 00 00 00 72 49 00 00 00 00 49 00 00 00 05 73 00 02 4E 4F 3B 3B")),
      factory);
  EXPECT_THAT(fieldsOf(*read), ElementsAre("int statementId=5", "text OK=OK"));
}

TEST(SQLUpdateResponse, CarriesTheCount) {
  SQLUpdateResponseProt update(9, 42);
  EXPECT_EQ(update.getUpdateCount(), 42);
  EXPECT_THAT(fieldsOf(update), ElementsAre("int statementId=9", "int updateCount=42"));
  expectTravelsAs(update, "4C  49 00 00 00 73  49 00 00 00 00  49 00 00 00 09  49 00 00 00 2A  3B");
  EXPECT_EQ(SQLUpdateResponseProt().getUpdateCount(), 0);
}

constexpr char kOneRow[] =
    "4C  49 00 00 00 74  49 00 00 00 00  49 00 00 00 03"
    "4C  49 00 00 00 6A  49 00 00 00 00  49 00 00 00 01"
    "4C  49 00 00 00 6B  49 00 00 00 00  49 00 00 00 01  6A 62 00 00 00 01 31 3B 3B  3B"
    "3B  3B";

TEST(SQLResultResponse, CarriesRows) {
  ResultSetProt rows;
  test::addRows(rows, 1);
  SQLResultResponseProt reply(3, &rows);
  const std::string frame = framed(bytes(kOneRow));
  EXPECT_BYTES(frameOf(reply), frame);
  EXPECT_EQ(rows.next(), nullptr);  // writing the reply used the rows up

  test::Classes<SQLResultResponseProt, ResultSetProt, RowProt> factory;
  const auto read = test::readAs<SQLResultResponseProt>(frame, factory);
  EXPECT_EQ(read->getStatementId(), 3);
  EXPECT_EQ(read->getResultSet()->next()->getColumnView(0), "1");
  test::expectSurvivesDamage(frame, factory);
}

/// Counts the objects of its class that are alive.
template <class Base>
struct Counted : Base {
  Counted() { ++alive; }
  ~Counted() override { --alive; }
  static inline int alive = 0;
};

TEST(SQLResultResponse, LeavesTheSendersRowsAlone) {
  auto* const rows = new Counted<ResultSetProt>;
  { const SQLResultResponseProt reply(3, rows); }
  EXPECT_EQ(Counted<ResultSetProt>::alive, 1);
  {
    const std::unique_ptr<ResponseProt> made(SQLResultResponseProt::resultSet(3, rows));
    EXPECT_EQ(made->getType(), 116);
  }
  EXPECT_EQ(Counted<ResultSetProt>::alive, 1);
  delete rows;
}

TEST(SQLResultResponse, HandsOverWhatItRead) {
  test::Classes<SQLResultResponseProt> factory;
  auto read = test::readAs<SQLResultResponseProt>(framed(bytes(kOneRow)), factory);
  ResultSetProt* const rows = read->getResultSet();
  const std::unique_ptr<ResultSetProt> retrieved(read->retrieveResultSet());
  EXPECT_EQ(retrieved.get(), rows);
  EXPECT_EQ(read->getResultSet(), nullptr);
  read.reset();
  EXPECT_EQ(retrieved->next()->getColumnView(0), "1");
}

TEST(SQLResultResponse, ACopyBorrowsTheSameObject) {
  test::Classes<SQLResultResponseProt> factory;
  const auto read = test::readAs<SQLResultResponseProt>(framed(bytes(kOneRow)), factory);
  {
    const SQLResultResponseProt copy(*read);
    EXPECT_EQ(copy.getResultSet(), read->getResultSet());
    SQLResultResponseProt assigned;
    assigned = *read;
    EXPECT_EQ(assigned.getResultSet(), read->getResultSet());
    EXPECT_EQ(assigned.getStatementId(), 3);
  }
  const SQLResultResponseProt& itself = *read;
  *read = itself;
  ASSERT_NE(read->getResultSet(), nullptr);
  EXPECT_EQ(read->getResultSet()->getNumTotalRows(), 1ul);
}

TEST(SQLResultResponse, KeepsItsObjectWhenABorrowersCopyIsGivenBack) {
  test::Classes<SQLResultResponseProt> factory;
  const auto read = test::readAs<SQLResultResponseProt>(framed(bytes(kOneRow)), factory);
  const SQLResultResponseProt borrower(*read);
  *read = borrower;
  EXPECT_EQ(read->getResultSet()->getNumTotalRows(), 1ul);
}

TEST(SQLResultResponse, ReadingTwiceFreesWhatWasReadFirst) {
  test::Classes<> factory;
  SQLResultResponseProt reply;
  for (int i = 0; i < 2; ++i) {
    const std::string body = bytes(kOneRow);
    MemoryBufferInputStream in(body.data(), body.size());
    BinaryReader(&factory, &in).readObject(&reply);
    EXPECT_EQ(reply.getResultSet()->getNumTotalRows(), 1ul);
  }
}

TEST(SQLResultResponse, ANullObjectLeavesAnEmptySet) {
  SQLResultResponseProt none(3, nullptr);
  EXPECT_THAT(fieldsOf(none), ElementsAre("int statementId=3", "object rs=null"));
  const auto read = test::roundTrip(none);
  ASSERT_NE(read->getResultSet(), nullptr);
  EXPECT_EQ(read->getResultSet()->getNumTotalRows(), 0ul);
}

TEST(SQLRSMDResponse, CarriesADescription) {
  ResultSetMetaDataProt description;
  SQLRSMDResponseProt reply(4, &description);
  EXPECT_EQ(reply.getResultSetMetaData(), &description);
  expectTravelsAs<ResultSetMetaDataProt>(
      reply,
      "4C  49 00 00 00 75  49 00 00 00 00  49 00 00 00 04"
      "4C  49 00 00 00 68  49 00 00 00 00  49 00 00 00 00  3B  3B");
  EXPECT_EQ(fieldsOf(reply)[1], "object rsmd=type 104 version 0");
  const std::unique_ptr<ResponseProt> made(SQLRSMDResponseProt::resultSetMetaData(4, &description));
  EXPECT_EQ(made->getType(), 117);
  const auto read = test::roundTrip(reply);
  const std::unique_ptr<ResultSetMetaDataProt> taken(read->retrieveResultSetMetaData());
  EXPECT_NE(taken, nullptr);
  EXPECT_EQ(read->getResultSetMetaData(), nullptr);
}

TEST(SQLRSMDResponse, TheDescriptionsOwnVersionDecidesItsLayout) {
  ResultSetMetaDataProt description;
  description.addParameter(new ColumnMetaDataProt);
  SQLRSMDResponseProt reply(4, &description);
  reply.setClassVersion(2);
  EXPECT_EQ(test::roundTrip(reply)->getResultSetMetaData()->getNumberOfParameters(), 0);
  reply.setClassVersion(0);
  description.setClassVersion(2);
  EXPECT_EQ(test::roundTrip(reply)->getResultSetMetaData()->getNumberOfParameters(), 1);
}

TEST(SQLParamsResponse, CarriesParameters) {
  ACEBinaryFormatParameterListProt list(1);
  list.setString(0, "x", 12);
  SQLParamsResponseProt reply(4, &list);
  EXPECT_EQ(reply.getParameterList(), &list);
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      reply,
      "4C  49 00 00 00 76  49 00 00 00 00  49 00 00 00 04"
      "4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 01"
      "49 00 00 00 0C  49 00 00 00 00  6A 62 00 00 00 01 78 3B 3B  3B  3B");
  EXPECT_EQ(fieldsOf(reply)[1], "object parameterList=type 103 version 0");
  const std::unique_ptr<ResponseProt> made(SQLParamsResponseProt::callResults(4, &list));
  EXPECT_EQ(made->getType(), 118);
  const auto read = test::roundTrip(reply);
  const std::unique_ptr<ParameterListProt> taken(read->retrieveParameterList());
  EXPECT_EQ(taken->count(), 1u);
}

TEST(SQLErrorResponse, CarriesACopyOfTheError) {
  SQLExtError error("42", "000", "bad");
  SQLErrorResponseProt reply(6, error);
  error.setMsg("changed");
  EXPECT_EQ(reply.getError()->getMsg(), "bad");
  expectTravelsAs<SQLExtError>(
      reply,
      "4C  49 00 00 00 77  49 00 00 00 00  49 00 00 00 06"
      "4C  49 00 00 01 93  49 00 00 00 00"
      "73 00 02 34 32 3B  73 00 03 30 30 30 3B  73 00 03 62 61 64 3B  3B  3B");
  EXPECT_EQ(fieldsOf(reply)[1], "object err=type 403 version 0");
}

TEST(SQLErrorResponse, HasADefaultErrorOnceItWasRead) {
  SQLErrorResponseProt none;
  EXPECT_EQ(none.getError(), nullptr);
  EXPECT_THAT(fieldsOf(none), ElementsAre("int statementId=0", "object err=null"));
  const auto read = test::roundTrip(none);
  ASSERT_NE(read->getError(), nullptr);
  EXPECT_EQ(read->getError()->getMsg(), "No error.");
}

TEST(SQLErrorResponse, LogsItsMessage) {
  SQLExtError error("22", "012", "Division by zero");
  const auto lines = test::logged([&] {
    const SQLErrorResponseProt plain(1, error);
    const SQLErrorResponseProt placed(1, error, "RequestProt", 75);
  });
  if (kLoggerOutput) {
    EXPECT_THAT(lines, Contains(" Division by zero"));
    EXPECT_THAT(lines, Contains("Division by zeroRequestProt75"));
  }
}

TEST(LegacySQLResponse, WritesPlaceholdersAlone) {
  LegacySQLResponseProt legacy;
  EXPECT_THAT(fieldsOf(legacy),
              ElementsAre("object rs=null", "object rsmd=null", "string statementId=null",
                          "int updateCount=0", "int wasAnUpdate=0", "object parameterList=null"));
  expectTravelsAs(legacy,
                  "4C  49 00 00 00 65  49 00 00 00 00"
                  "4C 49 00 00 00 01 3B  4C 49 00 00 00 01 3B  4C 49 00 00 00 01 3B"
                  "49 00 00 00 00  49 00 00 00 00  4C 49 00 00 00 01 3B  3B");
}

TEST(LegacySQLResponse, DropsWhatArrivesInThem) {
  test::Classes<LegacySQLResponseProt, ResultSetProt, SQLExtError> factory;
  const auto read = test::readAs<LegacySQLResponseProt>(
      framed(bytes("4C  49 00 00 00 65  49 00 00 00 00"
                   "4C  49 00 00 00 6A  49 00 00 00 00  49 00 00 00 00  3B"  // a result set
                   "4C 49 00 00 00 01 3B"
                   "73 00 01 37 3B"  // a statement id
                   "49 00 00 00 05  49 00 00 00 06"
                   "4C 49 00 00 00 01 3B  3B")),
      factory);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(fieldsOf(*read)[3], "int updateCount=0");
}

TEST(LegacySQLResponse, NestedInItselfEndsAtTheDepthLimit) {
  test::Classes<LegacySQLResponseProt> factory;
  std::string body;
  for (int i = 0; i < 100000; ++i) body += bytes("4C 49 00 00 00 65 49 00 00 00 00");
  EXPECT_EQ(test::outcomeOf(framed(body), factory), "depth <= 512");
}

TEST(SqlReplies, Copy) {
  expectCopies(SQLResponseProt(1));
  expectCopies(SQLOKResponseProt(1));
  expectCopies(SQLUpdateResponseProt(1, 2));
  expectCopies(SQLErrorResponseProt(1, SQLExtError("42", "000", "bad")));
  expectCopies(SQLErrorResponseProt());
  expectCopies(LegacySQLResponseProt());
  ACEBinaryFormatParameterListProt list(1);
  list.setString(0, "x", 12);
  expectCopies(SQLParamsResponseProt(1, &list));
  ResultSetMetaDataProt description;
  expectCopies(SQLRSMDResponseProt(1, &description));
}

}  // namespace
}  // namespace nox::noxp::sql
