// Error, the way in which the client library fails.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "nox/client/export.h"

namespace nox::client {

/// What is known about the request that failed.
enum class Outcome {
  NotSent,   ///< No byte of it left: the server knows nothing of it, and it may be tried again.
  Rejected,  ///< The server answered that it failed.
  Unknown    ///< Bytes of it left and no answer was understood: it may or may not have been done.
};

/// "NotSent", "Rejected" or "Unknown".
NOX_CLIENT_EXPORT const char* nameOf(Outcome outcome);

/// The SQLSTATEs that the library itself sets. What the server refuses carries the server's.
namespace sqlstate {
constexpr const char* kCannotConnect = "08001";   ///< no host could be reached, or trusted
constexpr const char* kUnusable = "08003";        ///< the connection is closed, lost or forked
constexpr const char* kConnectionLost = "08006";  ///< it ended while a request was under way
constexpr const char* kOutOfStep = "08P01";       ///< what came is no answer to what was asked
constexpr const char* kTimeout = "HYT00";         ///< the request's deadline passed
constexpr const char* kConnectTimeout = "HYT01";  ///< the deadline for connecting passed
constexpr const char* kCancelled = "HY008";       ///< cancel() was called
constexpr const char* kBadOption = "HY024";       ///< a URI, environment variable or option
constexpr const char* kBadArgument = "22023";     ///< cannot travel, or is another session's
constexpr const char* kNull = "22002";            ///< a null was asked for its value
constexpr const char* kNotANumber = "22018";      ///< a text was asked for its number
constexpr const char* kNoColumn = "42S22";        ///< rows have no column of that name
constexpr const char* kLocked = "IL002";          ///< another session holds the record's lock
constexpr const char* kPrompts = "IE011";         ///< a command asks for input and nobody answers
constexpr const char* kPoolExhausted = "HYT02";   ///< no connection of a pool came free in time
}  // namespace sqlstate

/// Thrown by value for whatever goes wrong. What only a mistake in the program can cause, such as
/// asking for field 0 of a record, throws std::logic_error or a class derived from it instead.
/// Objects may be copied and used by any thread.
class NOX_CLIENT_EXPORT Error : public std::runtime_error {
public:
  /// `sqlState` has five characters.
  Error(std::string_view sqlState, const std::string& message, Outcome outcome,
        std::optional<std::int32_t> status = std::nullopt);
  Error(const Error&) = default;
  Error& operator=(const Error&) = default;
  ~Error() override;

  /// Class and subclass: "IE008".
  const std::string& sqlState() const { return sqlState_; }
  /// The class alone: "IE".
  std::string_view sqlClass() const { return std::string_view(sqlState_).substr(0, 2); }
  /// The text without the SQLSTATE; `what()` has both.
  const std::string& message() const { return message_; }
  Outcome outcome() const { return outcome_; }
  /// The code of the store or of the transaction manager, where the server sent one.
  std::optional<std::int32_t> status() const { return status_; }

private:
  std::string sqlState_;
  std::string message_;
  Outcome outcome_;
  std::optional<std::int32_t> status_;
};

}  // namespace nox::client
