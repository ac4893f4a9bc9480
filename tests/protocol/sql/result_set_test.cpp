#include "nox/protocol/sql/result_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nox/core/binary_reader.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"
#include "nox/diag/logger.h"
#include "tests/protocol/sql/statement_double.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using test::addRows;
using test::batchOf;
using test::bytes;
using test::framed;
using test::frameOf;
using test::StatementDouble;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The first values of all rows that are left.
std::vector<std::string> restOf(ResultSetProt& set) {
  std::vector<std::string> values;
  while (RowProt* const row = set.next()) values.emplace_back(row->getColumnView(0));
  return values;
}

constexpr char kTwoRows[] =
    "4C  49 00 00 00 6A  49 00 00 00 00"
    "49 00 00 00 02"  // "numberOfRows"
    "4C  49 00 00 00 6B  49 00 00 00 00  49 00 00 00 01  6A 62 00 00 00 01 31 3B 3B  3B"
    "4C  49 00 00 00 6B  49 00 00 00 00  49 00 00 00 01  6A 62 00 00 00 01 32 3B 3B  3B"
    "3B";

TEST(ResultSet, IsEmptyByDefault) {
  ResultSetProt set;
  EXPECT_EQ(set.getType(), 106);
  EXPECT_EQ(set.next(), nullptr);
  EXPECT_EQ(set.getMetaData(), nullptr);
  EXPECT_EQ(set.getCurrentRow(), 0u);
  EXPECT_EQ(set.getNumTotalRows(), 0ul);
  test::expectTravelsAs(ResultSetProt(), "4C 49 00 00 00 6A 49 00 00 00 00 49 00 00 00 00 3B");
}

TEST(ResultSet, TravelsAsCountAndRows) {
  ResultSetProt set;
  addRows(set, 2);
  const std::string frame = framed(bytes(kTwoRows));
  EXPECT_BYTES(frameOf(set), frame);

  test::Classes<ResultSetProt, RowProt> factory;
  const auto read = test::readAs<ResultSetProt>(frame, factory);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->getNumTotalRows(), 2ul);
  EXPECT_THAT(restOf(*read), ElementsAre("1", "2"));
  test::expectSurvivesDamage(frame, factory);
}

TEST(ResultSet, NamesItsRowsWhenReadingOnly) {
  ResultSetProt set;
  addRows(set, 1);
  EXPECT_THAT(test::fieldsOf(set), ElementsAre("int numberOfRows=1", "object -=type 107 version 0",
                                               "int numberOfFields=1", "blob -=31", "end"));
  test::RecordingReader reader;
  reader.setInt(2);
  ResultSetProt(nullptr).serialize(reader, 0);
  EXPECT_THAT(reader.lines(), ElementsAre("int numberOfRows", "object row", "object row"));
}

TEST(ResultSet, HandsOutItsRowsInOrder) {
  ResultSetProt set;
  addRows(set, 2);
  RowProt* const first = set.next();
  EXPECT_EQ(set.getCurrentRow(), 1u);
  EXPECT_EQ(first->getResultSet(), &set);
  EXPECT_EQ(set.next()->getColumnView(0), "2");
  EXPECT_EQ(first->getColumnView(0), "1");  // rows stay
  EXPECT_EQ(set.next(), nullptr);
  EXPECT_EQ(set.getCurrentRow(), 2u);
}

TEST(ResultSet, AFullBatchAsksTheStatementForMore) {
  StatementDouble statement;
  statement.setFetchSize(100);
  statement.batches.push_back(batchOf(&statement, 40, 101));
  const auto set = batchOf(&statement, 100);
  EXPECT_EQ(restOf(*set).size(), 140u);
  EXPECT_EQ(statement.fetches, 1);
  EXPECT_EQ(set->getNumTotalRows(), 140ul);
}

TEST(ResultSet, AnEmptyBatchAsksTheStatementForMore) {
  StatementDouble statement;
  statement.batches.push_back(batchOf(&statement, 1, 7));
  const auto set = batchOf(&statement, 0);
  EXPECT_THAT(restOf(*set), ElementsAre("7"));
}

TEST(ResultSet, AShortBatchEndsTheResult) {
  StatementDouble statement;
  statement.setFetchSize(100);
  statement.batches.push_back(batchOf(&statement, 1));
  EXPECT_EQ(restOf(*batchOf(&statement, 40)).size(), 40u);
  EXPECT_EQ(statement.fetches, 0);
}

TEST(ResultSet, MoreRowsThanTheFetchSizeAreNoFullBatch) {
  StatementDouble statement;
  statement.setFetchSize(2);
  EXPECT_EQ(restOf(*batchOf(&statement, 3)).size(), 3u);
  EXPECT_EQ(statement.fetches, 0);
}

