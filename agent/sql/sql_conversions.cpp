#include "agent/sql/sql_conversions.h"

#include <memory>

#include "agent/conversions/conversions.h"
#include "agent/failure.h"

namespace nox::agent {

SqlConversion sqlConversions(std::string_view codes) {
  std::shared_ptr<const Conversion> conversion;
  try {
    conversion = std::make_shared<const Conversion>(codes);
  } catch (const Failure&) {
    return {};
  }
  return [conversion](std::string_view value) {
    return conversion->applyWherePossible(value, Direction::Output);
  };
}

}  // namespace nox::agent
