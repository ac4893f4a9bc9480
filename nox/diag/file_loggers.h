// The eight loggers that each source file of the library owns, and the statement that uses them.
// Include it in .cpp files only.
#pragma once

#include "nox/diag/logger.h"

namespace nox {
namespace {
namespace filelog {

// Only the debug format carries the trace indentation (%I).
[[maybe_unused]] Logger debug(nox::debug, "(%P|%t) DEBUG %I %s");
[[maybe_unused]] Logger info(nox::info, "(%P|%t) INFO %s");
[[maybe_unused]] Logger notice(nox::notice, "(%P|%t) NOTICE %s");
[[maybe_unused]] Logger warning(nox::warning, "(%P|%t) WARNING %s");
[[maybe_unused]] Logger error(nox::error, "(%P|%t) ERROR %s");
[[maybe_unused]] Logger critical(nox::critical, "(%P|%t) CRITICAL ERROR %s");
[[maybe_unused]] Logger alert(nox::alert, "(%P|%t) ALERT %s");
[[maybe_unused]] Logger emergency(nox::emergency, "(%P|%t) EMERGENCY %s");

}  // namespace filelog

/// Makes a chain an operand of ?:, which wants two of type void. `&` binds looser than `<<`.
struct LogStatement {
  void operator&(const Logger&) const {}
};

}  // namespace
}  // namespace nox

/// `NOX_LOG(filelog::debug) << "text " << static_cast<long>(n) << EndLog();`. Without logger output
/// the chain is compiled but never evaluated. A single expression, so that an `else` that follows
/// belongs to whoever wrote the `if`.
#define NOX_LOG(logger) \
  !::nox::kLoggerOutput ? static_cast<void>(0) : ::nox::LogStatement() & (logger)