TEST(ResultSet, EachFurtherCallAsksAgain) {
  StatementDouble statement;
  const auto set = batchOf(&statement, 0);
  EXPECT_EQ(set->next(), nullptr);
  EXPECT_EQ(set->next(), nullptr);
  EXPECT_EQ(statement.fetches, 2);
}

TEST(ResultSet, ASetOfTheSameChainIsNoContinuation) {
  StatementDouble statement;
  const auto set = batchOf(&statement, 0);
  statement.again = set.get();
  EXPECT_EQ(set->next(), nullptr);

  statement.again = nullptr;
  statement.batches.push_back(batchOf(&statement, 0));
  ResultSetProt* const continuation = statement.batches.front().get();
  EXPECT_EQ(set->next(), nullptr);
  statement.again = continuation;
  EXPECT_EQ(set->next(), nullptr);
}

TEST(ResultSet, ALongChainOfBatchesDoesNotDeepenTheStack) {
  StatementDouble statement;
  statement.setFetchSize(1);
  constexpr int kBatches = 100000;
  for (int i = 0; i < kBatches; ++i) statement.batches.push_back(batchOf(&statement, i % 2));
  const auto set = batchOf(&statement, 0);
  EXPECT_EQ(restOf(*set).size(), static_cast<std::size_t>(kBatches / 2));
  EXPECT_EQ(set->getNumTotalRows(), static_cast<unsigned long>(kBatches / 2));
}

TEST(ResultSet, ALongChainOfRefinedSetsDoesNotDeepenTheStackEither) {
  struct Refined : ResultSetProt {};
  struct : StatementDouble {
    noxp::sql::ResultSetProt* fetchNextResultSet() override {
      if (left-- == 0) return nullptr;
      auto set = std::make_unique<Refined>();
      set->setStatement(this);
      addRows(*set, 1);
      return set.release();
    }
    int left = 100000;
  } statement;
  statement.setFetchSize(1);
  ResultSetProt set(&statement);
  std::size_t rows = 0;
  while (set.next()) ++rows;
  EXPECT_EQ(rows, 100000u);
}

TEST(ResultSet, ACursorOfTypeOneKeepsTheCurrentRowOnly) {
  StatementDouble statement;
  statement.setCursorType(1);
  auto set = batchOf(&statement, 0);
  struct Watched : RowProt {
    explicit Watched(int& alive) : alive_(alive) { ++alive_; }
    ~Watched() override { --alive_; }
    int& alive_;
  };
  int alive = 0;
  for (int i = 0; i < 4; ++i) set->addRow(new Watched(alive));
  set->next();
  set->next();
  EXPECT_EQ(alive, 3);
  set->next();
  EXPECT_EQ(alive, 2);  // the third row, and the fourth that is still to come
  set.reset();
  EXPECT_EQ(alive, 0);
}

TEST(ResultSet, WritingPullsAndDeletesEveryRowOfEveryBatch) {
  for (const int cursorType : {0, 1}) {
    StatementDouble statement;
    statement.setCursorType(cursorType);
    statement.setFetchSize(1);
    statement.batches.push_back(batchOf(&statement, 1, 2));
    const auto set = batchOf(&statement, 1);
    EXPECT_BYTES(frameOf(*set), framed(bytes(kTwoRows)));
    EXPECT_EQ(set->getCurrentRow(), 2u);
    EXPECT_EQ(set->next(), nullptr);
    EXPECT_THAT(test::fieldsOf(*set), ElementsAre("int numberOfRows=0"));
  }
}

TEST(ResultSet, AWrittenSetAsksForNoMoreUntilItGetsRowsAgain) {
  StatementDouble statement;
  statement.setFetchSize(1);
  statement.batches.push_back(batchOf(&statement, 1, 2));
  const auto set = batchOf(&statement, 1);
  frameOf(*set);
  statement.batches.push_back(batchOf(&statement, 1, 3));  // the last batch was a full one
  EXPECT_EQ(set->next(), nullptr);

  addRows(*set, 1, 7);
  EXPECT_EQ(set->getNumTotalRows(), 1ul);
  EXPECT_EQ(restOf(*set).size(), 2u);
}

TEST(ResultSet, WritesOnlyTheRowsThatAreLeft) {
  ResultSetProt set;
  addRows(set, 3, 0);
  set.next();
  EXPECT_BYTES(frameOf(set), framed(bytes(kTwoRows)));
}

