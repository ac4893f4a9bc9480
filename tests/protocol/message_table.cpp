#include "tests/protocol/message_table.h"

#include "nox/auth/authentication.h"
#include "nox/protocol/client_object_factory.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/execution_requests.h"
#include "nox/protocol/remote/file_requests.h"
#include "nox/protocol/remote/metadata_messages.h"
#include "nox/protocol/remote/monitoring.h"
#include "nox/protocol/remote/record_requests.h"
#include "nox/protocol/remote/remote_object_factory.h"
#include "nox/protocol/remote/remote_responses.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/remote/session_requests.h"
#include "nox/protocol/remote/statement_requests.h"
#include "nox/protocol/remote/transactions.h"
#include "nox/protocol/sql/result_set.h"
#include "nox/protocol/sql/sql_object_factory.h"
#include "nox/protocol/sql/sql_requests.h"
#include "nox/protocol/sql/transaction_requests.h"
#include "nox/protocol/status_replies.h"

namespace nox::test {

using namespace noxp;          // NOLINT(google-build-using-namespace): the table names them all
using namespace noxp::common;  // NOLINT(google-build-using-namespace)
using namespace noxp::remote;  // NOLINT(google-build-using-namespace)
using namespace noxp::sql;     // NOLINT(google-build-using-namespace)

namespace {

constexpr Catalogue kAuth = Catalogue::auth;
constexpr Catalogue kSql = Catalogue::sql;
constexpr Catalogue kRemote = Catalogue::remote;
constexpr Catalogue kClient = Catalogue::client;

// Parts of examples. Pointers are the caller's.

NOXPString* text(const char* content) { return new NOXPString(content); }

ACEBinaryFormatParameterListProt* oneParameter() {
  auto list = std::make_unique<ACEBinaryFormatParameterListProt>(1);
  list->setString(0, "P", 12);
  return list.release();
}

/// Key A with the record r, which is marked as changed.
SelectListProt* oneKey() {
  const NOXPBlob keys("A");
  auto list = std::make_unique<SelectListProt>(&keys);
  list->setId(7);
  list->setHasRecordData(true);
  list->next();
  list->setRecord(new NOXPBlob("r"));
  return list.release();
}

RowProt* oneValue() {
  auto row = std::make_unique<RowProt>();
  row->addColumnValue("V");
  return row.release();
}

ResultSetProt* oneRow() {
  auto set = std::make_unique<ResultSetProt>();
  set->addRow(oneValue());
  return set.release();
}

ColumnMetaDataProt* column(const char* number, const char* name) {
  ColumnMetaDataPtr made(new ColumnMetaDataProt);
  made->setColumnNumber(NOXPString(number));
  made->setColumnName(NOXPString(name));
  return made.release();
}

ResultSetMetaDataProt* oneColumn() {
  auto description = std::make_unique<ResultSetMetaDataProt>();
  description->addColumn(column("1", "NAME"));
  return description.release();
}

XAXidProt* branch() {
  auto xid = std::make_unique<XAXidProt>();
  xid->setTransactionId("T1");
  xid->setFormat(7);
  return xid.release();
}

template <class Request>
Serializable* branchRequest() {
  auto request = std::make_unique<Request>();
  request->getXid()->setTransactionId("T1");
  request->getXid()->setFormat(7);
  return request.release();
}

/// A reply that borrows what it carries.
template <class Reply, class Carried>
Example replyWith(int statementId, Carried* carried) {
  const std::shared_ptr<Carried> lent(carried);
  return Example(new Reply(statementId, carried), {lent});
}

LocalUserCredentials* credentials() {
  auto made = std::make_unique<LocalUserCredentials>(NOXPString("u"), NOXPString("p"));
  const NOXPString seed("s");
  made->setSeed(&seed);
  return made.release();
}

/// A reply of a server that knows all four facts.
Example metadataReply() {
  auto repository = std::make_shared<MetaDataRepositoryProt>();
  repository->setRepositoryEntry("EIS_PRODUCT_NAME", std::string("N"));
  repository->setRepositoryEntry("EIS_PRODUCT_VERSION", std::string("1.0"));
  repository->setRepositoryEntry("EIS_MAX_CONNECTIONS", std::string("9"));
  repository->setRepositoryEntry("EIS_USER_NAME", std::string("u"));
  return Example(new EISMetaDataResponseProt(repository.get()), {repository});
}

Family placeholders() {
  return {
      "Requests that carry nothing",
      "They stand for a request where there is none. They share the code 0, so a factory can "
      "register one of them at most; the library's register none.",
      {
          row<InternalErrorRequestProt>(0, "nox::noxp::InternalErrorRequestProt",
                                        "A request that failed before it was read.",
                                        [] { return new InternalErrorRequestProt("Full"); })
              .noting("The error that it holds never travels."),
          row<DummyRequestProt>(0, "nox::noxp::DummyRequestProt", "A request that asks nothing.",
                                [] { return new DummyRequestProt; }),
          row<UnrecognizedRequestProt>(0, "nox::noxp::UnrecognizedRequestProt",
                                       "A request of an unknown kind.",
                                       [] { return new UnrecognizedRequestProt; }),
      }};
}

Family login() {
  return {"Login",
          "The first request on a connection; answered by `OKResponseProt` or `ErrorResponseProt`.",
          {
              row<AuthenticationRequestProt>(
                  15, "nox::noxp::AuthenticationRequestProt",
                  "Brings the user's credentials to the agent.",
                  [] { return new AuthenticationRequestProt(credentials()); })
                  .in(kAuth, "AuthenticationRequest")
                  .noting("The nested object is 111 or 112; its code says which is created. The "
                          "agent's verdict stays on its side. `getVersion()` is 1, and still the "
                          "request travels as version 0 until the sender sets another."),
              row<LocalUserCredentials>(111, "nox::LocalUserCredentials", "A user and a password.",
                                        credentials)
                  .in(kAuth, "UserCredentials")
                  .in(kClient, "UserCredentials"),
              row<AccountUserCredentialsProt>(
                  112, "nox::AccountUserCredentialsProt",
                  "A user and a password for an account of the database.",
                  [] { return new AccountUserCredentialsProt("u", "acc", "p"); })
                  .in(kAuth, "AccountUserCredentials")
                  .in(kClient, "AccountUserCredentials")
                  .noting("Seed and failed attempts, which it has as well, do not travel."),
          }};
}

Family sqlRequests() {
  return {
      "SQL requests",
      "What a client asks of the SQL service. `statementId` names a statement that the server "
      "holds.",
      {
          row<CompileRequestProt>(2, "nox::noxp::sql::CompileRequestProt", "Compiles a statement.",
                                  [] { return new CompileRequestProt(text("SELECT 1")); })
              .in(kSql, "CompileRequest"),
          row<PrecompileRequestProt>(3, "nox::noxp::sql::PrecompileRequestProt",
                                     "Prepares a statement whose parameters are bound later.",
                                     [] { return new PrecompileRequestProt(text("SELECT ?")); })
              .in(kSql, "PrecompileRequest"),
          row<ExecuteRequestProt>(4, "nox::noxp::sql::ExecuteRequestProt", "Executes a statement.",
                                  [] { return new ExecuteRequestProt(5); })
              .in(kSql, "ExecuteRequest"),
          row<BindRequestProt>(5, "nox::noxp::sql::BindRequestProt",
                               "Gives a statement its parameters.",
                               [] { return new BindRequestProt(5, oneParameter()); })
              .in(kSql, "BindRequest"),
          row<FetchRequestProt>(6, "nox::noxp::sql::FetchRequestProt", "Asks for more rows.",
                                [] { return new FetchRequestProt(5, 100); })
              .in(kSql, "FetchRequest"),
          row<MetaDataRequestProt>(7, "nox::noxp::sql::MetaDataRequestProt",
                                   "Asks what columns and parameters a statement has.",
                                   [] { return new MetaDataRequestProt(5); })
              .in(kSql, "MetaDataRequest"),
          row<ReleaseStatementRequestProt>(8, "nox::noxp::sql::ReleaseStatementRequestProt",
                                           "Lets go of a statement.",
                                           [] { return new ReleaseStatementRequestProt(5); })
              .in(kSql, "ReleaseStatementRequest"),
          row<LoadSubroutineRequestProt>(9, "nox::noxp::sql::LoadSubroutineRequestProt",
                                         "Prepares a call of a subroutine.",
                                         [] { return new LoadSubroutineRequestProt(text("SUB")); })
              .in(kSql, "LoadSubroutineRequest"),
          row<CallSubroutineRequestProt>(
              10, "nox::noxp::sql::CallSubroutineRequestProt", "Calls a loaded subroutine.",
              [] { return new CallSubroutineRequestProt(5, oneParameter()); })
              .in(kSql, "CallSubroutineRequest"),
          row<TransactionStartRequestProt>(11, "nox::noxp::sql::TransactionStartRequestProt",
                                           "Begins a transaction.",
                                           [] { return new TransactionStartRequestProt(2); })
              .in(kSql, "TransactionStartRequest")
              .layouts({0, 1})
              .noting("The isolation level travels in every version but 0."),
          row<TransactionCommitRequestProt>(12, "nox::noxp::sql::TransactionCommitRequestProt",
                                            "Commits the transaction.",
                                            [] { return new TransactionCommitRequestProt; })
              .in(kSql, "TransactionCommitRequest"),
          row<TransactionRollbackRequestProt>(13, "nox::noxp::sql::TransactionRollbackRequestProt",
                                              "Rolls the transaction back.",
                                              [] { return new TransactionRollbackRequestProt; })
              .in(kSql, "TransactionRollbackRequest"),
          row<CompileAndExecuteRequestProt>(
              14, "nox::noxp::sql::CompileAndExecuteRequestProt",
              "Compiles and executes a statement.",
              [] { return new CompileAndExecuteRequestProt(text("SELECT 1")); })
              .in(kSql, "CompileAndExecuteRequest"),
          row<DatabaseMetaDataRequestProt>(
              16, "nox::noxp::sql::DatabaseMetaDataRequestProt",
              "Asks for a property of the database, as a result set.",
              [] { return new DatabaseMetaDataRequestProt("tables", oneParameter()); })
              .in(kSql, "DatabaseMetaDataRequest"),
      }};
}

Family sqlReplies() {
  return {
      "SQL replies",
      "Each names the statement it concerns and adds what the request produced.",
      {
          row<SQLResponseProt>(113, "nox::noxp::sql::SQLResponseProt",
                               "The statement, without a result.",
                               [] { return new SQLResponseProt(5); })
              .in(kSql, "SQLResponseProt")
              .in(kClient, "SQLResponse"),
          row<SQLOKResponseProt>(114, "nox::noxp::sql::SQLOKResponseProt", "The request was done.",
                                 [] { return new SQLOKResponseProt(5); })
              .in(kSql, "SQLOKResponse")
              .in(kClient, "SQLOKResponse")
              .noting("The text is always \"OK\"; a reader drops what it finds there."),
          row<SQLUpdateResponseProt>(115, "nox::noxp::sql::SQLUpdateResponseProt",
                                     "The number of rows that changed.",
                                     [] { return new SQLUpdateResponseProt(5, 3); })
              .in(kSql, "SQLUpdateResponse")
              .in(kClient, "SQLUpdateResponse"),
          row<SQLResultResponseProt>(116, "nox::noxp::sql::SQLResultResponseProt", "Rows.",
                                     [] { return replyWith<SQLResultResponseProt>(5, oneRow()); })
              .in(kSql, "SQLResultResponse")
              .in(kClient, "SQLResultResponse")
              .reads(DefaultReads::withEmptyFields),
          row<SQLRSMDResponseProt>(117, "nox::noxp::sql::SQLRSMDResponseProt",
                                   "The description of the rows.",
                                   [] { return replyWith<SQLRSMDResponseProt>(5, oneColumn()); })
              .in(kSql, "SQLRSMDResponse")
              .in(kClient, "SQLRSMDResponse")
              .reads(DefaultReads::withEmptyFields),
          row<SQLParamsResponseProt>(
              118, "nox::noxp::sql::SQLParamsResponseProt", "The parameters as a call left them.",
              [] { return replyWith<SQLParamsResponseProt, ParameterListProt>(5, oneParameter()); })
              .in(kSql, "SQLParamsResponse")
              .in(kClient, "SQLParamsResponse")
              .reads(DefaultReads::withEmptyFields),
          row<SQLErrorResponseProt>(
              119, "nox::noxp::sql::SQLErrorResponseProt", "The request failed.",
              [] { return new SQLErrorResponseProt(5, SQLExtError("IE", "000", "Full")); })
              .in(kSql, "SQLErrorResponseProtProt")
              .in(kClient, "SQLErrorResponse")
              .reads(DefaultReads::withEmptyFields),
          row<LegacySQLResponseProt>(101, "nox::noxp::sql::LegacySQLResponseProt",
                                     "The layout that came before the others.",
                                     [] { return new LegacySQLResponseProt; })
              .in(kClient, "LegacySQLResponse")
              .noting("Written, it holds nothing; whatever is read into it is dropped."),
      }};
}

Family sqlObjects() {
  return {
      "Rows and their description",
      "The objects inside SQL replies.",
      {
          row<ResultSetProt>(106, "nox::noxp::sql::ResultSetProt", "Rows, one after the other.",
                             oneRow)
              .in(kSql, "ResultSetProt")
              .in(kClient, "ResultSet")
              .noting("As many rows as the number says. Writing a set uses it up."),
          row<RowProt>(107, "nox::noxp::sql::RowProt", "The values of one row.", oneValue)
              .in(kSql, "RowProt")
              .in(kClient, "Row")
              .reads(DefaultReads::notAtAll)
              .noting("As many values as the number says. A row without values writes nothing, not "
                      "even the number, and cannot be read."),
          row<ResultSetMetaDataProt>(104, "nox::noxp::sql::ResultSetMetaDataProt",
                                     "The columns of a statement's rows, and its parameters.",
                                     [] {
                                       auto* description = oneColumn();
                                       description->addParameter(column("1", "LIMIT"));
                                       return description;
                                     })
              .in(kSql, "ResultSetMetaDataProt")
              .in(kClient, "ResultSetMetaData")
              .layouts({0, 2})
              .noting("As many columns and parameters as the numbers say. Parameters travel from "
                      "version 2 on; the version is this object's, whatever the reply's is."),
          row<ColumnMetaDataProt>(105, "nox::noxp::sql::ColumnMetaDataProt",
                                  "The description of one column or parameter.",
                                  [] { return column("1", "NAME"); })
              .in(kSql, "ColumnMetaDataProt")
              .in(kClient, "ColumnMetaData")
              .noting("Eighteen attributes in one string: number and name, then the others behind "
                      "their keys."),
      }};
}

Family replies() {
  return {"Replies of every service",
          "Done, failed, and what a command printed.",
          {
              row<OKResponseProt>(503, "nox::OKResponseProt", "The request was done.",
                                  [] { return new OKResponseProt; })
                  .in(kSql, "OKResponse")
                  .in(kClient, "OKResponse")
                  .noting("The text is always \"OK\"; a reader drops what it finds there."),
              row<ErrorResponseProt>(
                  102, "nox::ErrorResponseProt", "The request failed.",
                  [] { return new ErrorResponseProt(SQLExtError("IE", "000", "Full")); })
                  .in(kSql, "ErrorResponse")
                  .in(kClient, "ErrorResponse")
                  .reads(DefaultReads::withEmptyFields),
              row<SQLExtError>(403, "nox::SQLExtError", "The error inside error replies.",
                               [] { return new SQLExtError("IE", "000", "Full"); })
                  .in(kSql, "SQLErrorResponseProt")
                  .in(kClient, "SQLExtError"),
              row<InputOutputResponseProt>(305, "nox::noxp::InputOutputResponseProt",
                                           "What a command printed, or that it wants input.",
                                           [] {
                                             const NOXPBlob output("done");
                                             return new InputOutputResponseProt(2, &output);
                                           })
                  .in(kSql, "InputOutputResponseProt")
                  .in(kClient, "InputOutputResponse"),
          }};
}

Family commonMessages() {
  return {
      "Common messages",
      "Echo, a line for the agent's log, property sets.",
      {
          row<EchoRequestProt>(504, "nox::noxp::common::EchoRequestProt",
                               "Asks for the same bytes back.",
                               [] {
                                 auto request = std::make_unique<EchoRequestProt>();
                                 request->getBuffer()->append("hello");
                                 return request.release();
                               }),
          row<EchoResponseProt>(505, "nox::noxp::common::EchoResponseProt", "The bytes that came.",
                                [] { return new EchoResponseProt(new NOXPBlob("hello")); })
              .in(kClient, "EchoResponse")
              .reads(DefaultReads::withEmptyFields),
          row<LoggingRequestProt>(502, "nox::noxp::common::LoggingRequestProt",
                                  "Asks the agent to log a line.",
                                  [] {
                                    const NOXPString info("line");
                                    return new LoggingRequestProt(&info, 4);
                                  }),
          row<SetPropertiesRequestProt>(229, "nox::noxp::common::SetPropertiesRequestProt",
                                        "Hands the agent a set of properties.",
                                        [] {
                                          Properties set;
                                          set.setProperty("k", "v");
                                          return new SetPropertiesRequestProt(set);
                                        })
              .in(kSql, "SetPropertiesRequestProt")
              .in(kRemote, "SetPropertiesRequest")
              .noting("As many pairs as the number says, in byte-wise order of their keys."),
          row<SetPropertiesResponseProt>(312, "nox::noxp::common::SetPropertiesResponseProt",
                                         "The properties were taken.",
                                         [] { return new SetPropertiesResponseProt; })
              .in(kSql, "SetPropertiesResponseProt")
              .in(kClient, "SetPropertiesResponse"),
      }};
}

Family parameters() {
  return {
      "Parameter lists",
      "Typed, nullable values of statements and subroutine calls.",
      {
          row<ACEBinaryFormatParameterListProt>(103, "nox::noxp::ACEBinaryFormatParameterListProt",
                                                "A list of values.", oneParameter)
              .in(kAuth, "ACEBinaryFormatParameterListProt")
              .in(kSql, "ACEBinaryFormatParameterListProt")
              .in(kRemote, "ACEBinaryFormatParameterListProt")
              .in(kClient, "ACEBinaryFormatParameterListProt")
              .noting("The number of values, then for each its type code, its null flag (1 null, "
                      "0 not null, -1 never set) and its bytes."),
      }};
}

Family files() {
  return {
      "File requests",
      "Answered by `ToviResponseProt`.",
      {
          row<OpenFileRequestProt>(205, "nox::noxp::remote::OpenFileRequestProt", "Opens a file.",
                                   [] { return new OpenFileRequestProt("F"); })
              .in(kRemote, "OpenFileRequest"),
          row<CloseFileRequestProt>(206, "nox::noxp::remote::CloseFileRequestProt",
                                    "Closes a file.", [] { return new CloseFileRequestProt("F"); })
              .in(kRemote, "CloseFileRequest"),
          row<ClearFileRequestProt>(207, "nox::noxp::remote::ClearFileRequestProt",
                                    "Deletes all records of a file.",
                                    [] { return new ClearFileRequestProt("F"); })
              .in(kRemote, "ClearFileRequest"),
          row<SelectFileRequestProt>(208, "nox::noxp::remote::SelectFileRequestProt",
                                     "Asks for the select list of a file's records.",
                                     [] { return new SelectFileRequestProt("F"); })
              .in(kRemote, "SelectFileRequest"),
      }};
}

Family records() {
  return {"Record requests",
          "Answered by `ToviResponseProt`, a common by `ReadCommonResponseProt`.",
          {
              row<ReadRecordRequestProt>(201, "nox::noxp::remote::ReadRecordRequestProt",
                                         "Reads a record.",
                                         [] { return new ReadRecordRequestProt(2, "F", "R"); })
                  .in(kRemote, "ReadRecordRequest"),
              row<WriteRecordRequestProt>(
                  202, "nox::noxp::remote::WriteRecordRequestProt", "Writes a record.",
                  [] { return new WriteRecordRequestProt(2, "F", "R", "r"); })
                  .in(kRemote, "WriteRecordRequest"),
              row<DeleteRecordRequestProt>(203, "nox::noxp::remote::DeleteRecordRequestProt",
                                           "Deletes a record.",
                                           [] { return new DeleteRecordRequestProt("F", "R"); })
                  .in(kRemote, "DeleteRecordRequest"),
              row<ExistsRecordRequestProt>(204, "nox::noxp::remote::ExistsRecordRequestProt",
                                           "Asks whether a record exists.",
                                           [] { return new ExistsRecordRequestProt("F", "R"); })
                  .in(kRemote, "ExistsRecordRequest"),
              row<ReleaseRecordLockRequestProt>(
                  225, "nox::noxp::remote::ReleaseRecordLockRequestProt", "Releases record locks.",
                  [] { return new ReleaseRecordLockRequestProt(1, "F", "R"); })
                  .in(kRemote, "ReleaseRecordLockRequest"),
              row<ReadCommonRequestProt>(221, "nox::noxp::remote::ReadCommonRequestProt",
                                         "Reads a named common.",
                                         [] { return new ReadCommonRequestProt("N"); })
                  .in(kRemote, "ReadCommonRequest"),
          }};
}

Family selectLists() {
  return {
      "Select lists",
      "Lists of record keys, and the requests that move them.",
      {
          row<SelectListProt>(404, "nox::noxp::remote::SelectListProt",
                              "Keys, with their records when the client asked for data.", oneKey)
              .in(kRemote, "SelectListProt")
              .in(kClient, "SelectListProt")
              .noting(
                  "A negative id travels alone. As many keys, records and modified positions "
                  "as the numbers say; what stands behind `hasRecords` travels when that is 1."),
          row<SelectListProt5>(401, "nox::noxp::remote::SelectListProt5",
                               "The older form: all keys in one blob.",
                               [] {
                                 return new SelectListProt5(
                                     new NOXPBlob("A\xFE"
                                                  "B"));
                               })
              .in(kClient, "SelectListProt5")
              .noting("Attribute marks (FE) stand between the keys."),
          row<SelectListFetchRequestProt>(
              230, "nox::noxp::remote::SelectListFetchRequestProt",
              "Asks for the next part of a list.",
              [] {
                const std::shared_ptr<SelectListProt> list(oneKey());
                return Example(new SelectListFetchRequestProt(7, 1, 50, true, list.get()), {list});
              })
              .in(kRemote, "SelectListFetchRequestProt"),
          row<SelectListCommitRequestProt>(
              231, "nox::noxp::remote::SelectListCommitRequestProt",
              "Writes the changed records of a list back.",
              [] {
                const std::shared_ptr<SelectListProt> list(oneKey());
                return Example(new SelectListCommitRequestProt(list.get()), {list});
              }),
          row<SelectListCloseRequestProt>(232, "nox::noxp::remote::SelectListCloseRequestProt",
                                          "Lets go of a list.",
                                          [] { return new SelectListCloseRequestProt(7); }),
          row<SelectListFetchResponseProt>(314, "nox::noxp::remote::SelectListFetchResponseProt",
                                           "The part that was asked for.",
                                           [] { return new SelectListFetchResponseProt(oneKey()); })
              .in(kClient, "SelectListFetchResponse")
              .reads(DefaultReads::withEmptyFields),
      }};
}

Family transactions() {
  const auto xa = [](auto made) { return made.noting("A copy loses the format of its xid."); };
  return {
      "Transactions",
      "Answered by `TransactionResponseProt`.",
      {
          row<BeginTransactionRequestProt>(211, "nox::noxp::remote::BeginTransactionRequestProt",
                                           "Begins a local transaction.",
                                           [] { return new BeginTransactionRequestProt; })
              .in(kRemote, "BeginTransactionRequest"),
          row<CommitTransactionRequestProt>(212, "nox::noxp::remote::CommitTransactionRequestProt",
                                            "Commits it.",
                                            [] { return new CommitTransactionRequestProt; })
              .in(kRemote, "CommitTransactionRequest"),
          row<RollbackTransactionRequestProt>(
              213, "nox::noxp::remote::RollbackTransactionRequestProt", "Rolls it back.",
              [] { return new RollbackTransactionRequestProt; })
              .in(kRemote, "RollbackTransactionRequest"),
          xa(row<XAStartTransactionRequestProt>(214,
                                                "nox::noxp::remote::XAStartTransactionRequestProt",
                                                "Begins a branch of a distributed transaction.",
                                                branchRequest<XAStartTransactionRequestProt>)
                 .in(kRemote, "XAStartTransactionRequest")),
          xa(row<XAEndTransactionRequestProt>(215, "nox::noxp::remote::XAEndTransactionRequestProt",
                                              "Ends the work on a branch.",
                                              branchRequest<XAEndTransactionRequestProt>)
                 .in(kRemote, "XAEndTransactionRequest")),
          xa(row<XAPrepareTransactionRequestProt>(
                 216, "nox::noxp::remote::XAPrepareTransactionRequestProt", "Prepares a branch.",
                 branchRequest<XAPrepareTransactionRequestProt>)
                 .in(kRemote, "XAPrepareTransactionRequest")),
          xa(row<XACommitTransactionRequestProt>(
                 217, "nox::noxp::remote::XACommitTransactionRequestProt", "Commits a branch.",
                 branchRequest<XACommitTransactionRequestProt>)
                 .in(kRemote, "XACommitTransactionRequest")),
          xa(row<XARollbackTransactionRequestProt>(
                 218, "nox::noxp::remote::XARollbackTransactionRequestProt", "Rolls a branch back.",
                 branchRequest<XARollbackTransactionRequestProt>)
                 .in(kRemote, "XARollbackTransactionRequest")),
          row<XAXidProt>(402, "nox::noxp::remote::XAXidProt",
                         "The name of a distributed transaction's branch.", branch)
              .in(kRemote, "XAXid")
              .in(kClient, "XAXid")
              .noting("A copy loses the format."),
      }};
}

Family execution() {
  return {"Commands, subroutines and statements",
          "What runs on the server.",
          {
              row<RemoteExecuteRequestProt>(
                  220, "nox::noxp::remote::RemoteExecuteRequestProt", "Executes a command.",
                  [] {
                    const auto command = std::make_shared<NOXPBlob>("WHO");
                    const std::shared_ptr<SelectListProt> list(oneKey());
                    return Example(new RemoteExecuteRequestProt(command.get(), list.get()),
                                   {command, list});
                  })
                  .in(kRemote, "RemoteExecuteRequest")
                  .layouts({0, 1})
                  .noting("The list travels in version 1 only, not in later ones."),
              row<RemoteSubroutineRequestProt>(
                  209, "nox::noxp::remote::RemoteSubroutineRequestProt", "Calls a subroutine.",
                  [] {
                    const NOXPString name("SUB");
                    return new RemoteSubroutineRequestProt(
                        &name, static_cast<ParameterListProt*>(oneParameter()));
                  })
                  .in(kRemote, "RemoteSubroutineRequest"),
              row<RemoteInputRequestProt>(210, "nox::noxp::remote::RemoteInputRequestProt",
                                          "Gives a running program its input.",
                                          [] { return new RemoteInputRequestProt("yes", 3); })
                  .in(kRemote, "RemoteInputRequest"),
              row<StatementExecuteQueryRequestProt>(
                  226, "nox::noxp::remote::StatementExecuteQueryRequestProt", "Executes a query.",
                  [] {
                    const std::shared_ptr<SelectListProt> list(oneKey());
                    return Example(new StatementExecuteQueryRequestProt("GET", list.get()), {list});
                  })
                  .in(kRemote, "StatementExecuteQueryRequest")
                  .layouts({0, 1})
                  .noting("Version 0 has the query as a string and no list; every other has both."),
              row<StatementFetchRequestProt>(227, "nox::noxp::remote::StatementFetchRequestProt",
                                             "Asks for rows of a statement.",
                                             [] { return new StatementFetchRequestProt(5, 100); })
                  .in(kRemote, "StatementFetchRequest"),
          }};
}

Family session() {
  return {"Conversions, the account, date and time",
          "Requests about the session.",
          {
              row<ConvRequestProt>(223, "nox::noxp::remote::ConvRequestProt", "Converts data.",
                                   [] { return new ConvRequestProt(1, "20000", "D2/"); })
                  .in(kRemote, "ConvRequest"),
              row<SwitchAccountRequestProt>(
                  224, "nox::noxp::remote::SwitchAccountRequestProt",
                  "Moves the session to another account.",
                  [] { return new SwitchAccountRequestProt("u", "acc", "p"); })
                  .in(kRemote, "SwitchAccountRequest"),
              row<DateTimeRequestProt>(219, "nox::noxp::remote::DateTimeRequestProt",
                                       "Asks for the server's date and time.",
                                       [] { return new DateTimeRequestProt; })
                  .in(kRemote, "DateTimeRequest"),
          }};
}

Family remoteReplies() {
  return {
      "Remote replies",
      "Fields that are absent when a reply is made are empty once it was read; an absent select "
      "list has the id -1 then.",
      {
          row<ToviResponseProt>(301, "nox::noxp::remote::ToviResponseProt",
                                "A record, a select list, or both.",
                                [] { return new ToviResponseProt(1, new NOXPBlob("r"), oneKey()); })
              .in(kClient, "ToviResponse")
              .reads(DefaultReads::withEmptyFields),
          row<ExecuteResponseProt>(302, "nox::noxp::remote::ExecuteResponseProt",
                                   "What a command printed, what it set, the list it left.",
                                   [] {
                                     const NOXPBlob capturing("C");
                                     const NOXPBlob setting("S");
                                     return new ExecuteResponseProt(&capturing, &setting, oneKey());
                                   })
              .in(kClient, "ExecuteResponse")
              .reads(DefaultReads::withEmptyFields),
          row<TransactionResponseProt>(303, "nox::noxp::remote::TransactionResponseProt",
                                       "The transaction request was carried out.",
                                       [] { return new TransactionResponseProt; })
              .in(kClient, "TransactionResponse"),
          row<SubroutineResponseProt>(304, "nox::noxp::remote::SubroutineResponseProt",
                                      "The parameters as a subroutine left them.",
                                      [] {
                                        const std::unique_ptr<ParameterListProt> list(
                                            oneParameter());
                                        return new SubroutineResponseProt(0, list.get());
                                      })
              .in(kClient, "SubroutineResponse")
              .reads(DefaultReads::withEmptyFields),
          row<DateTimeResponseProt>(306, "nox::noxp::remote::DateTimeResponseProt",
                                    "The server's date and time.",
                                    [] { return new DateTimeResponseProt(20000, 3600); })
              .in(kClient, "DateTimeResponse"),
          row<ReadCommonResponseProt>(307, "nox::noxp::remote::ReadCommonResponseProt",
                                      "The value of a common.",
                                      [] { return new ReadCommonResponseProt("V"); })
              .in(kClient, "ReadCommonResponse"),
          row<ConvResponseProt>(308, "nox::noxp::remote::ConvResponseProt", "The converted data.",
                                [] {
                                  const NOXPBlob result("10/03/22");
                                  return new ConvResponseProt(&result);
                                })
              .in(kClient, "ConvResponse"),
          row<SwitchAccountResponseProt>(309, "nox::noxp::remote::SwitchAccountResponseProt",
                                         "Whether the session has moved.",
                                         [] { return new SwitchAccountResponseProt(0); })
              .in(kClient, "SwitchAccountResponse"),
          row<StatementFetchResponseProt>(310, "nox::noxp::remote::StatementFetchResponseProt",
                                          "Rows of a statement.",
                                          [] {
                                            return new StatementFetchResponseProt(
                                                0, static_cast<ParameterListProt*>(oneParameter()));
                                          })
              .in(kClient, "StatementFetchResponse")
              .reads(DefaultReads::withEmptyFields),
      }};
}

Family serverFacts() {
  return {
      "Metadata and monitoring",
      "What stands behind the server, and how it does.",
      {
          row<EISMetaDataRequestProt>(222, "nox::noxp::remote::EISMetaDataRequestProt",
                                      "Asks what data system stands behind the server.",
                                      [] { return new EISMetaDataRequestProt; })
              .in(kRemote, "EISMetaDataRequest"),
          row<EISMetaDataResponseProt>(313, "nox::noxp::remote::EISMetaDataResponseProt",
                                       "Four facts, each behind its key, as the server sends them.",
                                       metadataReply)
              .reads(DefaultReads::never)
              .noting(
                  "A fact that the server does not know is a null blob. This class only writes."),
          row<EISMetaDataReplyProt>(
              313, "nox::noxp::remote::EISMetaDataReplyProt",
              "The same reply, as a client reads it.",
              [] {
                const Example sent = metadataReply();
                Classes<EISMetaDataReplyProt> factory;
                return readAs<EISMetaDataReplyProt>(frameOf(*sent.message), factory).release();
              })
              .in(kClient, "EISMetaDataResponse"),
          row<MonitoringRequestProt>(228, "nox::noxp::remote::MonitoringRequestProt",
                                     "One command line.",
                                     [] { return new MonitoringRequestProt("status", "all"); })
              .in(kRemote, "MonitoringRequest"),
          row<MonitoringResponseProt>(311, "nox::noxp::remote::MonitoringResponseProt",
                                      "The answer as one text.",
                                      [] { return new MonitoringResponseProt("up"); })
              .in(kClient, "MonitoringResponse"),
      }};
}

}  // namespace

const char* nameOf(Catalogue catalogue) {
  switch (catalogue) {
    case Catalogue::auth:
      return "auth";
    case Catalogue::sql:
      return "SQL";
    case Catalogue::remote:
      return "remote";
    case Catalogue::client:
      return "client";
  }
  return "";
}

std::unique_ptr<ObjectFactory> factoryOf(Catalogue catalogue) {
  switch (catalogue) {
    case Catalogue::auth:
      return std::make_unique<auth::AuthObjectFactory>();
    case Catalogue::sql:
      return std::make_unique<SQLObjectFactory>();
    case Catalogue::remote:
      return std::make_unique<RemoteObjectFactory>();
    case Catalogue::client:
      return std::make_unique<ClientObjectFactory>();
  }
  return nullptr;
}

const std::string* MessageRow::nameIn(Catalogue catalogue) const {
  for (const auto& [where, name] : names) {
    if (where == catalogue) return &name;
  }
  return nullptr;
}

Example MessageRow::example(int version) const {
  Example made = makeExample();
  made.message->setClassVersion(version);
  return made;
}

std::string MessageRow::shortName() const { return className.substr(className.rfind(':') + 1); }

const std::vector<Family>& families() {
  static const std::vector<Family> all = {
      login(),      replies(),       commonMessages(), parameters(),   sqlRequests(),  sqlReplies(),
      sqlObjects(), files(),         records(),        selectLists(),  transactions(), execution(),
      session(),    remoteReplies(), serverFacts(),    placeholders(),
  };
  return all;
}

std::vector<const MessageRow*> allRows() {
  std::vector<const MessageRow*> rows;
  for (const Family& family : families()) {
    for (const MessageRow& row : family.rows) rows.push_back(&row);
  }
  return rows;
}

EveryMessage::EveryMessage(const MessageRow* first) {
  const auto add = [this](const MessageRow& row) {
    std::unique_ptr<Serializable> prototype = row.makeDefault();
    registerType(prototype.get(), row.className.c_str());
    prototype.release();
  };
  if (first) add(*first);
  for (const MessageRow* row : allRows()) {
    if (!getTypeName(row->code) && row->defaultReads != DefaultReads::never) add(*row);
  }
}

}  // namespace nox::test
