#include "agent/sql/row_batches.h"

#include <string>
#include <string_view>
#include <utility>

#include "agent/sql/sql_failure.h"

namespace nox::agent {

namespace {

// The reply around the rows: frame, two objects, statement id, count.
constexpr std::size_t kReplyOverhead = 64;

// Rows read ahead in one batch; a client that wants more gets the rest when it asks.
constexpr std::size_t kMostBytesAhead = 1024u * 1024u;
constexpr unsigned int kRowsBetweenLooksAtTheClock = 32;

constexpr std::string_view kNullByte = "\x80";

}  // namespace

RowBatches::RowBatches(SqlRows& source, Bounds bounds)
    : source_(source),
      null_(bounds.emptyNull ? std::string_view() : kNullByte),
      mostBytes_(bounds.frameCap - kReplyOverhead),
      prepared_(std::make_unique<EncodedRows>()) {}

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

bool RowBatches::addNext(EncodedRows& batch) {
  if (readUp_) return false;
  if (!row_) advance();
  if (!row_) return false;
  const std::size_t size = EncodedRows::sizeOf(*row_, null_);
  if (size > mostBytes_) {
    failure_.emplace("22", "001",
                     "a row of " + std::to_string(size) + " bytes is larger than a frame may be");
    readUp_ = true;
    source_.close();
    return false;
  }
  if (batch.bytes() + size > mostBytes_) return false;
  batch.add(*row_, null_);
  row_ = nullptr;
  return true;
}

std::unique_ptr<EncodedRows> RowBatches::take(std::size_t rows) {
  auto batch = std::make_unique<EncodedRows>();
  if (prepared_->count() > rows) {
    prepared_->moveTo(*batch, rows);
    return batch;
  }
  batch.swap(prepared_);
  while (batch->count() < rows && addNext(*batch)) {
  }
  if (batch->count() == 0 && failure_) throw Failure(*std::exchange(failure_, std::nullopt));
  usualBytes_ = batch->bytes();
  return batch;
}

void RowBatches::prepare(std::size_t rows, std::chrono::steady_clock::time_point until) {
  if (prepared_->count() == 0) prepared_->reserve(usualBytes_);
  unsigned int added = 0;
  while (prepared_->count() < rows && prepared_->bytes() < kMostBytesAhead) {
    if (++added % kRowsBetweenLooksAtTheClock == 0 && std::chrono::steady_clock::now() > until) {
      return;
    }
    if (!addNext(*prepared_)) return;
  }
}

}  // namespace nox::agent