TEST(ResultSet, AnOverridingNextMayMakeOrFilterRows) {
  struct EverySecond : ResultSetProt {
    RowProt* next() override {
      ResultSetProt::next();
      return ResultSetProt::next();
    }
  };
  EverySecond filtered;
  addRows(filtered, 4);
  EXPECT_THAT(test::fieldsOf(filtered), Contains("int numberOfRows=2"));

  struct Counting : ResultSetProt {
    RowProt* next() override {
      if (count == 2) return nullptr;
      auto* const row = new RowProt(this);
      row->addColumnValue(std::to_string(++count));
      return row;
    }
    int count = 0;
  };
  Counting made;
  EXPECT_BYTES(frameOf(made), framed(bytes(kTwoRows)));
}

TEST(ResultSet, AsksTheStatementForItsDescriptionOnce) {
  ResultSetMetaDataProt description;
  StatementDouble statement;
  const auto set = batchOf(&statement, 0);
  EXPECT_EQ(set->getMetaData(), nullptr);
  statement.metaData = &description;
  EXPECT_EQ(set->getMetaData(), &description);
  EXPECT_EQ(set->getMetaData(), &description);
  EXPECT_EQ(statement.descriptions, 2);
}

TEST(ResultSet, FindsColumnsByTheStatementsDescription) {
  ResultSetMetaDataProt description;
  auto* const column = new ColumnMetaDataProt;
  column->setColumnName("NUMBER");
  description.addColumn(column);
  StatementDouble statement;
  statement.metaData = &description;
  const auto set = batchOf(&statement, 1, 5);
  RowProt* const row = set->next();
  ASSERT_NE(row->getColumnValue("NUMBER"), nullptr);
  EXPECT_EQ(row->getColumnValue("NUMBER"), row->getData()[0]);
  EXPECT_EQ(row->getColumnValue("OTHER"), nullptr);
}

TEST(ResultSet, ReadingReplacesRowsAndContinuation) {
  StatementDouble statement;
  statement.setFetchSize(1);
  statement.batches.push_back(batchOf(&statement, 1, 2));
  const auto set = batchOf(&statement, 1);
  restOf(*set);
  EXPECT_EQ(set->getNumTotalRows(), 2ul);

  test::Classes<> factory;
  const std::string frame = framed(bytes("4C 49 00 00 00 6A 49 00 00 00 00 49 00 00 00 00 3B"));
  MemoryBufferInputStream in(frame.data() + 5, frame.size() - 5);
  BinaryReader(&factory, &in).readObject(set.get());
  EXPECT_EQ(set->getNumTotalRows(), 0ul);
  EXPECT_EQ(set->getCurrentRow(), 0u);
}

TEST(ResultSet, ReadWithAStatementIsFedByItAfterTheBatch) {
  StatementDouble statement;
  statement.setFetchSize(2);
  statement.batches.push_back(batchOf(&statement, 1, 3));
  test::Classes<ResultSetProt> factory;
  const auto set = test::readAs<ResultSetProt>(framed(bytes(kTwoRows)), factory);
  set->setStatement(&statement);
  EXPECT_THAT(restOf(*set), ElementsAre("1", "2", "3"));
}

TEST(ResultSet, RowsOutliveTheBytesTheyWereReadFrom) {
  test::Classes<ResultSetProt> factory;
  auto frame = std::make_unique<std::string>(framed(bytes(kTwoRows)));
  const auto set = test::readAs<ResultSetProt>(*frame, factory);
  frame.reset();
  EXPECT_THAT(restOf(*set), ElementsAre("1", "2"));
}

TEST(ResultSet, RowsSurviveTheNextFrameOfTheirReader) {
  /// A connection that is not known to be memory.
  struct Connection : InputStream {
    explicit Connection(std::string all) : bytes(std::move(all)) {}
    std::int64_t readMax(char* buf, int max) override {
      const std::size_t n = bytes.copy(buf, static_cast<std::size_t>(max), position);
      position += n;
      return static_cast<std::int64_t>(n);
    }
    std::int64_t readMax(char* buf, int max, int) override { return readMax(buf, max); }
    std::string bytes;
    std::size_t position = 0;
  };
  ResultSetProt other;
  addRows(other, 2, 8);
  Connection connection(framed(bytes(kTwoRows)) + frameOf(other));
  test::Classes<ResultSetProt> factory;
  BinaryReader reader(&factory, &connection);
  const std::unique_ptr<Serializable> first(reader.readRootObject());
  const std::unique_ptr<Serializable> second(reader.readRootObject());
  EXPECT_THAT(restOf(dynamic_cast<ResultSetProt&>(*first)), ElementsAre("1", "2"));
  EXPECT_THAT(restOf(dynamic_cast<ResultSetProt&>(*second)), ElementsAre("8", "9"));
}

