// Failure, the one way in which work for a client fails: an SQLSTATE with a reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nox/nox.h>

namespace nox::agent {

/// The code of an SQLSTATE, in its two parts.
struct StateCode {
  const char* sqlClass;
  const char* sqlSubClass;
};

/// Thrown by value, anywhere below a request handler; the session answers with it. The client reads
/// the catalogue's text of the code, ": ", the reason, and the status as " (Status = 0x..)".
class Failure : public std::exception {
public:
  Failure(const char* sqlClass, const char* sqlSubClass, std::string reason,
          std::optional<std::int32_t> status = std::nullopt);

  const SQLSTATE& state() const { return state_; }
  const std::string& reason() const { return reason_; }
  std::optional<std::int32_t> status() const { return status_; }
  /// What crosses the wire.
  SQLExtError error() const;
  const char* what() const noexcept override { return text_.c_str(); }

private:
  SQLSTATE state_;
  std::string reason_;
  std::optional<std::int32_t> status_;
  std::string text_;
};

}  // namespace nox::agent
