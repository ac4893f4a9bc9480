#include "agent/commands/errors.h"

#include "agent/session/data_access.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

/// IE/004 to IE/010 are the requests' own: loading a subroutine, opening, clearing, selecting,
/// reading, writing and deleting.
bool isOfFileRequest(const SQLSTATE& state) {
  return state.sqlClass == "IE" && state.sqlSubClass >= "004" && state.sqlSubClass <= "010";
}

}  // namespace

void throwAsCommandFailure(const Failure& failure) {
  if (!isOfFileRequest(failure.state())) throw failure;
  throw Failure("IE", "011", failure.reason(), failure.status());
}

void throwAsCommandFailure(const StoreError& error) {
  if (error.kind() == StoreError::Kind::NotInBranch) throw Failure("0A", "000", error.what());
  throwAsFailure(error, "IE", "011");
}

void checkDeadline(Session& session) {
  if (session.isInterrupted()) throw Failure("IE", "011", "the command was interrupted");
  const auto deadline = session.deadline();
  if (deadline && Session::Clock::now() >= *deadline) {
    throw Failure("IE", "011", "the command took longer than STATEMENT_TIMEOUT allows");
  }
}

}  // namespace nox::agent
