#include "agent/sql/row_batches.h"

#include <algorithm>
#include <vector>

#include "agent/failure.h"
#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

using noxp::sql::ResultSetProt;
using noxp::sql::RowProt;
using noxp::sql::SQLResultResponseProt;

/// Numbers from 1 up, and what became of their source.
class Numbers : public SqlRows {
public:
  explicit Numbers(int last) : last_(last) {}

  const SqlRow* next() override {
    if (closed || given == last_) {
      closed = true;
      return nullptr;
    }
    if (given == failsAfter) {
      closed = true;
      throw StoreError(StoreError::Kind::Interrupted, "no more");
    }
    ++given;
    text_ = std::string(static_cast<std::size_t>(given == longAt ? 5'000 : 1),
                        static_cast<char>('0' + given % 10));
    row_ = {std::string_view(text_), std::nullopt};
    return &row_;
  }
  void close() override { closed = true; }

  int given = 0;
  bool closed = false;
  int failsAfter = -1;
  int longAt = -1;

private:
  const int last_;
  std::string text_;
  SqlRow row_;
};

std::string frameOf(ResultSetProt& set) {
  SQLResultResponseProt reply(1, &set);
  MemoryBufferOutStream frame;
  BinaryWriter(&frame).writeRoot(reply);
  return frame.str();
}

/// What a client reads of a column.
std::string valuesIn(std::string frame, int column = 0) {
  ClientObjectFactory factory;
  MemoryBufferInputStream in(frame.data(), frame.size());
  const std::unique_ptr<Serializable> reply(BinaryReader(&factory, &in).readRootObject());
  ResultSetProt& set = *dynamic_cast<SQLResultResponseProt&>(*reply).getResultSet();
  std::string text;
  while (RowProt* const row = set.next()) text += row->getColumnView(column);
  return text;
}

std::string firstValues(EncodedRows& set) { return valuesIn(frameOf(set)); }

std::chrono::steady_clock::time_point never() {
  return std::chrono::steady_clock::time_point::max();
}

const RowBatches::Bounds kWide{1u << 20, false};

TEST(EncodedRows, TravelAsTheRowsOfAnySet) {
  ResultSetProt plain;
  EncodedRows encoded;
  const std::string longText(100'000, 'x');
  for (const std::string& text : {std::string("a"), std::string(), longText}) {
    const SqlRow row = {std::string_view(text), std::nullopt, std::string_view("\0;]", 3)};
    auto same = std::make_unique<RowProt>();
    for (const auto& value : row) same->addColumnValue(value ? *value : "null");
    plain.addRow(same.release());
    encoded.add(row, "null");
  }
  plain.addRow([] {
    auto empty = std::make_unique<RowProt>();
    empty->addColumnValue("");
    return empty.release();
  }());
  encoded.add({std::string_view()}, "");
  const std::size_t bytes = encoded.bytes();
  const std::string frame = frameOf(encoded);
  EXPECT_EQ(frame, frameOf(plain));
  EXPECT_EQ(frame.size() - frameOf(*std::make_unique<EncodedRows>()).size(), bytes);
}

TEST(EncodedRows, AValueOfAnyLengthTravelsWhole) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  EncodedRows encoded;
  std::string expected;
  for (std::size_t length = 0; length <= alphabet.size(); ++length) {
    // On the heap and no longer than it says, so that nothing behind it may be touched.
    const std::vector<char> text(alphabet.begin(), alphabet.begin() + static_cast<long>(length));
    encoded.add({std::string_view(text.data(), text.size())}, "");
    expected.append(text.begin(), text.end());
  }
  EXPECT_EQ(firstValues(encoded), expected);
}

TEST(EncodedRows, RowsMoveToAnotherSet) {
  EncodedRows from;
  for (const char* const text : {"a", "bb", "ccc"}) from.add({std::string_view(text)}, "");
  const std::size_t bytes = from.bytes();
  EncodedRows to;
  from.moveTo(to, 1);
  from.moveTo(to, 1);
  EXPECT_EQ(from.count(), 1u);
  EXPECT_EQ(to.count(), 2u);
  EXPECT_EQ(from.bytes() + to.bytes(), bytes);
  EXPECT_EQ(firstValues(from), "ccc");
  EXPECT_EQ(firstValues(to), "abb");
}

TEST(RowBatches, ABatchHasTheRowsThatWereWanted) {
  Numbers numbers(5);
  RowBatches batches(numbers, kWide);
  EXPECT_EQ(firstValues(*batches.take(2)), "12");
  EXPECT_EQ(firstValues(*batches.take(2)), "34");
  EXPECT_EQ(firstValues(*batches.take(2)), "5");
  EXPECT_EQ(firstValues(*batches.take(2)), "");
  EXPECT_TRUE(numbers.closed);
}

TEST(RowBatches, NothingIsReadThatWasNotAskedFor) {
  Numbers numbers(5);
  RowBatches batches(numbers, kWide);
  batches.take(2);
  EXPECT_EQ(numbers.given, 2);
}

TEST(RowBatches, APreparedBatchIsTheNextOne) {
  Numbers numbers(9);
  RowBatches batches(numbers, kWide);
  EXPECT_EQ(firstValues(*batches.take(3)), "123");
  batches.prepare(3, never());
  EXPECT_EQ(numbers.given, 6);
  EXPECT_EQ(firstValues(*batches.take(3)), "456");
  EXPECT_EQ(numbers.given, 6);
}

TEST(RowBatches, OfAPreparedBatchLessMayBeTaken) {
  Numbers numbers(9);
  RowBatches batches(numbers, kWide);
  batches.prepare(6, never());
  EXPECT_EQ(firstValues(*batches.take(1)), "1");
  EXPECT_EQ(firstValues(*batches.take(2)), "23");
  batches.prepare(6, never());
  EXPECT_EQ(firstValues(*batches.take(6)), "456789");
  EXPECT_EQ(firstValues(*batches.take(6)), "");
}

TEST(RowBatches, MoreThanWasPreparedIsReadOn) {
  Numbers numbers(9);
  RowBatches batches(numbers, kWide);
  batches.prepare(2, never());
  EXPECT_EQ(firstValues(*batches.take(5)), "12345");
}

TEST(RowBatches, PreparingStopsWhenItsTimeIsOver) {
  Numbers numbers(1'000);
  RowBatches batches(numbers, kWide);
  batches.prepare(1'000, std::chrono::steady_clock::now() - std::chrono::seconds(1));
  EXPECT_LT(numbers.given, 1'000);
}

TEST(RowBatches, PreparingStopsAtAMegabyte) {
  Numbers numbers(100'000);
  RowBatches batches(numbers, {1u << 30, false});
  batches.prepare(100'000, never());
  EXPECT_LT(numbers.given, 50'000);
  EXPECT_EQ(firstValues(*batches.take(100'000)).size(), 100'000u);
}

TEST(RowBatches, ABatchFitsIntoAFrame) {
  Numbers numbers(100);
  RowBatches batches(numbers, {500, false});
  std::string all;
  int frames = 0;
  for (;; ++frames) {
    const std::string frame = frameOf(*batches.take(100));
    EXPECT_LE(frame.size(), 500u);
    const std::string values = valuesIn(frame);
    if (values.empty()) break;
    all += values;
  }
  EXPECT_EQ(all.size(), 100u);
  EXPECT_LT(frames, 12) << "the frames are not nearly full";
}

TEST(RowBatches, ARowThatFitsIntoNoFrameIsAnErrorInItsPlace) {
  Numbers numbers(9);
  numbers.longAt = 3;
  RowBatches batches(numbers, {1'000, false});
  EXPECT_EQ(firstValues(*batches.take(5)), "12");
  try {
    batches.take(5);
    ADD_FAILURE() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.state().sqlClass + failure.state().sqlSubClass, "22001");
  }
  EXPECT_TRUE(numbers.closed);
  EXPECT_EQ(firstValues(*batches.take(5)), "");
}

TEST(RowBatches, AFailureComesBehindTheRowsBeforeIt) {
  Numbers numbers(9);
  numbers.failsAfter = 4;
  RowBatches batches(numbers, kWide);
  EXPECT_EQ(firstValues(*batches.take(3)), "123");
  batches.prepare(3, never());
  EXPECT_EQ(firstValues(*batches.take(3)), "4");
  EXPECT_THROW(batches.take(3), Failure);
}

TEST(RowBatches, NullIsOneByteOrNone) {
  const auto secondValue = [](bool emptyNull) {
    Numbers numbers(1);
    RowBatches batches(numbers, {1'000, emptyNull});
    return valuesIn(frameOf(*batches.take(1)), 1);
  };
  EXPECT_EQ(secondValue(false), "\x80");
  EXPECT_EQ(secondValue(true), "");
}

/// Batches as requests ask for them.
class SqlFetchTest : public SqlTest {
protected:
  SqlFetchTest() {
    sql_.once("CREATE TABLE n(i INTEGER PRIMARY KEY)");
    sql_.once(
        "WITH RECURSIVE up(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM up WHERE i < 25)"
        " INSERT INTO n SELECT i FROM up");
    ann_.session().settings().fetchSize = 10;
  }

  std::string numbers(int from, int to) {
    std::string text;
    for (int i = from; i <= to; ++i) text += (i == from ? " " : "|") + std::to_string(i);
    return text;
  }
};

TEST_F(SqlFetchTest, TheFirstBatchHasTheFetchSizeOfTheSession) {
  EXPECT_EQ(sql_.run("SELECT i FROM n"), "3 rows" + numbers(1, 10));
}

TEST_F(SqlFetchTest, AFetchHasAtMostAsManyRowsAsItAsksFor) {
  sql_.run("SELECT i FROM n");
  EXPECT_EQ(sql_.fetch(3, 3), "3 rows" + numbers(11, 13));
  EXPECT_EQ(sql_.fetch(3, 0), "3 rows" + numbers(14, 23));
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows" + numbers(24, 25));
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows");
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows");
}

TEST_F(SqlFetchTest, ANewExecutionBeginsAgain) {
  sql_.run("SELECT i FROM n");
  sql_.fetch(3, 5);
  EXPECT_EQ(sql_.execute(3), "3 rows" + numbers(1, 10));
  EXPECT_EQ(sql_.fetch(3, 5), "3 rows" + numbers(11, 15));
}

TEST_F(SqlFetchTest, NewValuesEndTheRowsOfTheOldOnes) {
  sql_.compile("SELECT i FROM n WHERE i > ?");
  sql_.bind(3, {{"5", SqlType::kInteger}});
  EXPECT_EQ(sql_.execute(3), "3 rows" + numbers(6, 15));
  sql_.bind(3, {{"20", SqlType::kInteger}});
  EXPECT_EQ(sql_.fetch(3, 5), "3 24/000");
  EXPECT_EQ(sql_.execute(3), "3 rows" + numbers(21, 25));
}

TEST_F(SqlFetchTest, WhatWasNotExecutedOrHasNoRowsHasNothingToFetch) {
  sql_.compile("SELECT i FROM n");
  EXPECT_EQ(sql_.fetch(3, 5), "3 24/000");
  sql_.run("DELETE FROM n WHERE i = 1");
  EXPECT_EQ(sql_.fetch(4, 5), "4 24/000");
}

TEST_F(SqlFetchTest, SeveralQueriesAreFetchedInTurn) {
  sql_.run("SELECT i FROM n");
  sql_.run("SELECT -i FROM n");
  EXPECT_EQ(sql_.fetch(3, 2), "3 rows 11|12");
  EXPECT_EQ(sql_.fetch(4, 2), "4 rows -11|-12");
  EXPECT_EQ(sql_.fetch(3, 2), "3 rows 13|14");
}

TEST_F(SqlFetchTest, AQueryKeepsToTheMomentOfItsExecution) {
  sql_.run("SELECT i FROM n");
  ClientInProcess bob(agent_);
  EXPECT_EQ(SqlCalls(bob).once("DELETE FROM n"), "changed 25");
  EXPECT_EQ(sql_.once("INSERT INTO n VALUES(100)"), "changed 1");
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows" + numbers(11, 25));
  EXPECT_EQ(sql_.once("SELECT count(*) FROM n"), "rows 1");
}

TEST_F(SqlFetchTest, NullTravelsAsThePropertySays) {
  EXPECT_EQ(sql_.once("SELECT NULL, '', x''"), "rows -,,");
  ann_.session().settings().emptyNull = true;
  EXPECT_EQ(sql_.once("SELECT NULL, 'x'"), "rows ,x");
}

TEST_F(SqlFetchTest, ValuesTravelAsTextAndBytes) {
  EXPECT_EQ(sql_.once("SELECT 9223372036854775807, -1, 1.5, 1e100, 'größe', x'0041FF'"),
            "rows 9223372036854775807,-1,1.5,1.0e+100,größe," + std::string("\0A\xFF", 3));
}

TEST_F(SqlFetchTest, ThirtyTwoQueriesAreReadAtATime) {
  for (int i = 0; i < 32; ++i) sql_.run("SELECT i FROM n");
  EXPECT_EQ(sql_.run("SELECT i FROM n"), "0 IE/001");
  EXPECT_EQ(sql_.once("DELETE FROM n WHERE i = 25"), "changed 1");
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows" + numbers(11, 25));
  EXPECT_EQ(sql_.once("SELECT i FROM n WHERE i = 7"), "rows 7");
}

TEST_F(SqlFetchTest, ReturnedRowsComeInBatchesToo) {
  EXPECT_EQ(sql_.run("DELETE FROM n RETURNING i"), "3 rows" + numbers(1, 10));
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows" + numbers(11, 25));
  EXPECT_EQ(sql_.fetch(3, 100), "3 rows");
}

TEST_F(SqlFetchTest, AReleasedQueryIsNotReadAhead) {
  sql_.run("SELECT i FROM n");
  EXPECT_EQ(sql_.release(3), "3 ok");
  EXPECT_EQ(sql_.once("DROP TABLE n"), "changed 0");
}

TEST_F(SqlFetchTest, AQueryThatFailsInTheMiddleIsOver) {
  sql_.run("SELECT CASE WHEN i < 13 THEN i ELSE abs(-9223372036854775808) END FROM n");
  EXPECT_EQ(sql_.fetch(3, 5), "3 rows 11|12");
  EXPECT_EQ(sql_.fetch(3, 5), "3 IE/001 1");
  EXPECT_EQ(sql_.fetch(3, 5), "3 24/000");
}

class SmallFramesTest : public SqlTest {
protected:
  SmallFramesTest() : SqlTest([](ConfigurationValues& values) { values.maxFrame = 4'096; }) {}
};

TEST_F(SmallFramesTest, ABigResultComesInSmallFrames) {
  sql_.once("CREATE TABLE t(x)");
  sql_.once(
      "WITH RECURSIVE up(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM up WHERE i < 100)"
      " INSERT INTO t SELECT printf('%0500d', i) FROM up");
  const std::string first = sql_.run("SELECT x FROM t");
  EXPECT_LT(first.size(), 4'096u);
  std::size_t rows = 1 + static_cast<std::size_t>(std::count(first.begin(), first.end(), '|'));
  for (;;) {
    const std::string batch = sql_.fetch(3, 1'000);
    if (batch == "3 rows") break;
    ASSERT_EQ(batch.substr(0, 7), "3 rows ");
    rows += 1 + static_cast<std::size_t>(std::count(batch.begin(), batch.end(), '|'));
  }
  EXPECT_EQ(rows, 100u);
}

TEST_F(SmallFramesTest, ADescriptionBeyondAFrameIsAnError) {
  sql_.compile("SELECT ?20");
  EXPECT_EQ(sql_.describe(1), "1 IE/001");
  sql_.compile("SELECT ?2");
  EXPECT_EQ(sql_.describe(2), "2 columns ?2:12 parameters ?1:12 ?2:12");
}

TEST_F(SmallFramesTest, ARowBeyondAFrameIsAnError) {
  EXPECT_EQ(sql_.run("SELECT printf('%05000d', 1)"), "0 22/001");
}

}  // namespace
}  // namespace nox::agent::test
