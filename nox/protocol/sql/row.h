// One row of a result set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "nox/core/big_endian.h"
#include "nox/protocol/message.h"

namespace nox {
class BinaryReader;
class BinaryWriter;
}  // namespace nox

namespace nox::noxp::sql {

class ResultSetMetaDataProt;
class ResultSetProt;

/// Column values in order, each a byte string. A row that is read, or built value by value, keeps
/// its values encoded, in one piece; blobs are made of them when somebody asks for one, and hold
/// from then on. The set and the description are borrowed. Rows are not copied.
class NOX_EXPORT RowProt : public Payload<RowProt, TypeCode::Row> {
public:
  /// Without values: what is read into. Written, it writes nothing, not even a count.
  RowProt() = default;
  explicit RowProt(ResultSetProt* resultSet) : resultSet_(resultSet) {}
  /// A row of the one value, which is taken over.
  explicit RowProt(NOXPBlob* value);
  /// Takes over the `new[]` array and its blobs; a null entry ends it.
  RowProt(NOXPBlob** data, ResultSetProt* resultSet);
  RowProt(NOXPBlob** data, ResultSetMetaDataProt* metaData);
  RowProt(const RowProt&) = delete;
  RowProt& operator=(const RowProt&) = delete;
  ~RowProt() override;

  /// The values as blobs, ended by a null entry; the row's own: they may be changed in place, and
  /// the array ended earlier, but not deleted. Null in a row without values.
  NOXPBlob** getData() const;
  /// The value of column `i`, from 0; the row's own, null outside the row.
  NOXPBlob* getColumnValue(int i);
  /// The same by the column's name, looked up in the description; null where there is none.
  NOXPBlob* getColumnValue(const char* name);
  /// The bytes of column `i` without making a blob: empty outside the row, valid while the row is
  /// not changed. Cheapest from left to right.
  std::string_view getColumnView(int i) const {
    if (blobs_ || i != nextColumn_ || i >= count_) return lookUp(i);
    const std::string_view value = valueAt(nextOffset_);
    ++nextColumn_;
    nextOffset_ += kValueHead + static_cast<std::uint32_t>(value.size()) + kValueTail;
    return value;
  }
  int getNumberOfFields() const;
  ResultSetProt* getResultSet() const { return resultSet_; }

  /// Adds a value behind the others; for senders.
  void addColumnValue(std::string_view value);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  friend class ResultSetProt;  // keeps the encoded values of its rows together

  // An encoded value: 'j', 'b', 4 bytes of length, the bytes, ';' twice.
  static constexpr std::uint32_t kValueHead = 6;
  static constexpr std::uint32_t kValueTail = 2;

  void RsmdConstructor(NOXPBlob** data, ResultSetMetaDataProt* metaData);
  void clear();
  void readFields(Archive& ar, int count);
  void encodeBlobs();
  char* room(std::size_t n);
  /// Writes the whole object where that takes no more than copying; false, with nothing written,
  /// where `serialize` must do it.
  bool copyTo(BinaryWriter& writer);
  /// How many bytes of the row's own block hold values.
  std::size_t ownEncodedSize() const {
    return encoded_ && encoded_ == own_.get() ? encodedSize_ : 0;
  }
  /// Whether the values lie neither in a block nor in a frame of the row's own.
  bool valuesAreElsewhere() const { return encodedSize_ > 0 && !own_ && !frame_; }
  /// Moves the values from the row's own block to `place`, which outlives the row.
  void moveValuesTo(char* place);
  std::string_view lookUp(int i) const;
  std::string_view valueAt(std::uint32_t offset) const {
    const char* const head = encoded_ + offset;
    return {head + kValueHead, static_cast<std::uint32_t>(loadBigEndian32(head + 2))};
  }

  /// The row's blobs, ended by null: those of a caller's array, or made in one block with the
  /// array.
  class Blobs {
  public:
    Blobs() = default;
    Blobs(const Blobs&) = delete;
    Blobs& operator=(const Blobs&) = delete;
    ~Blobs() { reset(); }
    void adopt(NOXPBlob** array);
    void make(const RowProt& row);
    void reset();
    NOXPBlob** get() const { return array_; }
    /// The array for the outside, where it may be shortened: its entries are counted from then on.
    NOXPBlob** handOut() {
      handedOut_ = array_ != nullptr;
      return array_;
    }
    bool handedOut() const { return handedOut_; }
    explicit operator bool() const { return array_ != nullptr; }

  private:
    NOXPBlob** array_ = nullptr;
    int inBlock_ = -1;  // how many blobs stand behind the array in its block; -1: a caller's array
    bool blockIsTheSets_ = false;
    bool handedOut_ = false;
  };

  struct Free {
    void operator()(char* block) const { std::free(block); }
  };

  // Either blobs, or the encoded values: in the frame they came in, or in this row's own block.
  // Sets hold many rows; one of them stays within 120 bytes, a size that allocators hand out
  // cheaply.
  mutable Blobs blobs_;
  const char* encoded_ = nullptr;
  std::uint32_t encodedSize_ = 0;
  int count_ = -1;              // encoded values; -1 in a row that has none, not even zero
  mutable int nextColumn_ = 0;  // the one behind that asked for last, and where it begins
  mutable std::uint32_t nextOffset_ = 0;
  std::unique_ptr<char, Free> own_;
  std::uint32_t ownSize_ = 0;
  std::shared_ptr<const void>
      frame_;  // of a row that is read by itself; a set holds it for its rows
  ResultSetProt* resultSet_ = nullptr;
  ResultSetMetaDataProt* metaData_ = nullptr;
};

}  // namespace nox::noxp::sql
