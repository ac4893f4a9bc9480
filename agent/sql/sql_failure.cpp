#include "agent/sql/sql_failure.h"

#include <optional>

#include "agent/failure.h"
#include "agent/session/data_access.h"

namespace nox::agent {

void throwAsSqlFailure(const StoreError& error) {
  using Kind = StoreError::Kind;
  const auto fail = [&](const char* sqlClass, const char* sqlSubClass) {
    throw Failure(sqlClass, sqlSubClass, error.what(),
                  error.status() != 0 ? std::optional(error.status()) : std::nullopt);
  };
  switch (error.kind()) {
    case Kind::Syntax:
    case Kind::NotAllowed:
      fail("42", "000");
      break;
    case Kind::NoTable:
    case Kind::NoFile:
      fail("42", "S02");
      break;
    case Kind::NoColumn:
      fail("42", "S22");
      break;
    case Kind::Duplicate:
      fail("23", "000");
      break;
    case Kind::NotANumber:
      fail("22", "018");
      break;
    default:
      break;
  }
  throwAsFailure(error, "IE", "001");
}

}  // namespace nox::agent
