// A statement for tests: hands over the batches it was given and counts how often it was asked.
#pragma once

#include <deque>
#include <memory>

#include "nox/core/archive.h"
#include "nox/protocol/sql/result_set.h"

namespace nox::test {

class StatementDouble : public SQLStatementProt {
public:
  using ResultSet = noxp::sql::ResultSetProt;

  Serializable* create() override { return new StatementDouble; }
  int getType() override { return 999; }
  Archive& serialize(Archive& ar, unsigned int) override { return ar; }

  bool compile(NOXPString*) override { return false; }
  bool precompile(NOXPString*) override { return false; }
  bool bind(noxp::ParameterListProt*) override { return false; }
  bool execute() override { return false; }
  bool hasResultSet() override { return resultSet != nullptr; }
  int getUpdateCount() override { return -1; }
  ResultSet* fetchNextResultSet() override {
    ++fetches;
    if (again) return again;
    if (batches.empty()) return nullptr;
    ResultSet* const batch = batches.front().release();
    batches.pop_front();
    return batch;
  }
  ResultSet* fetchRows(unsigned long) override { return nullptr; }
  noxp::sql::ResultSetMetaDataProt* getResultSetMetaData() override {
    ++descriptions;
    return metaData;
  }
  ResultSet* getDatabaseMetaData(const std::string&, noxp::ParameterListProt*) override {
    return nullptr;
  }
  bool loadSubroutine(NOXPString*) override { return false; }
  bool callSubroutine(noxp::ParameterListProt*) override { return false; }
  noxp::ParameterListProt* getOutputParameters() override { return nullptr; }
  int getNumberOfParameters() override { return 0; }
  noxp::sql::ColumnMetaDataProt* getParameterMetaData(int) override { return nullptr; }
  void cancel() override {}
  void closeCursor() override {}
  void reset() override {}
  void release() override {}

  void become(int newId, ResultSet* newSet) {
    id = newId;
    resultSet = newSet;
  }

  std::deque<std::unique_ptr<ResultSet>> batches;
  ResultSet* again = nullptr;  // what every fetch hands over instead
  noxp::sql::ResultSetMetaDataProt* metaData = nullptr;
  int fetches = 0;
  int descriptions = 0;
};

/// Adds `count` rows of one value each: the texts of `first`, `first` + 1 and so on.
inline void addRows(noxp::sql::ResultSetProt& set, int count, int first = 1) {
  for (int i = 0; i < count; ++i) {
    auto row = std::make_unique<noxp::sql::RowProt>(&set);
    row->addColumnValue(std::to_string(first + i));
    set.addRow(row.release());
  }
}

/// A batch of `count` such rows, fed by `statement`.
inline std::unique_ptr<noxp::sql::ResultSetProt> batchOf(SQLStatementProt* statement, int count,
                                                         int first = 1) {
  auto set = std::make_unique<noxp::sql::ResultSetProt>(statement);
  addRows(*set, count, first);
  return set;
}

}  // namespace nox::test
