// The agent's statement, as far as the library knows it: what feeds a result set.
#pragma once

#include <string>

#include "nox/core/serializable.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/sql_ext_error.h"

namespace nox {

namespace noxp::sql {
class ColumnMetaDataProt;
class ResultSetMetaDataProt;
class ResultSetProt;
}  // namespace noxp::sql

/// An abstract interface that the agent implements. The library calls `fetchNextResultSet`,
/// `getResultSetMetaData`, `getCursorType` and `getFetchSize`; the rest is the agent's own plan.
/// Operations that answer bool say whether they succeeded; `getLastError` says why not.
class NOX_EXPORT SQLStatementProt : public Serializable {
public:
  SQLStatementProt();
  ~SQLStatementProt() override;

  int getId() const { return id; }
  /// The set this statement produced, which stays the statement's; null before that.
  noxp::sql::ResultSetProt* getResultSet() const { return resultSet; }
  /// 1: only the current row is kept.
  virtual int getCursorType();
  virtual void setCursorType(int cursorType);
  /// Rows in a full batch, 1000 unless set.
  unsigned long getFetchSize() const { return fetchSize_; }
  void setFetchSize(unsigned long fetchSize) { fetchSize_ = fetchSize; }
  // Deliberate: the established spelling.
  int get_overide_fetch_size() const { return overrideFetchSize_; }
  void set_overide_fetch_size(int fetchSize) { overrideFetchSize_ = fetchSize; }
  SQLExtError& getLastError() { return lastError_; }
  std::string& getErrorMessage() { return errorMessage_; }

  virtual bool compile(NOXPString* sql) = 0;
  virtual bool precompile(NOXPString* sql) = 0;
  virtual bool bind(noxp::ParameterListProt* params) = 0;
  virtual bool execute() = 0;
  virtual bool hasResultSet() = 0;
  virtual int getUpdateCount() = 0;
  /// The next batch, handed over to the caller; null when there is none.
  virtual noxp::sql::ResultSetProt* fetchNextResultSet() = 0;
  virtual noxp::sql::ResultSetProt* fetchRows(unsigned long count) = 0;
  /// Stays the statement's.
  virtual noxp::sql::ResultSetMetaDataProt* getResultSetMetaData() = 0;
  virtual noxp::sql::ResultSetProt* getDatabaseMetaData(const std::string& property,
                                                        noxp::ParameterListProt* params) = 0;
  virtual bool loadSubroutine(NOXPString* name) = 0;
  virtual bool callSubroutine(noxp::ParameterListProt* params) = 0;
  virtual noxp::ParameterListProt* getOutputParameters() = 0;
  virtual int getNumberOfParameters() = 0;
  virtual noxp::sql::ColumnMetaDataProt* getParameterMetaData(int index) = 0;
  virtual void cancel() = 0;
  virtual void closeCursor() = 0;
  virtual void reset() = 0;
  virtual void release() = 0;

protected:
  // For the agent to set.
  int id = 0;
  noxp::sql::ResultSetProt* resultSet = nullptr;

private:
  int cursorType_ = 0;
  unsigned long fetchSize_ = 1000;
  int overrideFetchSize_ = 0;
  SQLExtError lastError_;
  std::string errorMessage_;
};

}  // namespace nox
