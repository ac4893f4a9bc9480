#include "agent/store/sqlite/sqlite_error.h"

#include <cerrno>

#include <sqlite3.h>

namespace nox::agent {

namespace {

constexpr int kPrimaryCode = 0xFF;  // the part of an extended code that names its family

bool isNoRoom(int systemError) {
  return systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG;
}

}  // namespace

StoreError::Kind storeErrorKind(int extendedCode, int systemError) {
  using Kind = StoreError::Kind;
  switch (extendedCode) {
    case SQLITE_CONSTRAINT_DATATYPE:
      return Kind::NotANumber;
    case SQLITE_IOERR_CORRUPTFS:
      return Kind::Damaged;
    default:
      break;
  }
  switch (extendedCode & kPrimaryCode) {
    case SQLITE_BUSY:
      return Kind::Busy;
    case SQLITE_INTERRUPT:
      return Kind::Interrupted;
    case SQLITE_CONSTRAINT:
      return Kind::Duplicate;
    case SQLITE_MISMATCH:
      return Kind::NotANumber;
    case SQLITE_AUTH:
      return Kind::NotAllowed;
    case SQLITE_ABORT:
      return Kind::RolledBack;
    case SQLITE_FULL:
      return Kind::Full;
    case SQLITE_IOERR:
      return isNoRoom(systemError) ? Kind::Full : Kind::Failed;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return Kind::Damaged;
    default:
      return Kind::Failed;
  }
}

StoreError storeError(sqlite3* db, int code, const std::string& what) {
  const int extended = db != nullptr ? sqlite3_extended_errcode(db) : code;
  // The connection's own words belong to its own code; some calls fail without touching either.
  const bool isOwn = db != nullptr && (extended & kPrimaryCode) == (code & kPrimaryCode);
  const char* reason = isOwn ? sqlite3_errmsg(db) : sqlite3_errstr(code);
  const int reported = isOwn ? extended : code;
  const int systemError = db != nullptr ? sqlite3_system_errno(db) : 0;
  return StoreError(storeErrorKind(reported, systemError),
                    what.empty() ? std::string(reason) : what + ": " + reason, reported);
}

}  // namespace nox::agent
