#include "agent/sql/row_batches.h"

#include <string>
#include <string_view>
#include <utility>

#include "agent/sql/sql_failure.h"

namespace nox::agent {

namespace {

using noxp::sql::ResultSetProt;
using noxp::sql::RowProt;

// What a row and a value take in a frame besides the bytes of the values.
constexpr std::size_t kRowOverhead = 17;   // object, code, version, count, end
constexpr std::size_t kValueOverhead = 8;  // blob, array, length, two ends
// The reply around the rows: frame, two objects, statement id, count.
constexpr std::size_t kReplyOverhead = 64;

// Rows read ahead in one batch; a client that wants more gets the rest when it asks.
constexpr std::size_t kMostBytesAhead = 1024u * 1024u;
constexpr unsigned int kRowsBetweenLooksAtTheClock = 16;

constexpr std::string_view kNullByte = "\x80";

std::size_t encodedSize(const SqlRow& row, std::string_view null) {
  std::size_t size = kRowOverhead;
  for (const std::optional<std::string_view>& value : row) {
    size += kValueOverhead + (value ? value->size() : null.size());
  }
  return size;
}

}  // namespace

RowBatches::RowBatches(SqlRows& source, Bounds bounds) : source_(source), bounds_(bounds) {}

void RowBatches::advance() {
  row_ = nullptr;
  try {
    row_ = source_.next();
  } catch (const StoreError& error) {
    try {
      throwAsSqlFailure(error);
    } catch (const Failure& failure) {
      failure_ = failure;
    }
  }
  readUp_ = !row_;
}

bool RowBatches::addNext(Batch& batch) {
  if (readUp_ || batch.full) return false;
  if (!row_) advance();
  if (!row_) return false;

  const std::string_view null = bounds_.emptyNull ? std::string_view() : kNullByte;
  const std::size_t size = encodedSize(*row_, null);
  const std::size_t room = bounds_.frameCap - kReplyOverhead;
  if (size > room) {
    failure_.emplace("22", "001",
                     "a row of " + std::to_string(size) + " bytes is larger than a frame may be");
    readUp_ = true;
    source_.close();
    return false;
  }
  if (batch.bytes + size > room) {
    batch.full = true;
    return false;
  }
  auto row = std::make_unique<RowProt>();
  for (const std::optional<std::string_view>& value : *row_) {
    row->addColumnValue(value ? *value : null);
  }
  batch.rows->addRow(row.release());
  ++batch.count;
  batch.bytes += size;
  row_ = nullptr;
  return true;
}

/// The first rows of a prepared batch that is longer than what was asked for.
RowBatches::Batch RowBatches::cutPrepared(std::size_t rows) {
  Batch cut;
  while (cut.count < rows) {
    const RowProt* const from = prepared_.rows->next();
    auto row = std::make_unique<RowProt>();
    const int values = from->getNumberOfFields();
    for (int i = 0; i < values; ++i) row->addColumnValue(from->getColumnView(i));
    cut.rows->addRow(row.release());
    ++cut.count;
    --prepared_.count;
  }
  // The rest counts with the bytes of what was taken: it only may end a little earlier.
  return cut;
}

std::unique_ptr<ResultSetProt> RowBatches::take(std::size_t rows) {
  Batch batch = prepared_.count > rows ? cutPrepared(rows) : std::exchange(prepared_, Batch());
  while (batch.count < rows && addNext(batch)) {
  }
  if (batch.count == 0 && failure_) throw Failure(*std::exchange(failure_, std::nullopt));
  return std::move(batch.rows);
}

void RowBatches::prepare(std::size_t rows, std::chrono::steady_clock::time_point until) {
  unsigned int added = 0;
  while (prepared_.count < rows && prepared_.bytes < kMostBytesAhead) {
    if (++added % kRowsBetweenLooksAtTheClock == 0 && std::chrono::steady_clock::now() > until) {
      return;
    }
    if (!addNext(prepared_)) return;
  }
}

}  // namespace nox::agent
