// The description of a statement's columns and parameters.
#pragma once

#include <vector>

#include "nox/protocol/message.h"
#include "nox/protocol/sql/column_metadata.h"

namespace nox::noxp::sql {

/// Columns and, from layout version 2 on, parameters. The version is that of this object, whatever
/// reply carries it: a sender calls `setClassVersion(2)` to send parameters. Copies deeply.
class NOX_EXPORT ResultSetMetaDataProt
    : public Payload<ResultSetMetaDataProt, TypeCode::ResultSetMetaData> {
public:
  ResultSetMetaDataProt() = default;
  ResultSetMetaDataProt(const ResultSetMetaDataProt& other);
  ResultSetMetaDataProt& operator=(const ResultSetMetaDataProt& other);

  int getNumberOfColumns() const { return static_cast<int>(columns_.size()); }
  /// Counted from 0; null outside.
  ColumnMetaDataProt* getColumnMetaDataProt(int i) const;
  /// The index of the first column of this name, or -1.
  int findColumnByName(const char* name) const;

  int getNumberOfParameters() const { return static_cast<int>(parameters_.size()); }
  ColumnMetaDataProt* getParameterMetaDataProt(int i) const;

  /// Both take the description over.
  void addColumn(ColumnMetaDataProt* column);
  void addParameter(ColumnMetaDataProt* parameter);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  std::vector<ColumnMetaDataPtr> columns_;
  std::vector<ColumnMetaDataPtr> parameters_;
};

}  // namespace nox::noxp::sql
