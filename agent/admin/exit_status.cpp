#include "agent/admin/exit_status.h"

#include <cerrno>
#include <system_error>

#include "agent/config/configuration.h"
#include "agent/server/server.h"
#include "agent/store/store.h"

namespace nox::agent {

namespace {

ExitStatus statusOfKind(StoreError::Kind kind) {
  switch (kind) {
    case StoreError::Kind::Full:
      return ExitStatus::DiskFull;
    case StoreError::Kind::Damaged:
      return ExitStatus::Damaged;
    default:
      return ExitStatus::Failed;
  }
}

}  // namespace

ExitStatus statusOfErrno(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return ExitStatus::DiskFull;
    case EROFS:
    case EACCES:
    case EPERM:
      return ExitStatus::CannotWrite;
    case EADDRINUSE:
    case EADDRNOTAVAIL:
      return ExitStatus::NoAddress;
    default:
      return ExitStatus::Failed;
  }
}

ExitStatus statusOf(const std::exception& error) {
  if (const auto* admin = dynamic_cast<const AdminError*>(&error)) return admin->status();
  if (const auto* store = dynamic_cast<const StoreError*>(&error)) {
    return statusOfKind(store->kind());
  }
  if (dynamic_cast<const ConfigurationError*>(&error) != nullptr) {
    return ExitStatus::Configuration;
  }
  if (dynamic_cast<const ListenError*>(&error) != nullptr) return ExitStatus::NoAddress;
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return statusOfErrno(system->code().value());
  }
  return ExitStatus::Failed;
}

}  // namespace nox::agent
