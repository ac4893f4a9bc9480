// EncodedRows: rows in the form in which they travel, all in one block.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "agent/store/store.h"

namespace nox::agent {

/// A result set for sending only: `next()` gives no rows. Values go straight into the block, which
/// goes straight into the frame; a row costs no allocation of its own. What is written is what a
/// ResultSetProt with the same rows writes.
class EncodedRows : public noxp::sql::ResultSetProt {
public:
  /// The bytes that a row takes in a frame, with `null` for each value that is null.
  static std::size_t sizeOf(const SqlRow& row, std::string_view null);

  void add(const SqlRow& row, std::string_view null) { add(row, null, sizeOf(row, null)); }
  /// The same, where the size is known.
  void add(const SqlRow& row, std::string_view null, std::size_t size);
  /// Moves the first `count` rows behind the last of `other`.
  void moveTo(EncodedRows& other, std::size_t count);

  std::size_t count() const { return rows_.size() - first_; }
  /// What the rows take in a frame.
  std::size_t bytes() const { return end_ - begin_ + count() * kRowOverhead; }
  /// Makes room for as many bytes at once.
  void reserve(std::size_t bytes);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  // Object, type, version and number of values, 5 bytes each but the first; an end.
  static constexpr std::size_t kRowOverhead = 17;

  struct Row {
    std::size_t end = 0;  // of its values, in the block
    int values = 0;
  };

  /// Where the next bytes go, as many as there will be.
  char* makeRoom(std::size_t bytes);

  std::string encoded_;  // the values of all rows, and room for more
  std::size_t end_ = 0;  // of the values
  std::vector<Row> rows_;
  std::size_t first_ = 0;  // the first row that was not moved away, and where it begins
  std::size_t begin_ = 0;
};

}  // namespace nox::agent
