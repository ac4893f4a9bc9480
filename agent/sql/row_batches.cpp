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

/// Puts rows into a batch until there is what was asked for.
class RowBatches::Filling : public SqlRowTaker {
public:
  Filling(RowBatches& batches, EncodedRows& batch, std::size_t rows)
      : batches_(batches), batch_(batch), rows_(rows) {}
  /// No longer than until then, and no more than what is worth being read ahead.
  void aheadUntil(std::chrono::steady_clock::time_point end) { end_ = end; }

  bool take(const SqlRow& row) override { return batches_.add(batch_, row) && wantsMore(); }
  bool wantsMore() {
    if (batch_.count() >= rows_) return false;
    if (!end_) return true;
    if (batch_.bytes() >= kMostBytesAhead) return false;
    return ++added_ % kRowsBetweenLooksAtTheClock != 0 || std::chrono::steady_clock::now() <= *end_;
  }

private:
  RowBatches& batches_;
  EncodedRows& batch_;
  const std::size_t rows_;
  std::optional<std::chrono::steady_clock::time_point> end_;
  unsigned int added_ = 0;
};

void RowBatches::fill(Filling filling) {
  if (readUp_ || !filling.wantsMore()) return;
  if (row_ && !filling.take(*std::exchange(row_, nullptr))) return;
  try {
    readUp_ = !source_.give(filling);
  } catch (const StoreError& error) {
    readUp_ = true;
    try {
      throwAsSqlFailure(error);
    } catch (const Failure& failure) {
      failure_ = failure;
    }
  }
  if (!failure_ || readUp_) return;
  readUp_ = true;
  source_.close();
}

bool RowBatches::add(EncodedRows& batch, const SqlRow& row) {
  const std::size_t size = EncodedRows::sizeOf(row, null_);
  if (size > mostBytes_) {
    failure_.emplace("22", "001",
                     "a row of " + std::to_string(size) + " bytes is larger than a frame may be");
    return false;
  }
  if (batch.bytes() + size > mostBytes_) {
    row_ = &row;
    return false;
  }
  batch.add(row, null_, size);
  return true;
}

std::unique_ptr<EncodedRows> RowBatches::take(std::size_t rows) {
  auto batch = std::make_unique<EncodedRows>();
  if (prepared_->count() > rows) {
    prepared_->moveTo(*batch, rows);
    return batch;
  }
  batch.swap(prepared_);
  fill({*this, *batch, rows});
  if (batch->count() == 0 && failure_) throw Failure(*std::exchange(failure_, std::nullopt));
  usualBytes_ = batch->bytes();
  return batch;
}

void RowBatches::prepare(std::size_t rows, std::chrono::steady_clock::time_point until) {
  if (prepared_->count() == 0) prepared_->reserve(usualBytes_);
  Filling filling(*this, *prepared_, rows);
  filling.aheadUntil(until);
  fill(filling);
}

}  // namespace nox::agent