TEST(ResultSet, ValuesPassThroughAReaderThatRefinesTheLibrarys) {
  struct Counting : BinaryReader {
    using BinaryReader::BinaryReader;
    using BinaryReader::process;
    Archive& process(NOXPBlob* value, const char* name) override {
      ++values;
      return BinaryReader::process(value, name);
    }
    int values = 0;
  };
  const std::string frame = framed(bytes(kTwoRows));
  MemoryBufferInputStream in(frame.data(), frame.size());
  test::Classes<ResultSetProt> factory;
  Counting reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_EQ(reader.values, 2);
  auto* const set = dynamic_cast<ResultSetProt*>(root.get());
  ASSERT_NE(set, nullptr);
  EXPECT_THAT(restOf(*set), ElementsAre("1", "2"));
}

TEST(ResultSet, ReadRowsCostOneAllocationEach) {
  if (kLoggerOutput) GTEST_SKIP() << "log lines allocate";
  ResultSetProt set;
  addRows(set, 100);
  const std::string frame = frameOf(set);
  test::Classes<ResultSetProt> factory;
  MemoryBufferInputStream in(frame.data(), frame.size());
  BinaryReader reader(&factory, &in);
  const test::AllocationScope counter;
  const std::unique_ptr<Serializable> read(reader.readRootObject());
  // The set, its list of rows, the frame and its stream; besides them the rows alone.
  EXPECT_LE(counter.count(), 100u + 6u);
}

TEST(ResultSet, BlobsOfRowsThatWereReadLieTogether) {
  constexpr int kRows = 300;
  ResultSetProt set;
  addRows(set, kRows);
  auto* const wide = new RowProt(&set);
  wide->addColumnValue(std::string(2000, 'w'));
  set.addRow(wide);
  const std::string frame = frameOf(set);
  test::Classes<ResultSetProt> factory;
  auto read = test::readAs<ResultSetProt>(frame, factory);
  ASSERT_NE(read, nullptr);

  const test::AllocationScope allocated;
  std::vector<NOXPBlob*> blobs;
  blobs.reserve(kRows + 1);
  while (RowProt* const row = read->next()) blobs.push_back(row->getColumnValue(0));
  EXPECT_LT(allocated.count(), 16u);  // a few blocks and the wide value, not one for each row

  ASSERT_EQ(blobs.size(), static_cast<std::size_t>(kRows) + 1);
  blobs[0]->append(std::string(1000, 'x').c_str());  // may grow like any blob
  EXPECT_EQ(blobs[0]->length(), 1001u);
  EXPECT_EQ(blobs[kRows - 1]->length(), 3u);
  EXPECT_EQ(blobs[kRows]->length(), 2000u);
  read->deleteRows();
  EXPECT_EQ(read->next(), nullptr);
}

TEST(ResultSet, AFalseCountEndsWhereTheRowsEnd) {
  test::Classes<ResultSetProt> factory;
  const auto read = [&](const char* count) {
    return test::outcomeOf(
        framed(bytes(std::string("4C 49 00 00 00 6A 49 00 00 00 00 49 ") + count + " 3B")),
        factory);
  };
  EXPECT_EQ(read("7F FF FF FF"), "UnexpectedChar");
  EXPECT_EQ(read("FF FF FF FF"), "object");
}

TEST(ResultSet, ANullRowArrivesWithoutValues) {
  test::Classes<ResultSetProt> factory;
  const auto set = test::readAs<ResultSetProt>(
      framed(bytes("4C 49 00 00 00 6A 49 00 00 00 00 49 00 00 00 01 4C 49 00 00 00 01 3B 3B")),
      factory);
  RowProt* const row = set->next();
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->getData(), nullptr);
}

TEST(ResultSet, DeleteRowsForgetsThisBatch) {
  ResultSetProt set;
  addRows(set, 2);
  set.next();
  set.deleteRows();
  EXPECT_EQ(set.getCurrentRow(), 0u);
  EXPECT_EQ(set.getNumTotalRows(), 0ul);
  EXPECT_EQ(set.next(), nullptr);
}

TEST(ResultSet, SaysHowManyRowsTravelled) {
  ResultSetProt set;
  addRows(set, 2);
  std::string frame;
  const auto written = test::logged([&] { frame = frameOf(set); });
  test::Classes<ResultSetProt> factory;
  const auto read = test::logged([&] { test::readFrame(frame, factory); });
  if (kLoggerOutput) {
    EXPECT_THAT(written, Contains("FETCH 2 row(s)"));
    EXPECT_THAT(read, Contains("FETCH 2 row(s)"));
  }
}

}  // namespace
}  // namespace nox::noxp::sql
