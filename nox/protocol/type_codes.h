// The type code of every message and payload: what stands on the wire, and the one place that says
// so. Codes run from 0 to 999 and never change; 1 is the null object and belongs to no class.
#pragma once

namespace nox {
namespace TypeCode {

// Requests that carry nothing on the wire. One class per factory may use the code.
constexpr int InternalErrorRequest = 0;
constexpr int DummyRequest = 0;
constexpr int UnrecognizedRequest = 0;

// SQL requests.
constexpr int CompileRequest = 2;
constexpr int PrecompileRequest = 3;
constexpr int ExecuteRequest = 4;
constexpr int BindRequest = 5;
constexpr int FetchRequest = 6;
constexpr int MetaDataRequest = 7;
constexpr int ReleaseStatementRequest = 8;
constexpr int LoadSubroutineRequest = 9;
constexpr int CallSubroutineRequest = 10;
constexpr int TransactionStartRequest = 11;
constexpr int TransactionCommitRequest = 12;
constexpr int TransactionRollbackRequest = 13;
constexpr int CompileAndExecuteRequest = 14;
constexpr int AuthenticationRequest = 15;
constexpr int DatabaseMetaDataRequest = 16;

// Generic and SQL replies, and the objects inside them.
constexpr int LegacySQLResponse = 101;
constexpr int ErrorResponse = 102;
constexpr int ParameterList = 103;
constexpr int ResultSetMetaData = 104;
constexpr int ColumnMetaData = 105;
constexpr int ResultSet = 106;
constexpr int Row = 107;
constexpr int LocalUserCredentials = 111;
constexpr int AccountUserCredentials = 112;
constexpr int SQLResponse = 113;
constexpr int SQLOKResponse = 114;
constexpr int SQLUpdateResponse = 115;
constexpr int SQLResultResponse = 116;
constexpr int SQLRSMDResponse = 117;
constexpr int SQLParamsResponse = 118;
constexpr int SQLErrorResponse = 119;

// Remote requests.
constexpr int ReadRecordRequest = 201;
constexpr int WriteRecordRequest = 202;
constexpr int DeleteRecordRequest = 203;
constexpr int ExistsRecordRequest = 204;
constexpr int OpenFileRequest = 205;
constexpr int CloseFileRequest = 206;
constexpr int ClearFileRequest = 207;
constexpr int SelectFileRequest = 208;
constexpr int RemoteSubroutineRequest = 209;
constexpr int RemoteInputRequest = 210;
constexpr int BeginTransactionRequest = 211;
constexpr int CommitTransactionRequest = 212;
constexpr int RollbackTransactionRequest = 213;
constexpr int XAStartTransactionRequest = 214;
constexpr int XAEndTransactionRequest = 215;
constexpr int XAPrepareTransactionRequest = 216;
constexpr int XACommitTransactionRequest = 217;
constexpr int XARollbackTransactionRequest = 218;
constexpr int DateTimeRequest = 219;
constexpr int RemoteExecuteRequest = 220;
constexpr int ReadCommonRequest = 221;
constexpr int EISMetaDataRequest = 222;
constexpr int ConvRequest = 223;
constexpr int SwitchAccountRequest = 224;
constexpr int ReleaseRecordLockRequest = 225;
constexpr int StatementExecuteQueryRequest = 226;
constexpr int StatementFetchRequest = 227;
constexpr int MonitoringRequest = 228;
constexpr int SetPropertiesRequest = 229;
constexpr int SelectListFetchRequest = 230;
constexpr int SelectListCommitRequest = 231;  // in no factory of the library
constexpr int SelectListCloseRequest = 232;   // in no factory of the library

// Remote replies.
constexpr int ToviResponse = 301;
constexpr int ExecuteResponse = 302;
constexpr int TransactionResponse = 303;
constexpr int SubroutineResponse = 304;
constexpr int InputOutputResponse = 305;
constexpr int DateTimeResponse = 306;
constexpr int ReadCommonResponse = 307;
constexpr int ConvResponse = 308;
constexpr int SwitchAccountResponse = 309;
constexpr int StatementFetchResponse = 310;
constexpr int MonitoringResponse = 311;
constexpr int SetPropertiesResponse = 312;
constexpr int EISMetaDataResponse = 313;
constexpr int SelectListFetchResponse = 314;

// Payloads shared by several messages.
constexpr int SelectList5 = 401;
constexpr int XAXid = 402;
constexpr int SQLExtError = 403;
constexpr int SelectList = 404;

// Common service messages.
constexpr int LoggingRequest = 502;
constexpr int OKResponse = 503;
constexpr int EchoRequest = 504;
constexpr int EchoResponse = 505;
constexpr int HTTPRequest = 506;  // the class is the application's

}  // namespace TypeCode
}  // namespace nox
