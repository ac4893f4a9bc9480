// SQLExtError, the one error object that crosses the wire: an SQLSTATE and a message.
#pragma once

#include <string>

#include "nox/protocol/message.h"
#include "nox/protocol/sql_state.h"

namespace nox {

/// Travels inside error replies. The library also throws it, by value, for errors of a cursor.
class NOX_EXPORT SQLExtError : public Payload<SQLExtError, TypeCode::SQLExtError> {
public:
  /// "00"/"000", "No error.", which is not a row of the catalogue.
  SQLExtError();
  // The catalogue's message for the code. Null texts count as empty, here and below.
  SQLExtError(const char* sqlClass, const char* sqlSubClass);
  SQLExtError(const std::string& sqlClass, const std::string& sqlSubClass);
  explicit SQLExtError(const SQLSTATE& state);
  // A message of the caller's, which goes through `setMsg`.
  SQLExtError(const char* sqlClass, const char* sqlSubClass, const char* msg);
  SQLExtError(const char* sqlClass, const char* sqlSubClass, const std::string& msg);
  SQLExtError(const std::string& sqlClass, const std::string& sqlSubClass, const std::string& msg);
  SQLExtError(const SQLSTATE& state, const char* msg);
  SQLExtError(const SQLSTATE& state, const std::string& msg);
  /// An error of the database, "QX"/"000".
  explicit SQLExtError(const char* msg);
  explicit SQLExtError(const std::string& msg);

  /// The stored message, or "Unknown internal error" when it is empty. That text belongs to the
  /// whole process: copy what this returns before changing it.
  std::string& getMsg();
  SQLSTATE& getSqlState() { return sqlState_; }
  const SQLSTATE& getSqlState() const { return sqlState_; }
  /// Stores `msg` with a tab for each attribute, value and subvalue mark, so that a text taken from
  /// a record becomes one line. A message that is read from the wire is kept as it came.
  void setMsg(const char* msg);

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  std::string msg_;
  SQLSTATE sqlState_;
};

}  // namespace nox
