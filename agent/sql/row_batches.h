// The rows of a query in batches as they travel, each made while the client reads the one before.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

#include <nox/nox.h>

#include "agent/failure.h"
#include "agent/store/store.h"

namespace nox::agent {

/// Borrows the source of the rows. Values go from the store
/// straight into encoded rows. What a batch holds is bounded by rows and by bytes, so that neither
/// a reply nor the agent's memory grows with the result.
class RowBatches {
public:
  struct Bounds {
    std::size_t frameCap = 0;  // bytes of the largest frame
    bool emptyNull = false;    // whether null travels as an empty value, else as the byte 80
  };

  RowBatches(SqlRows& source, Bounds bounds);

  /// Up to `rows` rows; none of them behind the last. Throws Failure in place of the first row that
  /// cannot be had; the query is over then.
  std::unique_ptr<noxp::sql::ResultSetProt> take(std::size_t rows);
  /// Reads rows ahead, for as long as the client needs to read the last batch anyway.
  void prepare(std::size_t rows, std::chrono::steady_clock::time_point until);
  /// Whether all rows were read from the store, or reading them failed.
  bool isReadUp() const { return readUp_; }

private:
  /// A set with what is known of it.
  struct Batch {
    std::unique_ptr<noxp::sql::ResultSetProt> rows = std::make_unique<noxp::sql::ResultSetProt>();
    std::size_t count = 0;
    std::size_t bytes = 0;  // of the encoded rows
    bool full = false;      // the next row does not fit into its frame
  };

  /// Adds the store's next row; false where there is none or it does not fit.
  bool addNext(Batch& batch);
  /// Moves to the next row, keeps a failure for the time when the rows before it are gone.
  void advance();
  Batch cutPrepared(std::size_t rows);

  SqlRows& source_;
  const Bounds bounds_;
  const SqlRow* row_ = nullptr;  // read, and in no batch yet
  bool readUp_ = false;
  std::optional<Failure> failure_;
  Batch prepared_;
};

}  // namespace nox::agent
