#include "nox/protocol/request.h"

#include <cstdio>
#include <new>

#include "nox/protocol/status_replies.h"

namespace nox::noxp {

namespace {

// What the log shows as the place of a reply that a handler did not name a place for. The numbers
// are fixed labels, one per form of `error`.
constexpr const char* kLogFile = "RequestProt";
constexpr int kSqlStateLine = 75;
constexpr int kStatusSqlStateLine = 106;
constexpr int kTextLine = 125;
constexpr int kStatusTextLine = 152;

std::string withStatus(const std::string& msg, int status) {
  char digits[9];
  std::snprintf(digits, sizeof digits, "%x", static_cast<unsigned int>(status));
  return msg + " (Status = 0x" + digits + ")";
}

}  // namespace

RequestProt::~RequestProt() = default;

ResponseProt* RequestProt::OK() { return new (std::nothrow) OKResponseProt; }

ResponseProt* RequestProt::error(SQLExtError& e) { return new (std::nothrow) ErrorResponseProt(e); }

ResponseProt* RequestProt::error(SQLExtError& e, const char* file, int line) {
  return new (std::nothrow) ErrorResponseProt(e, file, line);
}

ResponseProt* RequestProt::error(const char* sqlClass, const char* sqlSubClass) {
  SQLExtError e(sqlClass, sqlSubClass);
  return error(e, kLogFile, kSqlStateLine);
}

ResponseProt* RequestProt::error(std::string& msg) {
  SQLExtError e("IE", "000", msg);
  return error(e, kLogFile, kTextLine);
}

ResponseProt* RequestProt::error(int status, const char* sqlClass, const char* sqlSubClass) {
  SQLExtError e(sqlClass, sqlSubClass);
  e.setMsg(withStatus(e.getMsg(), status).c_str());
  return error(e, kLogFile, kStatusSqlStateLine);
}

ResponseProt* RequestProt::error(int status, std::string& msg) {
  // Deliberate: a second call with the same string appends the status again.
  msg = withStatus(msg, status);
  SQLExtError e("IE", "000", msg);
  return error(e, kLogFile, kStatusTextLine);
}

ResponseProt* RequestProt::error(int status, const char* msg) {
  std::string text = msg ? msg : "";
  return error(status, text);
}

}  // namespace nox::noxp
