#include "agent/sql/sql_failure.h"

#include "agent/failure.h"
#include "agent/session/data_access.h"

namespace nox::agent {

void throwAsSqlFailure(const StoreError& error) {
  using Kind = StoreError::Kind;
  switch (error.kind()) {
    case Kind::Syntax:
    case Kind::NotAllowed:
      throw Failure("42", "000", error.what());
    case Kind::NoTable:
    case Kind::NoFile:
      throw Failure("42", "S02", error.what());
    case Kind::NoColumn:
      throw Failure("42", "S22", error.what());
    case Kind::Duplicate:
      throw Failure("23", "000", error.what());
    case Kind::NotANumber:
      throw Failure("22", "018", error.what());
    case Kind::NotInBranch:
      throw Failure("0A", "000", error.what());
    default:
      throwAsFailure(error, "IE", "001");
  }
}

}  // namespace nox::agent
