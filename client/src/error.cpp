#include "nox/client/error.h"

namespace nox::client {

const char* nameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::NotSent:
      return "NotSent";
    case Outcome::Rejected:
      return "Rejected";
    case Outcome::Unknown:
      return "Unknown";
  }
  return "";
}

Error::Error(std::string_view sqlState, const std::string& message, Outcome outcome,
             std::optional<std::int32_t> status)
    : std::runtime_error(std::string(sqlState) + ": " + message),
      sqlState_(sqlState),
      message_(message),
      outcome_(outcome),
      status_(status) {}

Error::~Error() = default;

}  // namespace nox::client
