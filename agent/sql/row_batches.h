// The rows of a query in batches as they travel, each made while the client reads the one before.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "agent/failure.h"
#include "agent/sql/encoded_rows.h"
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
  std::unique_ptr<EncodedRows> take(std::size_t rows);
  /// Reads rows ahead, for as long as the client needs to read the last batch anyway.
  void prepare(std::size_t rows, std::chrono::steady_clock::time_point until);
  /// Whether all rows were read from the store, or reading them failed.
  bool isReadUp() const { return readUp_; }

private:
  class Filling;

  /// Adds rows of the source as long as `filling` wants them. Keeps a failure for the time when the
  /// rows before it are gone.
  void fill(Filling filling);
  /// False where the row does not fit.
  bool add(EncodedRows& batch, const SqlRow& row);

  SqlRows& source_;
  const std::string_view null_;
  const std::size_t mostBytes_;  // of the rows in a frame
  const SqlRow* row_ = nullptr;  // read, and in no batch yet
  bool readUp_ = false;
  std::optional<Failure> failure_;
  std::unique_ptr<EncodedRows> prepared_;
  std::size_t usualBytes_ = 0;  // of a batch
};

}  // namespace nox::agent
