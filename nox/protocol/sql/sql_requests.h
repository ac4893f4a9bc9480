// What a client asks of the SQL service, transactions apart. Requests that start work carry SQL
// text; the others name a statement that the server holds. Fields that a class inherits but does
// not list in its `serialize` never travel.
//
// Constructors take the objects that they are given over; null leaves a field absent. Nothing is
// checked here: what is wrong is the server's to judge.
#pragma once

#include <string>

#include "nox/protocol/message.h"
#include "nox/protocol/parameter_list.h"

namespace nox::noxp::sql {

/// Root of the requests that may carry SQL text.
class NOX_EXPORT SQLRequestStartProt : public RequestProt {
public:
  SQLRequestStartProt() = default;
  explicit SQLRequestStartProt(NOXPString* sql);
  explicit SQLRequestStartProt(std::string sql);

  NOXPString* getSQL() const { return sql_.get(); }

protected:
  OwnedString sql_;
};

/// Root of the requests about a statement that the server holds.
class NOX_EXPORT SQLRequestProt : public SQLRequestStartProt {
public:
  SQLRequestProt() = default;
  /// Without SQL text.
  explicit SQLRequestProt(int id);
  SQLRequestProt(int id, NOXPString* sql);
  SQLRequestProt(int id, std::string sql);

  int getStatementId() const { return statementId_; }
  void setStatementId(int id) { statementId_ = id; }

protected:
  int statementId_ = 0;
};

/// Makes a statement of SQL text.
class NOX_EXPORT CompileRequestProt
    : public Message<CompileRequestProt, TypeCode::CompileRequest, SQLRequestStartProt> {
public:
  CompileRequestProt() = default;
  explicit CompileRequestProt(NOXPString* sql);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT PrecompileRequestProt
    : public Message<PrecompileRequestProt, TypeCode::PrecompileRequest, SQLRequestStartProt> {
public:
  PrecompileRequestProt() = default;
  explicit PrecompileRequestProt(NOXPString* sql);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT CompileAndExecuteRequestProt
    : public Message<CompileAndExecuteRequestProt, TypeCode::CompileAndExecuteRequest,
                     SQLRequestStartProt> {
public:
  CompileAndExecuteRequestProt() = default;
  explicit CompileAndExecuteRequestProt(NOXPString* sql);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT ExecuteRequestProt
    : public Message<ExecuteRequestProt, TypeCode::ExecuteRequest, SQLRequestProt> {
public:
  ExecuteRequestProt() = default;
  explicit ExecuteRequestProt(int statementId);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// Gives a statement its parameters.
class NOX_EXPORT BindRequestProt
    : public Message<BindRequestProt, TypeCode::BindRequest, SQLRequestProt> {
public:
  BindRequestProt() = default;
  BindRequestProt(int statementId, ParameterListProt* params);

  ParameterListProt* getParams() const { return params_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

protected:
  /// Without parameters.
  explicit BindRequestProt(int statementId);

private:
  Owned<ParameterListProt> params_;
};

/// Calls a loaded subroutine. Travels as a bind request does.
class NOX_EXPORT CallSubroutineRequestProt
    : public Message<CallSubroutineRequestProt, TypeCode::CallSubroutineRequest, BindRequestProt> {
public:
  CallSubroutineRequestProt() = default;
  CallSubroutineRequestProt(int statementId, ParameterListProt* params);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// Asks for the next rows of a statement.
class NOX_EXPORT FetchRequestProt
    : public Message<FetchRequestProt, TypeCode::FetchRequest, SQLRequestProt> {
public:
  FetchRequestProt() = default;
  /// `fetchSize` is the number of rows wanted, cut to 32 bits.
  FetchRequestProt(int statementId, unsigned long fetchSize);

  int getFetchSize() const { return fetchSize_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int fetchSize_ = 1000;
};

/// Asks for the description of a statement's columns and parameters.
class NOX_EXPORT MetaDataRequestProt
    : public Message<MetaDataRequestProt, TypeCode::MetaDataRequest, SQLRequestProt> {
public:
  MetaDataRequestProt() = default;
  explicit MetaDataRequestProt(int statementId);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT ReleaseStatementRequestProt
    : public Message<ReleaseStatementRequestProt, TypeCode::ReleaseStatementRequest,
                     SQLRequestProt> {
public:
  ReleaseStatementRequestProt() = default;
  explicit ReleaseStatementRequestProt(int statementId);
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// Makes a statement of a stored subroutine.
class NOX_EXPORT LoadSubroutineRequestProt
    : public Message<LoadSubroutineRequestProt, TypeCode::LoadSubroutineRequest,
                     SQLRequestStartProt> {
public:
  LoadSubroutineRequestProt() = default;
  explicit LoadSubroutineRequestProt(NOXPString* subroutine);

  NOXPString* getSubroutine() const { return subroutine_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString subroutine_;
};

/// Asks for facts about the database; the property's name is the server's to interpret.
class NOX_EXPORT DatabaseMetaDataRequestProt
    : public Message<DatabaseMetaDataRequestProt, TypeCode::DatabaseMetaDataRequest,
                     SQLRequestStartProt> {
public:
  DatabaseMetaDataRequestProt() = default;
  DatabaseMetaDataRequestProt(std::string requestedProperty, ParameterListProt* params);

  // Deliberate: the established spelling.
  std::string& getRequestProtedProperty() { return requestedProperty_; }
  ParameterListProt* getParams() const { return params_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  std::string requestedProperty_;
  Owned<ParameterListProt> params_;
};

}  // namespace nox::noxp::sql
