#include "agent/store/sqlite/sqlite_error.h"

#include <cerrno>
#include <system_error>

#include <sqlite3.h>

namespace nox::agent {

namespace {

bool isNoRoom(int systemError) {
  return systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG;
}

/// What the system said when reading or writing failed last, of the log or else of the database.
/// The connection's own note of it is often overwritten by what the engine does after the failure.
int lastSystemError(sqlite3* db) {
  int error = 0;
  sqlite3_file* log = nullptr;
  sqlite3_file_control(db, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
  if (log != nullptr && log->pMethods != nullptr) {
    log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
  }
  if (error == 0) sqlite3_file_control(db, "main", SQLITE_FCNTL_LAST_ERRNO, &error);
  return error;
}

}  // namespace

StoreError::Kind storeErrorKind(int extendedCode, int systemError) {
  using Kind = StoreError::Kind;
  switch (extendedCode) {
    case SQLITE_CONSTRAINT_DATATYPE:
      return Kind::NotANumber;
    case SQLITE_IOERR_CORRUPTFS:
      return Kind::Damaged;
    // The memory that processes share could not grow; the system's own error is not kept.
    case SQLITE_IOERR_SHMSIZE:
      return Kind::Full;
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
  const int reported = isOwn ? extended : code;
  std::string reason = isOwn ? sqlite3_errmsg(db) : sqlite3_errstr(code);
  int systemError = 0;
  switch (reported & kPrimaryCode) {
    case SQLITE_IOERR:
      if (db != nullptr) systemError = lastSystemError(db);
      // The engine's words for a failed write do not say that it is for lack of room.
      if (storeErrorKind(reported, systemError) == StoreError::Kind::Full) {
        reason = "there is no room on the disk";
      }
      break;
    case SQLITE_CANTOPEN:
      if (isOwn) systemError = sqlite3_system_errno(db);
      if (systemError != 0) reason += ": " + std::generic_category().message(systemError);
      break;
    case SQLITE_READONLY:
      reason = "the file or its directory may not be written";
      break;
    default:
      break;
  }
  return StoreError(storeErrorKind(reported, systemError),
                    what.empty() ? reason : what + ": " + reason, reported);
}

}  // namespace nox::agent
