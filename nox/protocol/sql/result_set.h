// A query's answer: rows, fetched in batches.
#pragma once

#include <memory>
#include <vector>

#include "nox/protocol/message.h"
#include "nox/protocol/sql/result_set_metadata.h"
#include "nox/protocol/sql/row.h"
#include "nox/protocol/sql/sql_statement.h"

namespace nox::noxp::sql {

/// The rows of one batch and, once they are used up, the batches that the statement hands over
/// after it. On the agent's side a statement feeds the set; a client's set is read and has no
/// statement: no further batches, no description, cursor type 0.
///
/// Writing a set pulls every row that is left through `next()` and deletes it; the set gives no
/// rows afterwards. Rows stay the set's: those that `next()` returned hold until the set is read
/// into, written or deleted, with cursor type 1 until the next call. Sets are not copied.
class NOX_EXPORT ResultSetProt : public Payload<ResultSetProt, TypeCode::ResultSet> {
public:
  ResultSetProt() = default;
  /// Borrows the statement, which must outlive the set; null allowed.
  explicit ResultSetProt(SQLStatementProt* statement) : statement_(statement) {}
  ResultSetProt(const ResultSetProt&) = delete;
  ResultSetProt& operator=(const ResultSetProt&) = delete;
  ~ResultSetProt() override;

  /// The next row, or null. When the rows are used up and more may follow (there was none, or there
  /// were exactly as many as the statement's fetch size), the statement is asked for another batch.
  virtual RowProt* next();
  /// The statement's description of the columns, which stays the statement's; null without one.
  virtual ResultSetMetaDataProt* getMetaData();

  Archive& serialize(Archive& ar, unsigned int version) override;

  /// Rows of this batch returned so far.
  unsigned int getCurrentRow() const { return currentRow_; }
  /// Rows of this batch and of those fetched after it. The sum wraps at 32 bits.
  unsigned long getNumTotalRows() const;
  /// Deletes the rows of this batch.
  void deleteRows();
  void setStatement(SQLStatementProt* statement) { statement_ = statement; }
  /// Takes `row` over as the last of this batch; null is ignored.
  void addRow(RowProt* row);

  /// The reader whose frame this set holds while its rows are read; null at other times.
  BinaryReader* frameReader() const { return frameReader_; }

private:
  friend class RowProt;  // whose blobs may lie with the set

  using Rows = std::vector<std::unique_ptr<RowProt>>;

  void gather(RowProt& row);
  void* blobRoom(std::size_t size);
  RowProt* nextOfThisBatch();
  bool mayContinue() const;
  void fetchContinuation(ResultSetProt& first);
  void dropContinuation();
  void startAgain();
  std::unique_ptr<RowProt> detach(RowProt* row);
  Rows pullRows();
  void write(Archive& ar);
  void read(Archive& ar);

  SQLStatementProt* statement_ = nullptr;
  ResultSetMetaDataProt* metaData_ = nullptr;
  // Before the rows, which have blobs here and are destroyed first.
  std::vector<std::unique_ptr<char[]>> blobBlocks_;
  std::size_t blobBlockSize_ = 0;  // of the last block,
  std::size_t blobBlockRest_ = 0;  // and what is left of it
  Rows rows_;
  unsigned int numberOfRows_ = 0;
  unsigned int currentRow_ = 0;
  std::unique_ptr<ResultSetProt> continuation_;
  ResultSetProt* active_ = this;  // the batch of the chain that gives rows now
  bool chained_ = false;          // is another set's continuation
  bool usedUp_ = false;           // a continuation that has given its last row
  bool written_ = false;
  std::shared_ptr<const void> frame_;  // the bytes that rows refer to, when they were read
  std::vector<std::unique_ptr<char[]>> blocks_;  // and when they were added
  std::size_t blockRest_ = 0;                    // bytes that are left of the last block
  BinaryReader* frameReader_ = nullptr;
};

}  // namespace nox::noxp::sql
