// What the SQL service answers: each reply names the statement it concerns and adds what the
// request produced.
//
// Three replies carry an object (rows, their description, output parameters). A sender's reply
// borrows it; a reply that is read owns it, until `retrieve...()` hands it over. A copy of either
// borrows the same object.
#pragma once

#include <memory>
#include <utility>

#include "nox/protocol/message.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/sql/result_set.h"
#include "nox/protocol/sql_ext_error.h"

namespace nox::noxp::sql {

/// The object that a reply carries.
template <class T>
class Carried {
public:
  Carried() = default;
  explicit Carried(T* borrowed) : value_(borrowed) {}
  Carried(const Carried& other) : value_(other.value_) {}
  Carried& operator=(const Carried& other) {
    if (value_ == other.value_) return *this;  // also a borrower's copy, given back to the owner
    value_ = other.value_;
    owned_.reset();
    return *this;
  }

  T* get() const { return value_; }
  void own(std::unique_ptr<T> value) {
    value_ = value.get();
    owned_ = std::move(value);
  }
  /// Hands the object over, whoever owned it.
  T* retrieve() {
    static_cast<void>(owned_.release());
    return std::exchange(value_, nullptr);
  }

private:
  std::unique_ptr<T> owned_;
  T* value_ = nullptr;
};

class NOX_EXPORT SQLResponseProt
    : public Message<SQLResponseProt, TypeCode::SQLResponse, ResponseProt> {
public:
  SQLResponseProt() = default;
  explicit SQLResponseProt(int statementId) : statementId_(statementId) {}

  int getStatementId() const { return statementId_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

protected:
  int statementId_ = 0;
};

/// "Done", with the text "OK", which nobody checks.
class NOX_EXPORT SQLOKResponseProt
    : public Message<SQLOKResponseProt, TypeCode::SQLOKResponse, SQLResponseProt> {
public:
  SQLOKResponseProt() = default;
  explicit SQLOKResponseProt(int statementId) : Message(statementId) {}
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT SQLUpdateResponseProt
    : public Message<SQLUpdateResponseProt, TypeCode::SQLUpdateResponse, SQLResponseProt> {
public:
  SQLUpdateResponseProt() = default;
  SQLUpdateResponseProt(int statementId, int updateCount)
      : Message(statementId), updateCount_(updateCount) {}

  int getUpdateCount() const { return updateCount_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int updateCount_ = 0;
};

/// Rows. Writing this reply empties the result set it carries.
class NOX_EXPORT SQLResultResponseProt
    : public Message<SQLResultResponseProt, TypeCode::SQLResultResponse, SQLResponseProt> {
public:
  SQLResultResponseProt() = default;
  SQLResultResponseProt(int statementId, ResultSetProt* rs) : Message(statementId), rs_(rs) {}

  ResultSetProt* getResultSet() const { return rs_.get(); }
  ResultSetProt* retrieveResultSet() { return rs_.retrieve(); }
  /// A new reply, the caller's; null when memory ran out.
  static ResponseProt* resultSet(int statementId, ResultSetProt* rs);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Carried<ResultSetProt> rs_;
};

/// The description of a statement's columns and parameters.
class NOX_EXPORT SQLRSMDResponseProt
    : public Message<SQLRSMDResponseProt, TypeCode::SQLRSMDResponse, SQLResponseProt> {
public:
  SQLRSMDResponseProt() = default;
  SQLRSMDResponseProt(int statementId, ResultSetMetaDataProt* rsmd)
      : Message(statementId), rsmd_(rsmd) {}

  ResultSetMetaDataProt* getResultSetMetaData() const { return rsmd_.get(); }
  ResultSetMetaDataProt* retrieveResultSetMetaData() { return rsmd_.retrieve(); }
  /// A new reply, the caller's; null when memory ran out.
  static ResponseProt* resultSetMetaData(int statementId, ResultSetMetaDataProt* rsmd);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Carried<ResultSetMetaDataProt> rsmd_;
};

/// The parameters as a called subroutine left them.
class NOX_EXPORT SQLParamsResponseProt
    : public Message<SQLParamsResponseProt, TypeCode::SQLParamsResponse, SQLResponseProt> {
public:
  SQLParamsResponseProt() = default;
  SQLParamsResponseProt(int statementId, ParameterListProt* params)
      : Message(statementId), parameterList_(params) {}

  ParameterListProt* getParameterList() const { return parameterList_.get(); }
  ParameterListProt* retrieveParameterList() { return parameterList_.retrieve(); }
  /// A new reply, the caller's; null when memory ran out.
  static ResponseProt* callResults(int statementId, ParameterListProt* params);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Carried<ParameterListProt> parameterList_;
};

/// "Failed". The constructors that are given an error copy it and write one line to the error log,
/// as those of ErrorResponseProt do.
class NOX_EXPORT SQLErrorResponseProt
    : public Message<SQLErrorResponseProt, TypeCode::SQLErrorResponse, SQLResponseProt> {
public:
  SQLErrorResponseProt() = default;
  SQLErrorResponseProt(int statementId, const SQLExtError& e);
  SQLErrorResponseProt(int statementId, const SQLExtError& e, const char* file, int line);

  /// Null only in a reply that was neither given an error nor read.
  SQLExtError* getError() const { return err_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Owned<SQLExtError> err_ = nullptr;
};

/// The layout of an all-in-one reply of old, every field of it a placeholder. In no factory of the
/// library.
class NOX_EXPORT LegacySQLResponseProt
    : public Message<LegacySQLResponseProt, TypeCode::LegacySQLResponse, ResponseProt> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

}  // namespace nox::noxp::sql
