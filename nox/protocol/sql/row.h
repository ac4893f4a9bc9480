// One row of a result set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "nox/protocol/message.h"

namespace nox {
class BinaryReader;
}

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

  /// The values as blobs, ended by a null entry; the row's own. Null in a row without values.
  NOXPBlob** getData() const;
  /// The value of column `i`, from 0; the row's own, null outside the row.
  NOXPBlob* getColumnValue(int i);
  /// The same by the column's name, looked up in the description; null where there is none.
  NOXPBlob* getColumnValue(const char* name);
  /// The bytes of column `i` without making a blob: empty outside the row, valid while the row is
  /// not changed. Cheapest from left to right.
  std::string_view getColumnView(int i) const;
  int getNumberOfFields() const;
  ResultSetProt* getResultSet() const { return resultSet_; }

  /// Adds a value behind the others; for senders.
  void addColumnValue(std::string_view value);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  void RsmdConstructor(NOXPBlob** data, ResultSetMetaDataProt* metaData);
  void clear();
  void readFields(Archive& ar, int count);
  void makeBlobs() const;
  void encodeBlobs();
  std::string_view valueAt(std::size_t offset) const;

  // Either blobs, or the encoded values: in the frame they came in, or in this row's own text.
  mutable std::unique_ptr<NOXPBlob*[]> blobs_;
  const char* encoded_ = nullptr;
  std::size_t encodedSize_ = 0;
  int count_ = -1;          // encoded values; -1 in a row that has none, not even zero
  mutable int cursor_ = 0;  // the column that was asked for last, and where it begins
  mutable std::size_t cursorOffset_ = 0;
  std::string own_;
  std::shared_ptr<const void>
      frame_;  // of a row that is read by itself; a set holds it for its rows
  ResultSetProt* resultSet_ = nullptr;
  ResultSetMetaDataProt* metaData_ = nullptr;
};

}  // namespace nox::noxp::sql
