#include "nox/protocol/sql/result_set.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/diag/file_loggers.h"

namespace nox::noxp::sql {

namespace {

constexpr int kCurrentRowOnly = 1;  // the cursor type that keeps no row but the current one

// Values of added rows are gathered in blocks of this size.
constexpr std::size_t kBlockSize = std::size_t{1} << 16;

// Room that is made before the rows are seen; a count from the peer is only a claim.
constexpr int kRowsReserved = 1024;

}  // namespace

ResultSetProt::~ResultSetProt() { dropContinuation(); }

/// One batch after the other: a chain may be longer than the stack is deep.
void ResultSetProt::dropContinuation() {
  active_ = this;
  std::unique_ptr<ResultSetProt> set = std::move(continuation_);
  while (set) set = std::move(set->continuation_);
}

RowProt* ResultSetProt::nextOfThisBatch() {
  if (statement_ && statement_->getCursorType() == kCurrentRowOnly && currentRow_ > 0 &&
      currentRow_ <= rows_.size()) {
    rows_[currentRow_ - 1].reset();
  }
  if (currentRow_ >= numberOfRows_ || currentRow_ >= rows_.size()) return nullptr;
  return rows_[currentRow_++].get();
}

bool ResultSetProt::mayContinue() const {
  if (!statement_) return false;
  return numberOfRows_ == 0 || static_cast<std::uint64_t>(numberOfRows_) ==
                                   static_cast<std::uint64_t>(statement_->getFetchSize());
}

void ResultSetProt::fetchContinuation(ResultSetProt& first) {
  ResultSetProt* const fetched = statement_->fetchNextResultSet();
  // A set of this very chain is no continuation of it, and stays whose it is.
  if (!fetched || fetched == this || fetched == &first || fetched->chained_) return;
  fetched->chained_ = true;
  continuation_.reset(fetched);
}

RowProt* ResultSetProt::next() {
  if (written_) return nullptr;
  if (chained_) {
    // The head of the chain goes on to the next batch: called by each other, sets would be stacked
    // as deep as the chain is long.
    RowProt* const row = nextOfThisBatch();
    usedUp_ = !row;
    return row;
  }
  for (;;) {
    ResultSetProt* const set = active_;
    RowProt* const row = set == this ? nextOfThisBatch() : set->next();
    if (row) return row;
    if (set != this && !set->usedUp_) return nullptr;  // an overriding next() has its own end
    if (!set->continuation_ && set->mayContinue()) set->fetchContinuation(*this);
    if (!set->continuation_) return nullptr;
    active_ = set->continuation_.get();
  }
}

ResultSetMetaDataProt* ResultSetProt::getMetaData() {
  if (!metaData_ && statement_) metaData_ = statement_->getResultSetMetaData();
  return metaData_;
}

unsigned long ResultSetProt::getNumTotalRows() const {
  std::uint32_t total = 0;
  for (const ResultSetProt* set = this; set; set = set->continuation_.get()) {
    total += set->numberOfRows_;
  }
  return total;
}

void ResultSetProt::deleteRows() {
  rows_.clear();
  numberOfRows_ = 0;
  currentRow_ = 0;
  frame_.reset();
  blocks_.clear();
  blockRest_ = 0;
  blobBlocks_.clear();
  blobBlockSize_ = 0;
  blobBlockRest_ = 0;
}

/// As a new set of the same statement.
void ResultSetProt::startAgain() {
  deleteRows();
  dropContinuation();
  written_ = false;
}

void ResultSetProt::addRow(RowProt* row) {
  if (!row) return;
  std::unique_ptr<RowProt> taken(row);
  if (written_) startAgain();
  gather(*row);
  rows_.push_back(std::move(taken));
  ++numberOfRows_;
}

/// Room for one row's blobs, which lasts as long as the rows of this set; null where they are not
/// all kept. A set whose blobs are all asked for is mostly their unused inline stores: in few large
/// blocks the allocator can hand those out again for the next set, while thousands of small ones at
/// the end of the heap go back to the system with each set, and their pages come anew.
void* ResultSetProt::blobRoom(std::size_t size) {
  constexpr std::size_t kFirstBlock = std::size_t{1} << 16;
  constexpr std::size_t kLargestBlock = std::size_t{1} << 23;
  if (!frame_ || statement_) return nullptr;
  if (size > blobBlockRest_) {
    const std::size_t next = std::clamp(2 * blobBlockSize_, kFirstBlock, kLargestBlock);
    const std::size_t blockSize = std::max(size, next);
    std::unique_ptr<char[]> block(new char[blockSize]);
    blobBlocks_.push_back(std::move(block));
    blobBlockSize_ = blobBlockRest_ = blockSize;
  }
  void* const room = blobBlocks_.back().get() + blobBlockSize_ - blobBlockRest_;
  blobBlockRest_ -= size;
  return room;
}

/// Keeps the values of small rows together, so that a row costs one allocation and the next row can
/// have the block in which this one was built.
void ResultSetProt::gather(RowProt& row) {
  const std::size_t size = row.ownEncodedSize();
  if (size == 0 || size > kBlockSize / 8) return;
  if (size > blockRest_) {
    blocks_.emplace_back(new char[kBlockSize]);
    blockRest_ = kBlockSize;
  }
  row.moveValuesTo(blocks_.back().get() + kBlockSize - blockRest_);
  blockRest_ -= size;
}

Archive& ResultSetProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (ar.isWriting()) {
    write(ar);
  } else {
    read(ar);
  }
  NOX_LOG(filelog::info) << "FETCH " << static_cast<long>(numberOfRows_) << " row(s)" << EndLog();
  return ar;
}

