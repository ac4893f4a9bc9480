#include "nox/protocol/sql_ext_error.h"

#include <algorithm>
#include <utility>

#include "nox/core/archive.h"

namespace nox {

namespace {

bool isMark(char c) { return c == '\xFE' || c == '\xFD' || c == '\xFC'; }

}  // namespace

SQLExtError::SQLExtError() : msg_("No error."), sqlState_("00", "000") {}

SQLExtError::SQLExtError(const char* sqlClass, const char* sqlSubClass)
    : SQLExtError(SQLSTATE(sqlClass, sqlSubClass)) {}

SQLExtError::SQLExtError(const std::string& sqlClass, const std::string& sqlSubClass)
    : SQLExtError(SQLSTATE(sqlClass, sqlSubClass)) {}

SQLExtError::SQLExtError(const SQLSTATE& state) : msg_(state.getMsg()), sqlState_(state) {}

SQLExtError::SQLExtError(const char* sqlClass, const char* sqlSubClass, const char* msg)
    : SQLExtError(SQLSTATE(sqlClass, sqlSubClass), msg) {}

SQLExtError::SQLExtError(const char* sqlClass, const char* sqlSubClass, const std::string& msg)
    : SQLExtError(SQLSTATE(sqlClass, sqlSubClass), msg) {}

SQLExtError::SQLExtError(const std::string& sqlClass, const std::string& sqlSubClass,
                         const std::string& msg)
    : SQLExtError(SQLSTATE(sqlClass, sqlSubClass), msg) {}

SQLExtError::SQLExtError(const SQLSTATE& state, const char* msg) : sqlState_(state) { setMsg(msg); }

SQLExtError::SQLExtError(const SQLSTATE& state, const std::string& msg)
    : SQLExtError(state, msg.c_str()) {}

SQLExtError::SQLExtError(const char* msg) : SQLExtError(SQLSTATE("QX", "000"), msg) {}

SQLExtError::SQLExtError(const std::string& msg) : SQLExtError(msg.c_str()) {}

std::string& SQLExtError::getMsg() {
  static std::string unknown = "Unknown internal error";
  return msg_.empty() ? unknown : msg_;
}

void SQLExtError::setMsg(const char* msg) {
  std::string text = msg ? msg : "";  // a copy first: `msg` may be this error's own text
  std::replace_if(text.begin(), text.end(), isMark, '\t');
  msg_ = std::move(text);
}

Archive& SQLExtError::serialize(Archive& ar, unsigned int /*version*/) {
  // Through temporaries: the state changes only once the whole error has been read.
  std::string sqlClass = sqlState_.sqlClass;
  std::string sqlSubClass = sqlState_.sqlSubClass;
  ar.process(sqlClass, "sqlClass").process(sqlSubClass, "sqlSubClass").process(msg_, "msg");
  if (!ar.isWriting()) sqlState_ = SQLSTATE(sqlClass, sqlSubClass);
  return ar;
}

}  // namespace nox