/// Takes a row that `next()` returned out of the batch that holds it. A row that no batch holds was
/// made by an overriding `next()` and is the caller's to delete as well.
std::unique_ptr<RowProt> ResultSetProt::detach(RowProt* row) {
  const auto release = [row](ResultSetProt* set) {
    if (set->currentRow_ == 0 || set->currentRow_ > set->rows_.size()) return false;
    std::unique_ptr<RowProt>& last = set->rows_[set->currentRow_ - 1];
    if (last.get() != row) return false;
    static_cast<void>(last.release());
    return true;
  };
  if (!release(active_)) {
    for (ResultSetProt* set = this; set && !release(set); set = set->continuation_.get()) {
    }
  }
  return std::unique_ptr<RowProt>(row);
}

/// Takes every row that `next()` would still return out of its batch.
ResultSetProt::Rows ResultSetProt::pullRows() {
  Rows pulled;
  if (typeid(*this) == typeid(ResultSetProt) && !continuation_ && !mayContinue()) {
    // Nothing can follow this batch: it is taken as it stands.
    pulled.swap(rows_);
    const std::size_t returned = std::min<std::size_t>(currentRow_, pulled.size());
    pulled.erase(pulled.begin(), pulled.begin() + static_cast<std::ptrdiff_t>(returned));
    return pulled;
  }
  if (rows_.size() > currentRow_) pulled.reserve(rows_.size() - currentRow_);
  while (RowProt* const row = next()) pulled.push_back(detach(row));
  return pulled;
}

// Deliberate: rows are written without a name and read under one.
void ResultSetProt::write(Archive& ar) {
  Rows pulled = pullRows();
  int count = static_cast<int>(pulled.size());
  numberOfRows_ = static_cast<unsigned int>(count);
  currentRow_ = numberOfRows_;
  rows_.clear();
  written_ = true;
  ar.process(count, "numberOfRows");
  BinaryWriter* const writer = BinaryWriter::behind(ar);
  for (std::unique_ptr<RowProt>& row : pulled) {
    if (!writer || !row->copyTo(*writer)) ar& static_cast<Serializable*>(row.get());
    row.reset();
  }
}

void ResultSetProt::read(Archive& ar) {
  startAgain();
  int count = 0;
  ar.process(count, "numberOfRows");

  struct Reading {
    ResultSetProt& set;
    ~Reading() { set.frameReader_ = nullptr; }
  };
  const Reading reading{*this};
  frameReader_ = BinaryReader::behind(ar);
  if (frameReader_) frame_ = frameReader_->shareFrame();

  if (count > 0) rows_.reserve(static_cast<std::size_t>(std::min(count, kRowsReserved)));
  for (int i = 0; i < count; ++i) {
    auto row = std::make_unique<RowProt>(this);
    ar.process(static_cast<Serializable*>(row.get()), "row");
    rows_.push_back(std::move(row));
    ++numberOfRows_;
  }
}

}  // namespace nox::noxp::sql
